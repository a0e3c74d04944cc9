// Questions about how short the machine is of memory, and which processes would go first (jetsam).
#pragma once

#include <cstdint>
#include <vector>

#include "darwin/memorystatus.h"
#include "host/errno.h"

namespace host {

class MemoryStatusQuestions {
 public:
  // Lowest band first.
  virtual Errno memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &) {
    return darwin::DARWIN_ENOTSUP;
  }
  // Percentage of memory still available.
  virtual Errno memoryStatusLevel(unsigned int &) { return darwin::DARWIN_ENOTSUP; }
  // Waits for memory pressure if `waits` is set (DARWIN_EINTR when a signal handler ran meanwhile).
  // Then: pages wanted now, and pages reclaimed in the last `seconds`, or as far back as is known.
  virtual Errno memoryPressure(bool /*waits*/, uint32_t /*seconds*/, uint32_t & /*wanted*/,
                               uint32_t & /*reclaimed*/) {
    return darwin::DARWIN_ENOTSUP;
  }

 protected:
  ~MemoryStatusQuestions() = default;
};

MemoryStatusQuestions &memoryStatus();

}  // namespace host
