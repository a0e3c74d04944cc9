// The sockets of other network namespaces than this program's own, such as containers have. Owns
// which of them are looked at, and holds none of them open. Not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "darwin/proc_info.h"
#include "host/linux/sock_diag.h"
#include "host/linux/socket_table.h"

namespace host::linux_machine {

// A network namespace, as its file in /proc has it. All zero: not known.
struct NetworkKey {
  uint64_t device = 0;
  uint64_t inode = 0;
  bool isKnown() const { return inode != 0; }
  bool operator==(const NetworkKey &) const = default;
};

// That of the process whose /proc/PID is open as `processDirectory`; not known where the caller may
// not look.
NetworkKey networkOf(int processDirectory);

class OtherNetworks {
 public:
  // Between two passes no more namespaces than this are looked into: each takes a look of its own.
  static constexpr size_t kMost = 16;

  // Appends the sockets of the network namespace that a process is in. False where the caller may
  // not enter it, as only root may.
  using Dump = std::function<bool(int processDirectory, std::vector<DiagSocket> &, std::string &)>;

  OtherNetworks();
  explicit OtherNetworks(Dump dump);
  OtherNetworks(const OtherNetworks &) = delete;
  OtherNetworks &operator=(const OtherNetworks &) = delete;
  ~OtherNetworks();

  // Forgets all of them.
  void beginPass();

  // As SocketTable::describe, by the sockets of `network`, which the process is in.
  bool describe(int processDirectory, const NetworkKey &network, uint64_t inode,
                darwin::socket_info &info);
  // Whether it was entered in this pass: a socket that is not listed then is not bound.
  bool isListed(const NetworkKey &network) const;

 private:
  struct Network;

  Network *find(const NetworkKey &key);

  Dump dump_;
  std::vector<std::unique_ptr<Network>> networks_;
};

}  // namespace host::linux_machine
