#include "columns/column_table.h"

#include "columns/comparators.h"
#include "columns/renderers.h"

namespace sondex {

// clang-format off
// Header, width, renderer, comparator, hidden, first kernel generation, needs network statistics, root only.
const ColumnDescriptor col_pid       = {"PID  ",           6,  print_pid,                sort_pid,                0, 0,  0, 0};
const ColumnDescriptor col_ppid      = {"PPID  ",          6,  print_ppid,               sort_ppid,               0, 0,  0, 0};
const ColumnDescriptor col_uid       = {" UID ",           6,  print_uid,                sort_uid,                0, 0,  0, 0};
const ColumnDescriptor col_coalition = {"COAL",            5,  print_coalition,          sort_coalition,          0, 10, 0, 0};
const ColumnDescriptor col_command   = {"COMMAND        ", 16, print_name,               sort_name,               0, 0,  0, 0};
const ColumnDescriptor col_priority  = {"PRI  ",           5,  print_priority,           sort_priority,           0, 0,  0, 0};
const ColumnDescriptor col_threads   = {"#THR",            5,  print_numthreads,         sort_numthreads,         0, 0,  0, 0};
const ColumnDescriptor col_vsize     = {" VSS ",           6,  print_vsize,              sort_vsize,              0, 0,  0, 0};
const ColumnDescriptor col_rsize     = {" RSS ",           6,  print_rsize,              sort_rsize,              0, 0,  0, 0};
const ColumnDescriptor col_status    = {" S ",             4,  print_status,             sort_status,             0, 0,  0, 0};
const ColumnDescriptor col_memstatus = {"MS ",             4,  print_memstatus,          sort_memstatus,          0, 0,  0, 1};
const ColumnDescriptor col_memlimit  = {"MEML",            5,  print_memlimit,           sort_memlimit,           0, 0,  0, 1};
const ColumnDescriptor col_sandbox   = {"SB",              3,  print_sandbox,            sort_sandbox,            0, 0,  0, 0};
const ColumnDescriptor col_codesign  = {"CS",              3,  print_cs,                 sort_cs,                 0, 0,  0, 0};
const ColumnDescriptor col_stime     = {"   STIME   ",     12, print_stime,              sort_stime,              0, 0,  0, 0};
const ColumnDescriptor col_time      = {"   TIME ",        11, print_time,               sort_time,               0, 0,  0, 0};
const ColumnDescriptor col_cpu       = {" CPU  ",          6,  print_cpu_usage,          sort_cpu_usage,          0, 0,  0, 0};
const ColumnDescriptor col_nfds      = {" FDs ",           5,  print_numfds,             sort_numfds,             0, 0,  0, 0};
const ColumnDescriptor col_dsk_r     = {" READ ",          7,  print_io_rusage_read,     sort_io_rusage_read,     0, 9,  0, 0};
const ColumnDescriptor col_dsk_w     = {"WRITE ",          7,  print_io_rusage_written,  sort_io_rusage_written,  0, 9,  0, 0};
const ColumnDescriptor col_net_rx    = {"Net RX",          7,  print_netrx,              sort_netrx,              0, 0,  0, 0};
const ColumnDescriptor col_net_tx    = {"Net TX",          7,  print_nettx,              sort_nettx,              0, 0,  0, 0};
// clang-format on

}  // namespace sondex
