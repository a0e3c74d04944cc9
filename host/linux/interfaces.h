// The network interfaces of this namespace from one rtnetlink listing, with Darwin's numbers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/linux/netlink.h"
#include "host/linux/procfs.h"
#include "host/machine/networks.h"

namespace host::linux_machine {

// IFT_* of an ARPHRD_* number: loopback, tunnels and serial lines as point-to-point, else Ethernet.
uint8_t interfaceType(uint16_t hardware);

// Darwin's flags of Linux's IFF_*; those that Darwin lacks are left out.
uint32_t interfaceFlags(uint32_t flags);

// The text of /sys/class/net/NAME/speed (Mbit/s, negative when not known) in bits per second.
uint64_t interfaceSpeed(std::string_view text);

// Takes the payload of one message apart; the speed is not in it. False for a malformed payload or
// one without a name.
bool parseInterface(Span payload, NetworkInterface &interface);

// Not thread-safe.
class Interfaces {
 public:
  Errno list(std::vector<NetworkInterface> &interfaces);

 private:
  NetlinkConnection kernel_{NETLINK_ROUTE};
  FileReader reader_;
};

}  // namespace host::linux_machine
