#include "proc/sampler.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "darwin/libproc.h"
#include "darwin/sandbox.h"
#include "proc/descriptor_kinds.h"
#include "state/system.h"
#include "state/tracing.h"
#include "terminal/ending.h"
#include "terminal/held_stderr.h"
#include "terminal/screen.h"

namespace sondex {

darwin::rusage_info_v3 g_Total_Rusage;
darwin::rusage_info_v3 g_Prev_Total_Rusage;
JetsamList *g_jetsam_list = nullptr;

// Entries of the kernel's size estimate that are not sampled: its 20 spare ones but one. Kept: the
// count is trusted and not taken again from the list itself, so a quiet system's last record is of
// PID -1.
constexpr int32_t kSpareEntries = 19;

// Processes whose messages the pipe that holds them has room for.
constexpr int32_t kBetweenCollections = 64;

constexpr int kFDListSize =
    1024;  // bytes asked for: at most 128 descriptors, fewer than a record has room for

constexpr int32_t kOsVerUsageV3 = 10;  // first kernel generation with the third usage structure
constexpr int32_t kOsVerLongCoalitions = 11;  // first one with two coalition identifiers
constexpr int kShortCoalitionSize = 32;

int getArrayOfPIDs() {
  return darwin::proc_listpids(darwin::PROC_ALL_PIDS, 1, nullptr, 0);
}

[[noreturn]] static void cannotContinue(const char *failed) {
  endProgram(10, stderr,
             "%s: %s\nCan't continue! Did AAPL add another entitlement?? You might be able to fix "
             "this by re-signing me..\n",
             failed, strerror(errno));
}

TableView getPIDList() {
  const int size = getArrayOfPIDs();
  if (size < 1) cannotContinue("proc_listpids");
  const int32_t listed = size / static_cast<int>(sizeof(int32_t));

  ProcessRecord *table = allocateProcessTable(static_cast<size_t>(listed) + 1);
  int32_t *pids = static_cast<int32_t *>(malloc(static_cast<size_t>(size)));
  if (table == nullptr || pids == nullptr) cannotContinue("malloc");
  // An entry that the kernel leaves unused reads as PID -1.
  memset(pids, 0xFF, static_cast<size_t>(size));
  darwin::proc_listpids(darwin::PROC_ALL_PIDS, 1, pids, size);

  free(g_jetsam_list);
  g_jetsam_list = g_r00t != 0 ? getMemoryStatusPriorityList() : nullptr;

  const int32_t sampled = listed > kSpareEntries ? listed - kSpareEntries : 0;
  limitProcessTable(table, static_cast<size_t>(sampled));
  for (int32_t i = 0; i < sampled; i++) {
    getProcInfo(pids[i], &table[i], g_jetsam_list);
    if (i % kBetweenCollections == 0) collectStandardError();
  }
  free(pids);
  return {table, sampled};
}

bool getProcUsage(int32_t pid, darwin::rusage_info_v3 *usage) {
  if (proc_pid_rusage_funcptr == nullptr) return false;
  const int flavour =
      g_OsVer < kOsVerUsageV3 ? darwin::DARWIN_RUSAGE_INFO_V2 : darwin::DARWIN_RUSAGE_INFO_V3;
  return proc_pid_rusage_funcptr(pid, flavour, reinterpret_cast<darwin::rusage_info_t *>(usage)) >=
         0;
}

static void addToTotals(const ProcessRecord *record) {
  g_Total_Rusage.ri_diskio_bytesread += record->rusage.ri_diskio_bytesread;
  g_Total_Rusage.ri_diskio_byteswritten += record->rusage.ri_diskio_byteswritten;
}

static void keepPreviousUsage(ProcessRecord *record, int32_t pid) {
  const ProcessRecord *previous = findProcessInformationByPid(previousTable(), pid);
  if (previous != nullptr) record->previousRusage = previous->rusage;
}

static void getThreads(int32_t pid, ProcessRecord *record) {
  record->numThreads = record->taskAllInfo.ptinfo.pti_threadnum;
  record->threadIDs[0] = 0;
  record->totalCPU = 0;
  if (record->numThreads > kThreadSlots) {
    if (pid > 0) fprintf(stderr, "PID %d has more %d threads. Crazzzzy\n", pid, record->numThreads);
    return;  // without handles there is no thread to ask about
  }
  if (record->numThreads < 1) return;
  darwin::proc_pidinfo(pid, darwin::PROC_PIDLISTTHREADS, 0, record->threadIDs,
                       record->numThreads * static_cast<int>(sizeof record->threadIDs[0]));
  for (int32_t i = 0; i < record->numThreads; i++) {
    darwin::proc_threadinfo *thread = &record->threads[i];
    darwin::proc_pidinfo(pid, darwin::PROC_PIDTHREADINFO, record->threadIDs[i], thread,
                         sizeof *thread);
    const int32_t share = thread->pth_cpu_usage > 0 ? thread->pth_cpu_usage : 0;
    if (__builtin_add_overflow(record->totalCPU, share, &record->totalCPU))
      record->totalCPU = INT32_MAX;
  }
}

// What the kernel tells of the process itself. False without its usage.
static bool askKernel(int32_t pid, ProcessRecord *record) {
  if (darwin::proc_pidinfo(pid, darwin::PROC_PIDTASKALLINFO, 0, &record->taskAllInfo,
                           sizeof record->taskAllInfo) <= 0) {
    perror("proc_pidinfo");
  }
  memset(&record->rusage, 0xFF, sizeof record->rusage);
  const bool hasUsage = getProcUsage(pid, &record->rusage);
  darwin::proc_pidinfo(pid, darwin::PROC_PIDWORKQUEUEINFO, 0, &record->workqueueInfo,
                       sizeof record->workqueueInfo);
  getThreads(pid, record);
  getProcFDInfo(pid, record);
  getProcCoalitionInfo(pid, record);
  record->sandboxed = darwin::sandbox_check(pid, nullptr, 0);
  return hasUsage;
}

int getProcInfo(int32_t pid, ProcessRecord *record, const JetsamList *jetsamList) {
  if (askKernel(pid, record)) {
    addToTotals(record);
    keepPreviousUsage(record, pid);
  }
  if (jetsamList != nullptr) {
    const darwin::memorystatus_priority_entry *entry = getJetsamPropertiesOfPID(pid, jetsamList);
    if (entry != nullptr) {
      record->jetsamPriority = entry->priority;
      record->jetsamLimit = entry->limit;
    }
  }
  return 0;
}

void refreshProcInfo(ProcessRecord *record) {
  askKernel(pidOf(record), record);
}

int getProcFDInfo(int32_t pid, ProcessRecord *record) {
  const int size = darwin::proc_pidinfo(pid, darwin::PROC_PIDLISTFDS, 0, record->fds, kFDListSize);
  const int bytes = size < 0 ? 0 : size < kFDListSize ? size : kFDListSize;
  record->numFDs = bytes / static_cast<int>(sizeof record->fds[0]);
  releaseRecord(record);
  if (record->numFDs == 0) return 0;
  // Zeroed: most types' details are larger than a slot, and the kernel then leaves the slot alone.
  record->fdDetails =
      static_cast<uint8_t *>(calloc(static_cast<size_t>(record->numFDs), kFDDetailSize));
  if (record->fdDetails == nullptr) return -1;

  for (int32_t i = 0; i < record->numFDs; i++) {
    const DescriptorKind *kind = findDescriptorKind(record->fds[i].proc_fdtype);
    if (kind == nullptr || !kind->isSampled) return -1;
    // Kept: asked by the place in the list, not by the descriptor's number.
    uint8_t *slot = record->fdDetails + static_cast<size_t>(i) * kFDDetailSize;
    if (darwin::proc_pidfdinfo(pid, i, kind->flavour, slot, kFDDetailSize) < 0) {
      endProgram(0, stderr, "proc_pidfinfo: %s\n", strerror(errno));
    }
  }
  return 0;
}

int coalitionInfoSize() {
  return g_OsVer < kOsVerLongCoalitions ? kShortCoalitionSize
                                        : static_cast<int>(sizeof(darwin::proc_pidcoalitioninfo));
}

int getProcCoalitionInfo(int32_t pid, ProcessRecord *record) {
  const int wanted = coalitionInfoSize();
  const int size =
      darwin::proc_pidinfo(pid, darwin::PROC_PIDCOALITIONINFO, 0, &record->coalitionInfo, wanted);
  if (size != wanted && isTracing()) {
    closeScreen();
    fprintf(stderr, "RC: %d\n", size);
    perror("coalition");
  }
  return 0;
}

}  // namespace sondex
