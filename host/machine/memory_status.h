// Questions about how short the machine is of memory, and which processes would go first (jetsam).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "darwin/memorystatus.h"
#include "host/errno.h"

namespace host {

// Where a process is to stand in the list.
struct MemoryStatusPlace {
  std::optional<int32_t> band;  // one that the kernel has; nothing: its default one
  bool isFirst = false;         // of its band, else the last
  uint64_t userData = 0;
};

class MemoryStatusQuestions {
 public:
  // Lowest band first.
  virtual Errno memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &) {
    return darwin::DARWIN_ENOTSUP;
  }
  // About one process, which is not 0: DARWIN_ESRCH, DARWIN_EPERM for one of the kernel's own,
  // DARWIN_EBUSY for one that is ending.
  virtual Errno setMemoryStatusPlace(pid_t, const MemoryStatusPlace &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno memoryLimits(pid_t, darwin::memorystatus_memlimit_properties &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno setMemoryLimits(pid_t, const darwin::memorystatus_memlimit_properties &) {
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
