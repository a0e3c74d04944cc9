// Units of a kernel's absolute time.
#pragma once

#include <cstdint>

#include "host/simulator/device.h"
#include "host/simulator/wide.h"

namespace host::simulator {

class TimeBase {
 public:
  // Neither number of the kernel's time base is 0.
  explicit TimeBase(const Kernel &kernel)
      : numerator_(kernel.timebaseNumerator), denominator_(kernel.timebaseDenominator) {}

  uint64_t absolute(uint64_t nanoseconds) const {
    return saturate<uint64_t>(Wide{nanoseconds} * denominator_ / numerator_);
  }

 private:
  uint32_t numerator_;
  uint32_t denominator_;
};

}  // namespace host::simulator
