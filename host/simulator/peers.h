// Which sockets and pipe ends are connected. A descriptor may name the other end by its handle; the
// other end then knows of it too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/simulator/device.h"

namespace host::simulator {

class Peers {
 public:
  // Takes note of an open descriptor, and gives it a handle if it needs one and has none.
  void add(Descriptor &descriptor);
  void remove(const Descriptor &descriptor);

  // The handle of the other end; 0 where there is none, or none any more.
  uint64_t peerOf(const Descriptor &descriptor) const;
  // The path that the socket with this handle is bound to; empty where that is none.
  const std::string &pathOf(uint64_t handle) const;

 private:
  struct End {
    size_t holders = 0;  // descriptors with this handle: forks share it
    uint64_t peer = 0;   // as the descriptor itself names it
    std::string path;
  };

  // Only those that name a peer or were given a handle, so that they can be named.
  std::unordered_map<uint64_t, End> ends_;
  // By a handle: those that name it as their peer, in the order in which they came.
  std::unordered_map<uint64_t, std::vector<uint64_t>> namers_;
  uint64_t lastHandle_ = 0x8000000000000000;
};

}  // namespace host::simulator
