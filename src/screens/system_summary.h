// The header lines above the process list: identity, uptime, load, processors, memory, swap, disks,
// network, power.
#pragma once

#include "proc/process_record.h"

namespace sondex {

// Writes the header lines as far as the display's switches and the current perspective ask for
// them. The compressor counters of this frame are kept in the first record of `current` (not null);
// in delta mode those of the first record of `previous` (null for none) are subtracted. A section
// whose query fails shows its fallback or is left out.
void showSystemSummary(ProcessRecord *current, const ProcessRecord *previous);

}  // namespace sondex
