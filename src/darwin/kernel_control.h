// Kernel control sockets: datagram sockets of the family DARWIN_AF_SYSTEM and the protocol
// SYSPROTO_CONTROL, connected to a service of the kernel that has a name. What a service then says
// is its own business (ntstat.h).
#pragma once

#include <cstdint>

#include "darwin/layout.h"
#include "darwin/socket.h"

namespace darwin {

constexpr int MAX_KCTL_NAME = 96;
constexpr int AF_SYS_CONTROL = 2;

// ioctl() on such a socket, with a ctl_info: name in, ID out. ENOENT when the kernel has no service
// of that name, EINVAL for an empty one.
constexpr unsigned long CTLIOCGINFO = 0xC0644E03;

struct ctl_info {
  uint32_t ctl_id;
  char ctl_name[MAX_KCTL_NAME];
};
DARWIN_LAYOUT(ctl_info, 100, 4, (ctl_id, 0), (ctl_name, 4));

// The address for connect(), whose length must be sizeof too. Unit 0: the kernel gives a free one.
// ENOENT for an unknown ID, EBUSY when the service takes no further client, EPERM when it takes
// only root.
struct sockaddr_ctl {
  uint8_t sc_len;
  uint8_t sc_family;
  uint16_t ss_sysaddr;
  uint32_t sc_id;
  uint32_t sc_unit;
  uint32_t sc_reserved[5];
};
DARWIN_LAYOUT(sockaddr_ctl, 32, 4, (sc_len, 0), (sc_family, 1), (ss_sysaddr, 2), (sc_id, 4),
              (sc_unit, 8), (sc_reserved, 12));

}  // namespace darwin
