// Traffic of all network interfaces, and the Wi-Fi network, for the list screen's header.
// Everything here belongs to the drawing thread.
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

// Opens a socket for Wi-Fi queries about an interface (at most 15 bytes of its name count). Returns
// it, or -1 when the interface does not answer them.
int bindToInterface(const char *name);

// The Wi-Fi network that the device is on, asked of "en0": its name, at most 32 bytes of anything,
// in a buffer that the next call overwrites, or null; its signal strength in dBm, and its channel,
// or 0.
const char *zWiFiGetSSID();
int32_t zWiFiGetRSSI();
uint32_t zWiFiGetChannel();

// Writes a line with network name and signal strength when connected, nothing otherwise.
void showWiFiDetails();

}  // namespace sondex
