// The comparators: each orders two records by one column. Unless said otherwise the larger key
// comes first, and equal keys never answer "equal": a comparator answers -1 when a's key is the
// larger and 1 otherwise, negated by `reverse`.
#pragma once

#include "columns/column.h"
#include "nstat/accounting.h"

namespace sondex {

int sort_pid(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_ppid(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_uid(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_priority(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_numthreads(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_numfds(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_vsize(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_rsize(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_stime(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_time(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_cpu_usage(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_coalition(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_sandbox(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_memstatus(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_memlimit(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_cs(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);

// In delta mode by the growth since the previous sample.
int sort_io_rusage_read(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_io_rusage_written(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);

// Descending alphabetical without regard to case; the only one that answers 0 for equal keys.
int sort_name(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);

// Running processes first, then zombies, stopped, sleeping, runnable, idle.
int sort_status(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);

// What the next two go by, until null is set: one moment's sums, or those of each comparison. The
// sorting thread's only.
void sortBySums(const SourceSums *sums);

// Smallest first.
int sort_netrx(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_nettx(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);

// Nothing calls these yet.
int sort_tty(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_csw(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_bitness(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);
int sort_io_rusage(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);

}  // namespace sondex
