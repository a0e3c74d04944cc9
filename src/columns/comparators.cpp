#include "columns/comparators.h"

#include <strings.h>

#include "state/display.h"

namespace sondex {

static int directed(int32_t reverse, int order) {
  return reverse != 0 ? -order : order;
}

template <typename Key>
static int descending(int32_t reverse, Key a, Key b) {
  return directed(reverse, a > b ? -1 : 1);
}

template <typename Key>
static int ascending(int32_t reverse, Key a, Key b) {
  return directed(reverse, a > b ? 1 : -1);
}

int sort_pid(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, pidOf(a), pidOf(b));
}

int sort_ppid(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->taskAllInfo.pbsd.pbi_ppid, b->taskAllInfo.pbsd.pbi_ppid);
}

int sort_uid(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->taskAllInfo.pbsd.pbi_uid, b->taskAllInfo.pbsd.pbi_uid);
}

int sort_tty(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->taskAllInfo.pbsd.e_tdev, b->taskAllInfo.pbsd.e_tdev);
}

int sort_priority(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->taskAllInfo.ptinfo.pti_priority,
                    b->taskAllInfo.ptinfo.pti_priority);
}

int sort_numthreads(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->taskAllInfo.ptinfo.pti_threadnum,
                    b->taskAllInfo.ptinfo.pti_threadnum);
}

int sort_csw(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->taskAllInfo.ptinfo.pti_csw, b->taskAllInfo.ptinfo.pti_csw);
}

int sort_numfds(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->numFDs, b->numFDs);
}

int sort_vsize(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->taskAllInfo.ptinfo.pti_virtual_size,
                    b->taskAllInfo.ptinfo.pti_virtual_size);
}

int sort_rsize(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->taskAllInfo.ptinfo.pti_resident_size,
                    b->taskAllInfo.ptinfo.pti_resident_size);
}

int sort_stime(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->taskAllInfo.pbsd.pbi_start_tvsec,
                    b->taskAllInfo.pbsd.pbi_start_tvsec);
}

int sort_time(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, cpuTime(a), cpuTime(b));
}

int sort_cpu_usage(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->totalCPU, b->totalCPU);
}

int sort_coalition(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->coalitionInfo.coalition_id[0], b->coalitionInfo.coalition_id[0]);
}

int sort_sandbox(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->sandboxed, b->sandboxed);
}

int sort_memstatus(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->jetsamPriority, b->jetsamPriority);
}

int sort_memlimit(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->jetsamLimit, b->jetsamLimit);
}

int sort_cs(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  // Compared as signed numbers; whether plain char is signed differs between the platforms.
  return descending(reverse, static_cast<int8_t>(a->csStatus[0]),
                    static_cast<int8_t>(b->csStatus[0]));
}

int sort_bitness(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, is64Bit(a), is64Bit(b));
}

int sort_io_rusage(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, a->rusage.ri_diskio_bytesread + a->rusage.ri_diskio_byteswritten,
                    b->rusage.ri_diskio_bytesread + b->rusage.ri_diskio_byteswritten);
}

static uint64_t bytesRead(const ProcessRecord *record) {
  const uint64_t before = load(g_Delta) != 0 ? record->previousRusage.ri_diskio_bytesread : 0;
  return record->rusage.ri_diskio_bytesread - before;
}

int sort_io_rusage_read(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, bytesRead(a), bytesRead(b));
}

static uint64_t bytesWritten(const ProcessRecord *record) {
  const uint64_t before = load(g_Delta) != 0 ? record->previousRusage.ri_diskio_byteswritten : 0;
  return record->rusage.ri_diskio_byteswritten - before;
}

int sort_io_rusage_written(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return descending(reverse, bytesWritten(a), bytesWritten(b));
}

int sort_name(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return directed(reverse, -strncasecmp(a->taskAllInfo.pbsd.pbi_comm, b->taskAllInfo.pbsd.pbi_comm,
                                        sizeof a->taskAllInfo.pbsd.pbi_comm));
}

static int32_t statusKey(const ProcessRecord *record) {
  if (record->taskAllInfo.ptinfo.pti_numrunning != 0) return 1;
  return static_cast<int32_t>(10u - record->taskAllInfo.pbsd.pbi_status);
}

int sort_status(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return ascending(reverse, statusKey(a), statusKey(b));
}

static const SourceSums *sortedSums = nullptr;

void sortBySums(const SourceSums *sums) {
  sortedSums = sums;
}

// Not by getNTStatInfo: sorting goes on while another thread draws, and would overwrite its answer.
static NetworkTotals totalsOf(const ProcessRecord *record) {
  NetworkTotals totals = {};
  if (sortedSums != nullptr) {
    sumAtMoment(sortedSums, pidOf(record), &totals);
  } else {
    sumSources(pidOf(record), &totals);
  }
  return totals;
}

static int32_t receivedKey(const ProcessRecord *record) {
  return static_cast<int32_t>(static_cast<uint32_t>(totalsOf(record).received));
}

static int32_t sentKey(const ProcessRecord *record) {
  return static_cast<int32_t>(static_cast<uint32_t>(totalsOf(record).sent));
}

int sort_netrx(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return ascending(reverse, receivedKey(a), receivedKey(b));
}

int sort_nettx(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b) {
  return ascending(reverse, sentKey(a), sentKey(b));
}

}  // namespace sondex
