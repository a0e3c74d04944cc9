// Traffic of all network interfaces, and the Wi-Fi network, for the list screen's header.
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

// Totals and rates of the interfaces. In a record that the next call overwrites; null when they
// can't be read.
const NetworkSample *sample_networks();

// Writes a line with network name and signal strength when connected, nothing otherwise.
void showWiFiDetails();

}  // namespace sondex
