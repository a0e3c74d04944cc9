// The header lines above the process list: identity, uptime, load, processors, memory, swap, disks,
// network, power.
#pragma once

#include "proc/process_table.h"

namespace sondex {

// Writes the header lines as far as the display's switches and the current perspective ask for
// them. In delta mode the compressor counters are growth since those noted in the first record of
// `previous`, which may have none. The counters of this frame are noted in the first record of
// `current`, which has at least one. A section whose query fails shows its fallback or is left out.
void showSystemSummary(TableView current, TableView previous);

}  // namespace sondex
