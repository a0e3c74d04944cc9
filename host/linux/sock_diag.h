// Asks the Linux kernel for all its sockets of one kind over sock_diag netlink, and parses what it
// sends. Knows nothing of processes or of Darwin's structures: socket_table.h joins the two.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <functional>
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

// The kernel's states of a TCP socket, and of a unix one, which are numbered alike: those of
// <netinet/tcp.h>, which does not go with the <linux/tcp.h> that has the kernel's own figures.
enum TcpState : uint8_t {
  kTcpEstablished = 1,
  kTcpSynSent,
  kTcpSynReceived,
  kTcpFinWait1,
  kTcpFinWait2,
  kTcpTimeWait,
  kTcpClosed,
  kTcpCloseWait,
  kTcpLastAck,
  kTcpListen,
  kTcpClosing,
  kTcpNewSynReceived,  // before the listener has made a socket of it
};

// One socket as the kernel lists it. Numbers are Linux's.
struct DiagSocket {
  uint32_t inode = 0;
  SocketSource source = SocketSource::tcp4;
  uint8_t state = 0;       // a TcpState
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

// Lists the TCP sockets of both Internet families that have an inode, with the attributes
// `extensions` (bits 1 << (INET_DIAG_* - 1)): calls `visit(payload)` for each, where false says
// that the payload is malformed, and `forget` when all are to be visited once more. False if the
// kernel does not list them, or not within a second.
bool listTcpSockets(NetlinkConnection &kernel, uint8_t extensions,
                    const std::function<bool(Span payload)> &visit,
                    const std::function<void()> &forget);

// Lists sockets of this network namespace. Not thread-safe.
class SockDiag {
 public:
  // Appends all sockets of one kind. False, with nothing appended, if the kernel does not list that
  // kind (asked only once then: each try makes it look for a module) or did not answer within a
  // second.
  bool dump(SocketSource source, std::vector<DiagSocket> &sockets, std::string &names);
  // The same of both kinds of TCP.
  bool dumpTcp(std::vector<DiagSocket> &sockets);

 private:
  NetlinkConnection kernel_{NETLINK_SOCK_DIAG};
  std::bitset<kSocketSources> missing_;
};

}  // namespace host::linux_machine
