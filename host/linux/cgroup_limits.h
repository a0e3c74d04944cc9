// The memory limits that control groups put on processes: a limit holds for a group and all groups
// below it. Both versions of the hierarchy are read, in one walk that looks only at the processes
// of limited groups.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/linux/procfs.h"

namespace host::linux_machine {

// Where a hierarchy is mounted, and the names its limit has.
struct CgroupMount {
  std::string path;
  bool isVersion1;
  bool operator==(const CgroupMount &) const = default;
};

// The hierarchies in a mount table (/proc/self/mountinfo) that may limit memory, in its order.
std::vector<CgroupMount> parseCgroupMounts(std::string_view mountTable);

// Those of this system; none when its mount table can't be read.
std::vector<CgroupMount> readCgroupMounts();

// The same, read anew only when something was mounted or unmounted since.
class CgroupMounts {
 public:
  const std::vector<CgroupMount> &read();

 private:
  bool hasChanged();

  FileHandle watch_;
  std::vector<CgroupMount> mounts_;
};

// The directory of a hierarchy; not open for one that limits no memory.
FileHandle openHierarchy(const CgroupMount &mount);

// The file in a group's directory that holds its limit.
const char *memoryLimitFile(bool isVersion1);

// A tree deeper than this has no reason to be: what is below has the limit of what is above.
inline constexpr int kDeepestCgroup = 64;

inline constexpr uint64_t kNoMemoryLimit = UINT64_MAX;

// The text of memory.max or memory.limit_in_bytes; kNoMemoryLimit for "max", for version 1's
// largest number and for anything that is not a limit.
uint64_t parseMemoryLimit(std::string_view text);

class CgroupLimits {
 public:
  // Reads all limits of this system, or of the hierarchies mounted there, anew.
  void read();
  void read(const std::vector<CgroupMount> &mounts);
  // In bytes, or kNoMemoryLimit.
  uint64_t of(int32_t pid) const;

 private:
  void walk(int group, bool isVersion1, uint64_t limit, int depth);
  void addProcesses(int group, uint64_t limit);

  CgroupMounts mounts_;
  FileReader reader_;
  DirectoryReader lister_;
  std::unordered_map<int32_t, uint64_t> limits_;
};

}  // namespace host::linux_machine
