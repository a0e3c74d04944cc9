// The process list: one full frame of the main display.
#pragma once

#include "proc/process_record.h"

namespace sondex {

// Draws the system summary, the column headers and a row for each process of `current` (num_procs
// records) that passes `filter`, on the screen or on standard output, then the status bar.
// `previous` (previous_num_procs records) may be null. `filter` is a part of a name, or null or
// empty for none; one that begins with "-" lets every name pass. Sets g_procs_viewable, and the
// status bar for scrolling and filtering.
void showProcesses(ProcessRecord *current, ProcessRecord *previous, const char *filter);

}  // namespace sondex
