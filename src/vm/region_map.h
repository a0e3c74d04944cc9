// The memory map of a process.
#pragma once

#include <cstdint>

#include "darwin/mach_host.h"

namespace sondex {

// One line per region of `pid`, in a buffer that the next call overwrites. `task` is a task port,
// or 0 to look one up.
const char *showProcRegions(int32_t pid, darwin::mach_port_t task);

}  // namespace sondex
