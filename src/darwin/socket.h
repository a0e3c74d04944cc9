// Socket families, types and protocols with the kernel's own numbers, and its local socket address.
// Numbers read from a kernel structure are compared with these, never with the C library's macros,
// which differ between the systems that the program is linked for.
#pragma once

#include <cstdint>

#include "darwin/layout.h"

namespace darwin {

constexpr int DARWIN_AF_UNIX = 1;
constexpr int DARWIN_AF_INET = 2;
constexpr int DARWIN_AF_ROUTE = 17;
constexpr int DARWIN_AF_NDRV = 27;
constexpr int DARWIN_AF_INET6 = 30;
constexpr int DARWIN_AF_SYSTEM = 32;
constexpr int DARWIN_PF_KEY = 29;

constexpr int DARWIN_SOCK_STREAM = 1;
constexpr int DARWIN_SOCK_DGRAM = 2;

constexpr int DARWIN_SOL_SOCKET = 0xFFFF;
constexpr int DARWIN_SO_RCVBUF = 0x1002;

// Protocols of DARWIN_AF_SYSTEM.
constexpr int SYSPROTO_EVENT = 1;
constexpr int SYSPROTO_CONTROL = 2;

constexpr int DARWIN_IPPROTO_TCP = 6;
constexpr int DARWIN_IPPROTO_UDP = 17;

// sun_path fills the structure: it ends with a NUL only when the path is shorter than 104 bytes.
struct sockaddr_un {
  uint8_t sun_len;
  uint8_t sun_family;
  char sun_path[104];
};
DARWIN_LAYOUT(sockaddr_un, 106, 1, (sun_len, 0), (sun_family, 1), (sun_path, 2));

struct in_addr {
  uint32_t s_addr;  // network order
};
DARWIN_LAYOUT(in_addr, 4, 4, (s_addr, 0));

// The platform names the bytes through macros; here they have a plain name.
struct in6_addr {
  alignas(4) uint8_t octets[16];
};
DARWIN_LAYOUT(in6_addr, 16, 4, (octets, 0));

}  // namespace darwin
