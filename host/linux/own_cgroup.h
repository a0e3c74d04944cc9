// The control group that a process has to itself: a memory limit that is set there is its own.
#pragma once

#include <cstdint>
#include <vector>

#include "host/linux/cgroup_limits.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

class OwnCgroup {
 public:
  // Finds the group that holds `pid` alone and has no groups below it, in one of the hierarchies
  // mounted there that limit memory. DARWIN_ENOTSUP when there is none. The group stays the same
  // one, even if its name gets another group meanwhile; that nobody joins it can't be known.
  Errno find(const std::vector<CgroupMount> &mounts, int32_t pid);

  // Of the group that was found, in bytes; kNoMemoryLimit for none.
  Errno readLimit(uint64_t &limit);
  Errno writeLimit(uint64_t limit);

 private:
  bool search(FileHandle group, int32_t pid, int depth);

  FileReader reader_;
  FileHandle group_;
  bool isVersion1_ = false;
};

}  // namespace host::linux_machine
