// The descriptors of a process in a device file.
#pragma once

#include <stdint.h>

namespace sondex {

// Writes the key `descriptors` with those that `pid` has now, where it has any: at most those that
// a device file can say.
void writeDescriptors(int32_t pid);

}  // namespace sondex
