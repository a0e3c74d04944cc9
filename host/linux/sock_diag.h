// Asks the Linux kernel for all its sockets of one kind over sock_diag netlink, and parses what it
// sends. Knows nothing of processes or of Darwin's structures: socket_table.h joins the two.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/linux/netlink.h"

namespace host::linux_machine {

// The kinds of socket that the kernel lists separately.
enum class SocketSource : uint8_t {
  mptcp4,
  mptcp6,
  tcp4,
  tcp6,
  udp4,
  udp6,
  raw4,
  raw6,
  unixDomain,
  netlink,
  packet,
};
inline constexpr size_t kSocketSources = 11;

// One socket as the kernel lists it. Numbers are Linux's.
struct DiagSocket {
  uint32_t inode = 0;
  SocketSource source = SocketSource::tcp4;
  uint8_t state = 0;       // TCP_*
  uint8_t type = 0;        // SOCK_*
  uint8_t protocol = 0;    // of raw sockets (IPPROTO_*) and netlink sockets (NETLINK_*)
  bool ipv6Only = true;    // false: an IPv6 socket that takes IPv4 too
  uint16_t localPort = 0;  // network order, as the addresses; an IPv4 address fills the first four
  uint16_t foreignPort = 0;
  std::array<uint8_t, 16> localAddress{};
  std::array<uint8_t, 16> foreignAddress{};
  uint32_t receiveQueue = 0;  // bytes; of a listening socket: connections waiting
  uint32_t sendQueue = 0;     // bytes; of a listening socket: how many may wait
  uint32_t receiveLimit = 0;  // bytes
  uint32_t sendLimit = 0;
  uint32_t peerInode = 0;       // unix: 0 when not connected
  uint32_t portID = 0;          // netlink
  uint32_t interfaceIndex = 0;  // packet: 0 for all interfaces
  // unix: where the name stands in the pool of names. An abstract name begins with a NUL.
  uint32_t nameStart = 0;
  uint32_t nameLength = 0;
};

// Parses the messages of one read (any bytes, any alignment), appends the sockets to `sockets` and
// their names to `names`. Messages with another sequence number are skipped, and so are sockets
// without an inode, which no descriptor refers to.
void parseSockets(const uint8_t *bytes, size_t size, SocketSource source, uint32_t sequence,
                  std::vector<DiagSocket> &sockets, std::string &names, DumpProgress &progress);

// Whether an IPv6 address stands for an IPv4 one, which its last four bytes are.
bool isIPv4Mapped(const std::array<uint8_t, 16> &address);

// Lists sockets of this network namespace. Not thread-safe.
class SockDiag {
 public:
  // Appends all sockets of one kind. False, with nothing appended, if the kernel does not list that
  // kind (asked only once then: each try makes it look for a module) or did not answer within a
  // second.
  bool dump(SocketSource source, std::vector<DiagSocket> &sockets, std::string &names);

 private:
  NetlinkConnection kernel_{NETLINK_SOCK_DIAG};
  std::bitset<kSocketSources> missing_;
};

}  // namespace host::linux_machine
