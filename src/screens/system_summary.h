// The header lines above the process list: identity, uptime, load, processors, memory, swap, disks,
// network, power.
#pragma once

#include "proc/process_table.h"

namespace sondex {

// Writes the header lines as far as the display's switches and the current perspective ask for
// them. The compressor counters of this frame are kept in the first record of `current`, which has
// records; in delta mode those of the first record of `previous`, which may have none, are
// subtracted. A section whose query fails shows its fallback or is left out.
void showSystemSummary(TableView current, TableView previous);

}  // namespace sondex
