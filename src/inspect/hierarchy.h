// The tree of a process's descendants.
#pragma once

#include <cstdint>

#include "proc/process_record.h"

namespace sondex {

// Draws the descendants of `root` among the first `count` records of `table`, in its order; `root`
// need not be one of them. A null table draws nothing. `depth` is how deep `root` itself stands: at
// 0 its own line comes first. `isLast` tells whether it is its parent's last child. Each record is
// drawn at most once, whatever its parent says. Costs linear time.
void showProcessHierarchy(const ProcessRecord *root, const ProcessRecord *table, int32_t count,
                          int32_t depth, int32_t isLast);

}  // namespace sondex
