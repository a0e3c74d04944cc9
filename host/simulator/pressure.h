// What is remembered of memory pressure on a simulated device.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/simulator/figure.h"

namespace host::simulator {

// What the kernel did when memory last ran short.
struct LastPressure {
  Nanoseconds at{0};
  size_t times = 0;  // how often there was pressure so far
  uint32_t wantedPages = 0;
  uint32_t reclaimedPages = 0;
};

}  // namespace host::simulator
