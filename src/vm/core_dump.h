// Core files of live processes.
#pragma once

#include <cstdint>

#include "darwin/mach_host.h"

namespace sondex {

constexpr int kMiniCore = 0;
constexpr int kFullCore = 1;
constexpr int kBinaryCore = 255;

// Writes a core file of `pid`. `task` is a task port, or 0 to obtain one; `mode` one of the above.
// Returns 0, -5 without a task port, 1 when the binary mode can't open the executable.
int dumpCore(int32_t pid, darwin::mach_port_t task, int mode);

}  // namespace sondex
