// Putting the current process table in order.
#pragma once

#include "columns/column.h"

namespace sondex {

// Sorts the current table with `comparator` and the reverse flag. Records that the comparator can't
// tell apart keep their order. Without memory for the work the table stays as it is. Main thread
// only.
void doSort(Comparator comparator);

}  // namespace sondex
