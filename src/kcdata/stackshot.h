// Stackshots: the kernel's snapshot of a process's threads.
#pragma once

#include <cstdint>

namespace sondex {

// Takes a stackshot of `pid` and prints it; the other two say how. Returns 0; failures are only
// reported.
int stackshot_wrapper(int32_t pid, uint32_t print_flags, uint32_t threads_only);

}  // namespace sondex
