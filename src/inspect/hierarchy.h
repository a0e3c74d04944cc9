// The tree of a process's descendants.
#pragma once

#include <cstdint>

#include "proc/process_table.h"

namespace sondex {

// Draws the descendants of `root` in `table`, in its order; `root` need not be in it. Without
// records nothing is drawn. `depth` is how deep `root` itself stands: at 0 its own line comes
// first. `isLast` tells whether it is its parent's last child. Each record is drawn at most once,
// whatever its parent says. Costs linear time.
void showProcessHierarchy(const ProcessRecord *root, TableView table, int32_t depth,
                          int32_t isLast);

}  // namespace sondex
