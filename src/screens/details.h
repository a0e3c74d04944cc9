// The details of one process: the report as it is printed, and as a screen with keys of its own.
#pragma once

#include "proc/process_table.h"

namespace sondex {

// In plain mode, writes the report of `record` once and whole. In full-screen mode, shows it until
// a key leaves it, the arguments of the process are not to be had, the terminal is gone or the
// program is to end; every second and after each key it asks the kernel anew and fills `record`.
// The caller holds the right to draw, and draws anew afterwards.
//
// `record` is the caller's own, not one in a table that may be released meanwhile; its descriptor
// details are a heap block or null. `table` is where the process's relatives are looked for; one
// without records means whatever the last refresh left at the time. Returns 0; -1, after a message,
// without the arguments of the process.
int showProcessDetails(ProcessRecord *record, TableView table);

}  // namespace sondex
