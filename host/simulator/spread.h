// What makes processes that are described alike different from one another: each of their figures
// is a little larger or smaller, always in the same way.
#pragma once

#include <cstdint>

#include "host/simulator/device.h"

namespace host::simulator {

// Changes every figure of `process` by at most `millionths` of it, by its PID; of its virtual size
// only what its regions leave. `seed` stands for the PID where that is not known.
void spreadFigures(Process &process, int64_t millionths, int64_t seed);

}  // namespace host::simulator
