// The Wi-Fi network that the device is on, for the list screen's header. Everything here belongs to
// the drawing thread.
#pragma once

#include <cstdint>

namespace sondex {

// Opens a socket for Wi-Fi queries about an interface (at most 15 bytes of its name count). Returns
// it, or -1 when the interface does not answer them.
int bindToInterface(const char *name);

// The Wi-Fi network that the device is on, asked of "en0": its name, at most 32 bytes of anything,
// in a buffer that the next call overwrites, or null; its signal strength in dBm, and its channel,
// or 0. Nothing calls zWiFiGetChannel yet.
const char *zWiFiGetSSID();
int32_t zWiFiGetRSSI();
uint32_t zWiFiGetChannel();

// Writes a line with network name and signal strength when connected, nothing otherwise.
void showWiFiDetails();

}  // namespace sondex
