// The process list: one full frame of the main display.
#pragma once

#include "proc/process_table.h"

namespace sondex {

// Draws the system summary, the column headers and a row for each process of `current` that passes
// `filter`, on the screen or on standard output, then the status bar. `previous`, the table that
// growth is counted from, may have no records. `filter` is a part of a name, or null or empty for
// none; one that begins with "-" lets every name pass. Sets g_procs_viewable, and the status bar
// for scrolling and filtering; of the records, `displayed` of those that it draws.
void showProcesses(TableView current, TableView previous, const char *filter);

}  // namespace sondex
