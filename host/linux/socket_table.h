// The machine's sockets by inode, in Darwin's structures. Owns when the kernel's tables are read:
// once per pass where they are needed, and again once the reading is old, or for a socket that none
// of them had. Not thread-safe.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "darwin/proc_info.h"
#include "host/linux/sock_diag.h"

namespace host::linux_machine {

class SocketTable {
 public:
  // Appends sockets and their names.
  using Dump = std::function<void(std::vector<DiagSocket> &, std::string &)>;
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  // Reads the sockets of this network namespace.
  SocketTable();
  // Each of `dumps` is asked only for what those before it did not have.
  SocketTable(std::vector<Dump> dumps, Clock clock);
  SocketTable(const SocketTable &) = delete;
  SocketTable &operator=(const SocketTable &) = delete;

  // The next question reads the tables anew.
  void beginPass();

  // Fills all that depends on the socket itself: everything of `info` but soi_stat. False, with
  // only soi_so set, if the kernel does not list the socket.
  bool describe(uint64_t inode, darwin::socket_info &info);

 private:
  struct Reading {
    Dump dump;
    bool isCurrent = false;
    std::chrono::steady_clock::time_point readAt;
    std::chrono::steady_clock::duration duration{};
    std::vector<DiagSocket> sockets;  // by inode
    std::string names;

    const DiagSocket *find(uint64_t inode) const;
    std::string_view nameOf(const DiagSocket &socket) const;
  };

  void read(Reading &reading);
  bool isOlderThan(const Reading &reading, std::chrono::steady_clock::duration age) const;
  static void fill(const Reading &reading, const DiagSocket &socket, darwin::socket_info &info);

  Clock clock_;
  std::vector<Reading> readings_;
};

// Append the sockets of the sources that are in use in the calling thread's network namespace,
// which has to be that of `kernel`: those within the machine, and those of the Internet, for which
// the kernel walks a large table.
void dumpLocalSockets(SockDiag &kernel, std::vector<DiagSocket> &sockets, std::string &names);
void dumpInternetSockets(SockDiag &kernel, std::vector<DiagSocket> &sockets, std::string &names);

// Whether the kernel lists the sockets of a protocol, by the name that it has there ("TCPv6").
bool isListedProtocol(std::string_view name);

// Fills type, protocol, family and kind of a socket that the kernel does not list from the name of
// its protocol: of one that it would list, as it is before it has an address. All others are
// control sockets of that name.
void describeUnlisted(std::string_view protocolName, darwin::socket_info &info);

// TSI_S_* of a state that Linux numbers as TCP_*.
int32_t tcpState(uint8_t state);

// Whether a table like /proc/net/protocols counts sockets of a protocol of that name ("MPTCP"),
// also where the table can't be made out.
bool countsSockets(std::string_view protocols, std::string_view name);

}  // namespace host::linux_machine
