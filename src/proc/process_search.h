// The search for a process by its name.
#pragma once

#include <cstdint>

#include "proc/process_table.h"

namespace sondex {

// The PID of the one process of `table` whose short name equals `name`, without regard to case, in
// the first 15 characters. 0 when there is none; -1, after a message, when there are several.
int32_t findProcess(TableView table, const char *name);

}  // namespace sondex
