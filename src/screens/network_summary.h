// Traffic of all network interfaces, for the list screen's header. Everything here belongs to the
// drawing thread.
#pragma once

#include <cstdint>

namespace sondex {

struct NetworkSample {
  uint64_t receivedPackets;
  uint64_t receivedBytes;
  uint64_t sentPackets;
  uint64_t sentBytes;
  uint64_t receivedBytesPerSecond;  // since the previous sample
  uint64_t sentBytesPerSecond;
  uint64_t seconds;  // time of the sample
  uint64_t microseconds;
};

// Totals and rates of the interfaces; loopback and point-to-point ones count only if the variable
// INCLUDE_LOOPBACK was set at the first call. The first rates are totals over the time since the
// epoch. In a record that the next call overwrites; null when the list can't be read.
const NetworkSample *sample_networks();

}  // namespace sondex
