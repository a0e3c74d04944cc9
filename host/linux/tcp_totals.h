// What each TCP socket of this network namespace has received and sent, and which process it
// belongs to. Owns when the kernel is asked: at most once a second. Not thread-safe.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/linux/netlink.h"
#include "host/linux/procfs.h"
#include "host/machine/networks.h"

namespace host::linux_machine {

// A socket as the kernel lists it. Numbers are Linux's.
struct TcpSocket {
  uint64_t cookie = 0;  // names it for as long as the system runs
  uint32_t inode = 0;
  uint8_t family = 0;      // AF_*
  uint8_t state = 0;       // TCP_*
  uint16_t localPort = 0;  // host order; an IPv4 address fills the first four bytes
  uint16_t remotePort = 0;
  std::array<uint8_t, 16> localAddress{};
  std::array<uint8_t, 16> remoteAddress{};
  uint32_t interfaceIndex = 0;
  uint64_t receivedPackets = 0;
  uint64_t receivedBytes = 0;
  uint64_t sentPackets = 0;
  uint64_t sentBytes = 0;
};

// Takes the payload of one message apart. Totals that an older kernel does not send are 0. False
// for a payload that is malformed.
bool parseTcpSocket(Span payload, TcpSocket &socket);

// The process that holds a socket, by the socket's inode.
using SocketOwners = std::unordered_map<uint64_t, int32_t>;

// Whether all sockets of a process are among the known owners'.
using HasKnownSockets = std::function<bool(int32_t pid)>;

// Looks for the inodes in `wanted` among the descriptors of all processes that the caller may look
// at and `isKnown` is not true of, newest first, and puts in the PIDs of those that hold them; the
// others stay as they are.
void searchOwners(SocketOwners &wanted, const HasKnownSockets &isKnown);

// What a process is called; empty for one that is gone.
std::string processName(int32_t pid);

class TcpTotals {
 public:
  // What the kernel is asked, to be replaced by tests.
  struct Kernel {
    std::function<bool(std::vector<TcpSocket> &)> dump;  // false: it does not answer
    std::function<void(SocketOwners &, const HasKnownSockets &)> search;
    std::function<std::string(int32_t)> name;
    std::function<std::chrono::steady_clock::time_point()> clock;
  };

  TcpTotals();
  explicit TcpTotals(Kernel kernel);

  // Replaces `sources` by the sockets that have an owner. `owners` are those known already, of all
  // processes that `isKnown` is true of: only for a socket that is not among them for a while the
  // descriptors of the other processes are searched, ever more seldom as long as that is in vain.
  // DARWIN_ENOTSUP when the kernel does not list TCP sockets.
  Errno list(const SocketOwners &owners, const HasKnownSockets &isKnown,
             std::vector<NetworkSource> &sources);

 private:
  using Time = std::chrono::steady_clock::time_point;
  struct Unowned {
    Time dueAt;                    // when to search for its owner
    int32_t pid = 0;               // as found by the last search
    std::chrono::seconds wait{0};  // before the last search
  };

  bool read(Time now);
  void findOwners(const SocketOwners &owners, const HasKnownSockets &isKnown, Time now);
  const std::string &nameOf(int32_t pid, std::unordered_map<int32_t, std::string> &names);

  Kernel kernel_;
  bool hasRead_ = false;
  Time readAt_;
  std::vector<TcpSocket> sockets_;
  std::unordered_map<uint64_t, Unowned> unowned_;  // by inode
  std::unordered_map<int32_t, std::string> names_;
};

}  // namespace host::linux_machine
