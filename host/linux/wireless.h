// What a Wi-Fi interface is connected to, asked of the kernel's nl80211 family over generic
// netlink.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "host/linux/netlink.h"
#include "host/machine/networks.h"

namespace host::linux_machine {

// The channel number of a frequency in MHz; 0 when it is none of Wi-Fi's.
uint32_t channelOf(uint32_t megahertz);

// Not thread-safe.
class Wireless {
 public:
  using Visitor = std::function<bool(uint16_t, Span)>;
  // Asks as NetlinkConnection::ask does.
  using Ask = std::function<DumpProgress(const NetlinkRequest &, uint16_t type, uint16_t flags,
                                         const Visitor &)>;

  Wireless();
  explicit Wireless(Ask ask);

  // "en0" is the first Wi-Fi interface, unless one is really called so. DARWIN_ENXIO when there is
  // none of that name.
  Errno network(const std::string &interface, WirelessNetwork &network);

 private:
  struct Found {
    uint32_t index = 0;
    std::string name;
    std::string ssid;
    uint32_t megahertz = 0;
  };

  bool findFamily();
  std::optional<Found> findInterface(const std::string &name);
  bool readStation(uint32_t index, WirelessNetwork &network);
  DumpProgress list(uint8_t number, uint32_t index, const std::function<void(Span)> &visit);

  Ask ask_;
  uint16_t family_ = 0;  // 0 until it is known
};

}  // namespace host::linux_machine
