// The IDs of a device's threads: one has never belonged to another thread before.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "host/simulator/device.h"

namespace host::simulator {

class ThreadIDs {
 public:
  // Keeps an ID for a thread; false for one that is taken already, or 0.
  bool claim(uint64_t id);
  // Gives an ID to each thread without one.
  void complete(std::vector<Thread> &threads);
  // The same for new threads that may ask for IDs: they get others where those are taken.
  void give(std::vector<Thread> &threads);

 private:
  static constexpr uint64_t kBeforeFirst = 0x100;

  std::unordered_set<uint64_t> claimed_;
  uint64_t last_ = kBeforeFirst;  // of those that were chosen here
};

}  // namespace host::simulator
