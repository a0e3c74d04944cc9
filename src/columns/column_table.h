// The columns that there are.
#pragma once

#include "columns/column.h"

namespace sondex {

extern const ColumnDescriptor col_pid;
extern const ColumnDescriptor col_ppid;
extern const ColumnDescriptor col_uid;
extern const ColumnDescriptor col_coalition;
extern const ColumnDescriptor col_command;
extern const ColumnDescriptor col_priority;
extern const ColumnDescriptor col_threads;
extern const ColumnDescriptor col_vsize;
extern const ColumnDescriptor col_rsize;
extern const ColumnDescriptor col_status;
extern const ColumnDescriptor col_memstatus;
extern const ColumnDescriptor col_memlimit;
extern const ColumnDescriptor col_sandbox;
extern const ColumnDescriptor col_codesign;
extern const ColumnDescriptor col_stime;
extern const ColumnDescriptor col_time;
extern const ColumnDescriptor col_cpu;
extern const ColumnDescriptor col_nfds;
extern const ColumnDescriptor col_dsk_r;
extern const ColumnDescriptor col_dsk_w;
extern const ColumnDescriptor col_net_rx;
extern const ColumnDescriptor col_net_tx;

}  // namespace sondex
