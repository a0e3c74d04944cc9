// The memory regions of a process in a device file.
#pragma once

#include <stdint.h>

namespace sondex {

// Writes the key `regions` with those that `pid` has now, where it has any. With `withContents`
// what can be read of each is written too.
void writeRegions(int32_t pid, bool withContents);

}  // namespace sondex
