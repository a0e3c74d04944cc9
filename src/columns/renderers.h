// The renderers: each draws one cell of one process, in its column's format. Cumulative figures
// turn into growth since the previous sample in delta mode; a value that changed is coloured.
//
// They leave the records as they are, but for the network cells: those note the totals that they
// showed, in lastNetRX and lastNetTX.
#pragma once

#include "columns/column.h"

namespace sondex {

int print_pid(ProcessRecord *current, ProcessRecord *previous);
int print_ppid(ProcessRecord *current, ProcessRecord *previous);
int print_uid(ProcessRecord *current, ProcessRecord *previous);
int print_coalition(ProcessRecord *current, ProcessRecord *previous);
int print_name(ProcessRecord *current, ProcessRecord *previous);
int print_priority(ProcessRecord *current, ProcessRecord *previous);
int print_numthreads(ProcessRecord *current, ProcessRecord *previous);
int print_vsize(ProcessRecord *current, ProcessRecord *previous);
int print_rsize(ProcessRecord *current, ProcessRecord *previous);
int print_status(ProcessRecord *current, ProcessRecord *previous);
int print_memstatus(ProcessRecord *current, ProcessRecord *previous);
int print_memlimit(ProcessRecord *current, ProcessRecord *previous);
int print_sandbox(ProcessRecord *current, ProcessRecord *previous);
int print_cs(ProcessRecord *current, ProcessRecord *previous);
int print_stime(ProcessRecord *current, ProcessRecord *previous);
int print_time(ProcessRecord *current, ProcessRecord *previous);
int print_cpu_usage(ProcessRecord *current, ProcessRecord *previous);
int print_numfds(ProcessRecord *current, ProcessRecord *previous);
int print_io_rusage_read(ProcessRecord *current, ProcessRecord *previous);
int print_io_rusage_written(ProcessRecord *current, ProcessRecord *previous);
int print_netrx(ProcessRecord *current, ProcessRecord *previous);
int print_nettx(ProcessRecord *current, ProcessRecord *previous);

// For views other than the table's columns. Nothing calls these yet.
int print_tty(ProcessRecord *current, ProcessRecord *previous);
int print_rx_tx(ProcessRecord *current, ProcessRecord *previous);
int print_io_rusage(ProcessRecord *current, ProcessRecord *previous);
int print_csw(ProcessRecord *current, ProcessRecord *previous);
int print_bitness(ProcessRecord *current, ProcessRecord *previous);

}  // namespace sondex
