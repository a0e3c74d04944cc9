// Mach ports of a process.
#pragma once

#include <cstdint>

namespace sondex {

// Port listing is not offered: answers a constant text that says so.
const char *showPorts(int32_t pid, int flags);

}  // namespace sondex
