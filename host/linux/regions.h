// The regions of a process as Darwin tells them: one reading of its map, and what each mapping is
// there for, which Linux doesn't say and which is seen from its name, its neighbours and the stack
// pointers of waiting threads. Who may ask is not judged here.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "darwin/proc_info.h"
#include "host/errno.h"
#include "host/linux/memory_map.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

// Tells a process from any other, also from a later one with its pid.
struct ProcessKey {
  pid_t pid;
  uint64_t startTicks;
  bool operator==(const ProcessKey &) const = default;
};

// Keeps the last reading, for whoever walks through a process: a walk upward sees one picture, and
// costs one reading however many regions there are. Not thread-safe.
class Regions {
 public:
  // A reading that nobody asked for so long is not used again.
  explicit Regions(std::chrono::milliseconds keptFor = std::chrono::seconds(5))
      : keptFor_(keptFor) {}

  // The region of `process` that contains `address`, or the next one above it; DARWIN_EINVAL past
  // the last, which ends a walk. `processDirectory` is an open descriptor of its /proc/PID. The map
  // is read anew for address 0, for one below the last region and for another process.
  Errno find(int processDirectory, const ProcessKey &process, uint64_t address,
             darwin::proc_regionwithpathinfo &info);

 private:
  using Clock = std::chrono::steady_clock;

  struct Region {
    uint64_t start;
    uint64_t end;
    uint64_t offset;
    uint64_t device;
    uint64_t inode;
    uint32_t protection;
    uint32_t most;  // that it may be raised to, unless a shared file's opening decides
    uint32_t tag;
    uint32_t path;  // its place in paths_; 0 for an anonymous one
    bool isShared;
  };

  bool canAnswer(const ProcessKey &process, uint64_t address) const;
  Errno read(int processDirectory);
  void release();
  void add(const Mapping &mapping);
  uint32_t keepPath(std::string_view name);
  Region *regionAt(uint64_t address);
  bool isAnonymous(const Region &region) const;
  void tagStacks(int processDirectory);
  void tagGuards();
  void tagLibraries(int processDirectory);
  uint32_t shareMode(const Region &region) const;
  uint32_t mostProtection(int processDirectory, const Region &region) const;
  void fill(int processDirectory, const Region &region,
            darwin::proc_regionwithpathinfo &info) const;

  const std::chrono::milliseconds keptFor_;
  FileReader reader_;
  DirectoryReader lister_;

  ProcessKey process_{};  // pid 0: there is no reading
  uint64_t asked_ = 0;
  Clock::time_point askedAt_;
  std::vector<Region> regions_;  // ascending, none overlaps another
  std::vector<std::string> paths_;
};

}  // namespace host::linux_machine
