// A crash of the program is reported with an address that the linker's map and the debug
// information know.
#pragma once

#include "mapping.h"

namespace loader {

// From now on: a line on standard error, then the end by the same signal. The mapping stays in use.
void reportCrashes(const Mapping &mapping);

}  // namespace loader
