// Where processes have files mapped, from /proc/PID/maps. Knows nothing of what a mapping is used
// for.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "host/errno.h"

namespace host::linux_machine {

// A file by the file system that it stands in (as makedev() numbers it) and its number there.
struct MappedFile {
  uint64_t device;
  uint64_t inode;
  uint64_t address;
};

// Not thread-safe.
class MappedFiles {
 public:
  // The lowest address that the process has the file mapped at; 0 when it has none, or may not be
  // looked into. `processDirectory` is an open directory descriptor of /proc/PID. A reading answers
  // further questions about the same process for some tens of milliseconds, or ten times as long as
  // it took.
  uint64_t addressOf(int processDirectory, uint64_t device, uint64_t inode);

 private:
  using Clock = std::chrono::steady_clock;

  bool isReadingOf(uint64_t process) const;
  Errno read(int processDirectory);

  uint64_t process_ = 0;  // which /proc/PID was read: the directory's inode; 0 for none
  Clock::time_point readAt_;
  Clock::duration duration_{};
  std::vector<MappedFile> files_;  // ascending
};

}  // namespace host::linux_machine
