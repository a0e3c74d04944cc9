#include "capture/process_capture.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "capture/descriptor_capture.h"
#include "capture/device_file_writer.h"
#include "capture/figures.h"
#include "capture/refusals.h"
#include "capture/region_capture.h"
#include "capture/stand_ins.h"
#include "darwin/code_signing.h"
#include "darwin/errors.h"
#include "darwin/libproc.h"
#include "darwin/mach_task.h"
#include "darwin/sandbox.h"
#include "darwin/syscalls.h"
#include "darwin/sysctl.h"
#include "proc/sampler.h"
#include "proc/system_calls.h"

namespace sondex {

constexpr size_t kArgumentArea = 262144;  // the longest that kernels have
constexpr int64_t kMillion = 1'000'000;
constexpr int32_t kUsualPriority = 31;

static const FlagWord kStatuses[] = {{"idle", darwin::SIDL},
                                     {"run", darwin::SRUN},
                                     {"sleep", darwin::SSLEEP},
                                     {"stop", darwin::SSTOP},
                                     {"zombie", darwin::SZOMB}};
static const FlagWord kFlags[] = {{"system", darwin::PROC_FLAG_SYSTEM},
                                  {"traced", darwin::PROC_FLAG_TRACED},
                                  {"exiting", darwin::PROC_FLAG_INEXIT},
                                  {"session-leader", darwin::PROC_FLAG_SLEADER},
                                  {"terminal-leader", darwin::PROC_FLAG_CTTY},
                                  {"controls-terminal", darwin::PROC_FLAG_CONTROLT},
                                  {"changed-user", darwin::PROC_FLAG_PSUGID},
                                  {"exec", darwin::PROC_FLAG_EXEC},
                                  {"background", darwin::PROC_FLAG_DARWINBG},
                                  {"daemon", darwin::PROC_FLAG_IOS_APPLEDAEMON},
                                  {"delay-idle-sleep", darwin::PROC_FLAG_DELAYIDLESLEEP},
                                  {"promotion", darwin::PROC_FLAG_IOS_IMPPROMOTION},
                                  {"adaptive", darwin::PROC_FLAG_ADAPTIVE},
                                  {"adaptive-important", darwin::PROC_FLAG_ADAPTIVE_IMPORTANT},
                                  {"donor", darwin::PROC_FLAG_IMPORTANCE_DONOR},
                                  {"suppressed", darwin::PROC_FLAG_SUPPRESSED},
                                  {"application", darwin::PROC_FLAG_APPLICATION},
                                  {"suspended", darwin::PROC_FLAG_PA_SUSP},
                                  {"throttled", darwin::PROC_FLAG_PA_THROTTLE}};
static const FlagWord kSigning[] = {{"valid", darwin::CS_VALID},
                                    {"ad-hoc", darwin::CS_ADHOC},
                                    {"get-task-allow", darwin::CS_GET_TASK_ALLOW},
                                    {"installer", darwin::CS_INSTALLER},
                                    {"hard", darwin::CS_HARD},
                                    {"kill", darwin::CS_KILL},
                                    {"expires", darwin::CS_CHECK_EXPIRATION},
                                    {"restrict", darwin::CS_RESTRICT},
                                    {"enforce", darwin::CS_ENFORCEMENT},
                                    {"library-validation", darwin::CS_REQUIRE_LV},
                                    {"entitlements", darwin::CS_ENTITLEMENTS_VALIDATED},
                                    {"runtime", darwin::CS_RUNTIME},
                                    {"linker", darwin::CS_LINKER_SIGNED},
                                    {"killed", darwin::CS_KILLED},
                                    {"platform", darwin::CS_PLATFORM_BINARY},
                                    {"debugged", darwin::CS_DEBUGGED},
                                    {"signed", darwin::CS_SIGNED}};
constexpr uint32_t kUsualSigning = darwin::CS_VALID | darwin::CS_PLATFORM_BINARY;
static const FlagWord kApplicationStates[] = {{"none", darwin::PROC_APPSTATE_NONE},
                                              {"active", darwin::PROC_APPSTATE_ACTIVE},
                                              {"background", darwin::PROC_APPSTATE_BACKGROUND},
                                              {"no-ui", darwin::PROC_APPSTATE_NONUI},
                                              {"inactive", darwin::PROC_APPSTATE_INACTIVE}};

// Whether the caller is refused it because the process is another user's, as in a device file, too.
static bool isAnothers(uint32_t user, int error) {
  const uid_t caller = geteuid();
  return caller != 0 && user != caller && error == darwin::DARWIN_EPERM;
}

// What both answers say.
static void takeFromUsage(const darwin::rusage_info_v3 *usage, darwin::proc_taskinfo *task) {
  task->pti_total_user = usage->ri_user_time;
  task->pti_total_system = usage->ri_system_time;
  task->pti_resident_size = usage->ri_resident_size;
  task->pti_pageins = static_cast<int32_t>(usage->ri_pageins & INT32_MAX);
  task->pti_priority = kUsualPriority;
  task->pti_policy = darwin::POLICY_TIMESHARE;
}

bool sampleProcess(int32_t pid, const SourceSums *sums, ProcessFigures *figures) {
  memset(figures, 0, sizeof *figures);
  errno = 0;
  const int size = darwin::proc_pidinfo(pid, darwin::PROC_PIDTASKALLINFO, 0, &figures->info,
                                        sizeof figures->info);
  const int error = errno;
  figures->isTold = size == static_cast<int>(sizeof figures->info);
  figures->hasUsage = getProcUsage(pid, &figures->usage);
  figures->hasTraffic = sums != nullptr && sumAtMoment(sums, pid, &figures->traffic);
  if (figures->isTold) return true;
  memset(&figures->info, 0, sizeof figures->info);
  if (error == darwin::DARWIN_ESRCH) {
    // What has ended and not been waited for still says what it used.
    if (!figures->hasUsage) return false;
    figures->info.pbsd.pbi_status = darwin::SZOMB;
  } else if (figures->hasUsage || !isAnothers(UINT32_MAX, error)) {
    noteRefusal(pid, "proc_pidinfo", "PROC_PIDTASKALLINFO", error);
  }
  if (figures->hasUsage) takeFromUsage(&figures->usage, &figures->info.ptinfo);
  return true;
}

bool isZombie(const ProcessFigures *figures) {
  return figures->info.pbsd.pbi_status == darwin::SZOMB;
}

bool isStopped(const ProcessFigures *figures) {
  return figures->info.pbsd.pbi_status == darwin::SSTOP;
}

static void writeArguments(const char *path, const char *end, int32_t count) {
  const char *argument = path + strlen(path);
  while (argument < end && *argument == '\0') argument++;  // up to a multiple of the word's size
  if (count == 1 && strcmp(argument, path) == 0) return;
  beginArray("arguments");
  for (int32_t i = 0; i < count && argument < end; i++) {
    const size_t length = strnlen(argument, static_cast<size_t>(end - argument));
    writeArgument(nullptr, argument, length);
    argument += length + 1;
  }
  endArray();
}

// Its path, and what it was started with.
static void writeBeginning(int32_t pid, const ProcessFigures *figures) {
  static char area[kArgumentArea + 1];
  int name[] = {darwin::DARWIN_CTL_KERN, darwin::DARWIN_KERN_PROCARGS2, pid};
  size_t size = kArgumentArea;
  errno = 0;
  int32_t count = 0;
  if (darwin::sysctl(name, sizeof name / sizeof name[0], area, &size, nullptr, 0) != 0 ||
      size <= sizeof count || size > kArgumentArea) {
    const bool isUsual = pid == 0 || isZombie(figures) ||
                         (geteuid() != 0 && figures->info.pbsd.pbi_uid != geteuid());
    if (!isUsual) noteRefusal(pid, "sysctl", "kern.procargs2", errno);
    writePlainText("path", "");
    return;
  }
  area[size] = '\0';
  memcpy(&count, area, sizeof count);
  const char *path = area + sizeof count;
  writePath("path", path, darwin::DARWIN_MAXPATHLEN - 1);
  writeArguments(path, area + size, count);
}

static void writeWorkQueue(int32_t pid) {
  darwin::proc_workqueueinfo queue = {};
  if (darwin::proc_pidinfo(pid, darwin::PROC_PIDWORKQUEUEINFO, 0, &queue, sizeof queue) !=
      static_cast<int>(sizeof queue)) {
    return;
  }
  beginInlineTable("work-queue");
  if (queue.pwq_nthreads != 0) writeNumber("threads", queue.pwq_nthreads);
  if (queue.pwq_runthreads != 0) writeNumber("running", queue.pwq_runthreads);
  if (queue.pwq_blockedthreads != 0) writeNumber("blocked", queue.pwq_blockedthreads);
  if (queue.pwq_state != 0) writeNumber("state", queue.pwq_state);
  endInlineTable();
}

static void writeCoalitions(int32_t pid) {
  darwin::proc_pidcoalitioninfo info = {};
  const int wanted = coalitionInfoSize();
  const bool isShort = wanted < static_cast<int>(sizeof info);
  if (darwin::proc_pidinfo(pid, darwin::PROC_PIDCOALITIONINFO, 0, &info, wanted) != wanted) return;
  const uint64_t first = info.coalition_id[0];
  const uint64_t second = isShort ? first : info.coalition_id[1];
  if (first == second) {
    if (first != static_cast<uint64_t>(pid)) writeWide("coalition", first);
    return;
  }
  beginArray("coalition");
  writeWide(nullptr, first);
  writeWide(nullptr, second);
  endArray();
}

static void writeConfinement(int32_t pid) {
  const int verdict = darwin::sandbox_check(pid, nullptr, 0);
  if (verdict < 0) writePlainText("sandbox", "unknown");
  if (verdict > 0) writeFlag("sandbox", true);
  char container[darwin::DARWIN_MAXPATHLEN] = {};
  if (darwin::sandbox_container_path_for_pid(pid, container, sizeof container - 1) == 0 &&
      container[0] != '\0') {
    writePath("container", container, sizeof container);
  }
}

static void writeSigning(int32_t pid, const ProcessFigures *figures) {
  if (pid == 0) return;  // csops takes 0 for the caller itself
  uint32_t flags = 0;
  errno = 0;
  if (darwin::csops(pid, darwin::CS_OPS_STATUS, &flags, sizeof flags) != 0) {
    if (!isZombie(figures)) noteRefusal(pid, "csops", "CS_OPS_STATUS", errno);
  } else if (flags != kUsualSigning) {
    writeFlags("signing", flags, kSigning);
  }
}

static void writeApplicationState(int32_t pid) {
  int32_t state = 0;
  if (process_policy(darwin::PROC_POLICY_SCOPE_PROCESS, darwin::PROC_POLICY_ACTION_GET,
                     darwin::PROC_POLICY_APP_LIFECYCLE, darwin::PROC_POLICY_APPLIFE_STATE, &state,
                     pid, 0) == 0 &&
      state >= 0 && state <= darwin::PROC_APPSTATE_INACTIVE) {
    writeWord("application-state", static_cast<uint32_t>(state), kApplicationStates);
  }
}

// Whether its task can be had is shown of it.
static void checkTaskPort(int32_t pid, const ProcessFigures *figures) {
  if (pid == 0 || isZombie(figures)) return;
  if (isAnothers(figures->info.pbsd.pbi_uid, darwin::DARWIN_EPERM)) return;
  darwin::mach_port_t task = darwin::DARWIN_MACH_PORT_NULL;
  if (darwin::task_for_pid(darwin::mach_task_self_, pid, &task) == darwin::KERN_SUCCESS) {
    darwin::mach_port_deallocate(darwin::mach_task_self_, task);
  } else {
    noteRefusal(pid, "task_for_pid", nullptr, darwin::DARWIN_EPERM);
  }
}

bool isSameProcess(const ProcessFigures *first, const ProcessFigures *second) {
  return first->isTold == second->isTold && isZombie(first) == isZombie(second) &&
         first->info.pbsd.pbi_start_tvsec == second->info.pbsd.pbi_start_tvsec &&
         first->info.pbsd.pbi_start_tvusec == second->info.pbsd.pbi_start_tvusec;
}

// Not another one that has its number by now.
static bool isStillThere(int32_t pid, const ProcessFigures *first) {
  ProcessFigures now;
  const int32_t noted = refusalsNoted();
  const bool isThere = sampleProcess(pid, nullptr, &now);
  forgetRefusals(noted);
  return isThere && isSameProcess(first, &now);
}

void spoolProcess(int32_t pid, const ProcessFigures *figures, bool withMemory, FILE *to,
                  ProcessParts *parts) {
  memset(parts, 0, sizeof *parts);
  const int32_t noted = refusalsNoted();
  parts->start = ftell(to);
  if (figures->isTold) {
    beginFragment(to);
    writeBeginning(pid, figures);
    parts->beginning = endFragment();
    const bool is32Bit = (figures->info.pbsd.pbi_flags & darwin::PROC_FLAG_LP64) == 0;
    parts->share = spoolThreads(pid, withMemory, is32Bit, to);
    beginFragment(to);
    writeDescriptors(pid);
    writeRegions(pid, withMemory);
    writeWorkQueue(pid);
    parts->middle = endFragment();
    checkTaskPort(pid, figures);
  }
  beginFragment(to);
  writeCoalitions(pid);
  writeConfinement(pid);
  writeSigning(pid, figures);
  writeApplicationState(pid);
  parts->end = endFragment();
  parts->isWhole = isStillThere(pid, figures);
  // What it refused because it was gone is no refusal.
  if (!parts->isWhole) forgetRefusals(noted);
}

static void writeNames(const darwin::proc_bsdinfo *process) {
  writeText("name", process->pbi_comm, sizeof process->pbi_comm);
  if (strncmp(process->pbi_comm, process->pbi_name, sizeof process->pbi_comm) != 0) {
    writeText("long-name", process->pbi_name, sizeof process->pbi_name);
  }
}

static void writeUsers(const darwin::proc_bsdinfo *process) {
  writeUnless("user", process->pbi_uid, 0);
  writeUnless("group-id", process->pbi_gid, 0);
  writeUnless("real-user", process->pbi_ruid, process->pbi_uid);
  writeUnless("saved-user", process->pbi_svuid, process->pbi_uid);
  writeUnless("real-group-id", process->pbi_rgid, process->pbi_gid);
  writeUnless("saved-group-id", process->pbi_svgid, process->pbi_gid);
}

static void writeState(const darwin::proc_bsdinfo *process) {
  if ((process->pbi_flags & darwin::PROC_FLAG_LP64) == 0) writeNumber("bits", 32);
  if (process->pbi_status != darwin::SRUN) writeWord("status", process->pbi_status, kStatuses);
  writeUnless("exit-status", process->pbi_xstatus, 0);
  const uint32_t flags = process->pbi_flags & ~darwin::PROC_FLAG_LP64;
  if (flags != 0) writeFlags("flags", flags, kFlags);
  writeUnless("terminal", process->e_tdev, UINT32_MAX);
  writeUnless("terminal-group", process->e_tpgid, 0);
  writeUnless("jobs", process->pbi_pjobc, 0);
  if (process->pbi_nice != 0 && process->pbi_nice >= -20 && process->pbi_nice <= 20) {
    writeNumber("nice", process->pbi_nice);
  }
}

// Not below 0 for one that started after the first sample, nor before the system.
static void writeAge(const darwin::proc_bsdinfo *process, const CaptureMoment *moment) {
  const auto seconds = static_cast<int64_t>(process->pbi_start_tvsec);
  int64_t age = moment->up;
  if (seconds > moment->seconds - moment->up / kMillion - 2) {
    age = (moment->seconds - seconds) * kMillion + moment->microseconds -
          static_cast<int64_t>(process->pbi_start_tvusec);
  }
  if (age < 0) age = 0;
  if (age < moment->up) writeDecimal("age", age, 6);
}

static uint64_t grown(uint64_t start, int64_t share, uint64_t parts) {
  // A tenth of a percent of a processor is a thousand nanoseconds a microsecond divided by 1,000.
  return start + static_cast<uint64_t>(share) * static_cast<uint64_t>(sampleDistance()) * parts / 5;
}

// Of absolute time: what grows as the threads' shares say needs no word.
static void writeTaskTime(const char *key, uint64_t first, uint64_t second, int64_t share,
                          uint64_t parts) {
  const uint64_t start = nanosecondsOf(first);
  const uint64_t end = nanosecondsOf(second);
  const uint64_t usual = grown(start, share, parts);
  writeTime(key, start, end, unitsOf(usual) == second ? end : usual);
}

static uint64_t orZero(int32_t count) {
  return count > 0 ? static_cast<uint64_t>(count) : 0;
}

static void writeTaskFigures(const CapturedProcess *process) {
  const darwin::proc_taskinfo &first = process->first->info.ptinfo;
  const darwin::proc_taskinfo &second = process->second->info.ptinfo;
  const darwin::rusage_info_v3 &usage = process->first->usage;
  const darwin::rusage_info_v3 &later = process->second->usage;
  const bool hasUsage = process->first->hasUsage && process->second->hasUsage;
  writeBytes("virtual", first.pti_virtual_size, second.pti_virtual_size);
  writeBytes("resident", first.pti_resident_size, second.pti_resident_size);
  if (hasUsage) {
    writeBytes("wired", usage.ri_wired_size, later.ri_wired_size);
    if (usage.ri_phys_footprint != first.pti_resident_size ||
        later.ri_phys_footprint != second.pti_resident_size) {
      writeBytes("footprint", usage.ri_phys_footprint, later.ri_phys_footprint, UINT64_MAX);
    }
  }
  const int64_t share = process->parts->share;
  writeTaskTime("user-time", first.pti_total_user, second.pti_total_user, share, 4);
  writeTaskTime("system-time", first.pti_total_system, second.pti_total_system, share, 1);
  writeCount("faults", orZero(first.pti_faults), orZero(second.pti_faults));
  writeCount("page-ins", orZero(first.pti_pageins), orZero(second.pti_pageins));
  writeCount("copy-on-write-faults", orZero(first.pti_cow_faults), orZero(second.pti_cow_faults));
  writeCount("messages-sent", orZero(first.pti_messages_sent), orZero(second.pti_messages_sent));
  writeCount("messages-received", orZero(first.pti_messages_received),
             orZero(second.pti_messages_received));
  writeCount("mach-calls", orZero(first.pti_syscalls_mach), orZero(second.pti_syscalls_mach));
  writeCount("unix-calls", orZero(first.pti_syscalls_unix), orZero(second.pti_syscalls_unix));
  writeCount("context-switches", orZero(first.pti_csw), orZero(second.pti_csw));
  writeUnless("priority", first.pti_priority, kUsualPriority);
  if (first.pti_policy != darwin::POLICY_TIMESHARE) writePolicy(first.pti_policy);
}

// Of absolute time that stays where nothing is said.
static void writeUnits(const char *key, uint64_t first, uint64_t second) {
  const uint64_t start = nanosecondsOf(first);
  writeTime(key, start, nanosecondsOf(second), start);
}

static void writeUsage(const CapturedProcess *process) {
  if (!process->first->hasUsage) {
    writeFlag("usage", false);
    return;
  }
  const darwin::rusage_info_v3 &first = process->first->usage;
  const darwin::rusage_info_v3 &second =
      process->second->hasUsage ? process->second->usage : process->first->usage;
  writeBytes("disk-read", first.ri_diskio_bytesread, second.ri_diskio_bytesread);
  writeBytes("disk-written", first.ri_diskio_byteswritten, second.ri_diskio_byteswritten);
  writeCount("idle-wakeups", first.ri_pkg_idle_wkups, second.ri_pkg_idle_wkups);
  writeCount("interrupt-wakeups", first.ri_interrupt_wkups, second.ri_interrupt_wkups);
  writeUnits("billed-time", first.ri_billed_system_time, second.ri_billed_system_time);
  writeUnits("serviced-time", first.ri_serviced_system_time, second.ri_serviced_system_time);
}

static void writeTraffic(const CapturedProcess *process) {
  if (!process->first->hasTraffic) return;
  const NetworkTotals &first = process->first->traffic;
  const NetworkTotals &second =
      process->second->hasTraffic ? process->second->traffic : process->first->traffic;
  writeBytes("network-received", first.received, second.received, UINT64_MAX);
  writeBytes("network-sent", first.sent, second.sent, UINT64_MAX);
}

// A zombie may have been none when the list was taken.
static void writeJetsam(const CapturedProcess *process, const JetsamList *list) {
  if (list == nullptr) return;
  const darwin::memorystatus_priority_entry *entry =
      isZombie(process->first) ? nullptr : getJetsamPropertiesOfPID(process->pid, list);
  if (entry == nullptr) {
    writeFlag("jetsam", false);
    return;
  }
  writeUnless("band", entry->priority, 0);
  if (entry->limit > -1) writeNumber("limit", entry->limit);
  writeUnless("jetsam-state", entry->state, 0);
}

bool writeProcess(const CapturedProcess *process, const CaptureMoment *moment) {
  const ProcessParts *parts = process->parts;
  const darwin::proc_bsdinfo &identity = process->first->info.pbsd;
  const int32_t pid = process->pid;
  FILE *from = process->threads.from;
  if (fseek(from, parts->start, SEEK_SET) != 0) return false;
  writeEntry("process");
  writeNumber("pid", pid);
  writeNames(&identity);
  if (!writeFragment(from, parts->beginning)) return false;
  const bool isTold = process->first->isTold;
  if (isTold) {
    writeUnless("parent", identity.pbi_ppid, pid > 1 ? 1 : 0);
    writeUnless("group", identity.pbi_pgid, pid);
    writeUsers(&identity);
    writeState(&identity);
    writeAge(&identity, moment);
  } else {
    writePlainText("path", "");
    if (geteuid() != 0 && process->first->hasUsage) writeNumber("user", geteuid());
    if (isZombie(process->first)) writePlainText("status", "zombie");
  }
  if (isTold || process->first->hasUsage) writeTaskFigures(process);
  if (isTold) {
    const ThreadDefaults defaults = {process->first->info.ptinfo.pti_priority,
                                     process->first->info.ptinfo.pti_policy,
                                     isStopped(process->first)};
    if (!writeThreads(&process->threads, &defaults)) return false;
  } else {
    writeNumber("threads", 0);
  }
  if (!writeFragment(from, parts->middle)) return false;
  writeTraffic(process);
  writeUsage(process);
  writeJetsam(process, moment->jetsam);
  return writeFragment(from, parts->end);
}

}  // namespace sondex
