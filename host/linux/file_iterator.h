// A look at all that a task has open at once.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "host/linux/kernel_iterator.h"

namespace host::linux_machine {

// A descriptor, and the open file and inode behind it, in the kernel's own terms.
struct FileRecord {
  int64_t position;
  uint64_t inode;
  int64_t size;
  uint64_t blocks;  // of 512 bytes
  int64_t accessSeconds;
  int64_t modificationSeconds;
  int64_t changeSeconds;
  uint32_t accessNanoseconds;
  uint32_t modificationNanoseconds;
  uint32_t changeNanoseconds;
  uint32_t device;  // of its file system: 12 bits of major and 20 of minor number
  uint32_t links;
  uint32_t user;
  uint32_t group;
  uint32_t flags;  // O_*, without O_CLOEXEC
  int32_t descriptor;
  uint16_t mode;
  uint8_t blockBits;  // the binary logarithm of its block size
  uint8_t closesOnExec;
  char name[31];    // its last one, cut off at the end
  uint8_t isTaken;  // for whoever answers by it; 0 from the kernel
};

class FileIterator {
 public:
  // As KernelIterator::load; not of kernels that can't look at a single task (before 6.1).
  static std::optional<FileIterator> load(const KernelTypes &types);

  // Fills `files` with what a task has open, ascending by descriptor, but `most` at most: nothing
  // for one that is gone. False, with no records, if the kernel can't give them now.
  bool read(int32_t task, size_t most, std::vector<FileRecord> &files) const;

 private:
  explicit FileIterator(KernelIterator files) : files_(std::move(files)) {}

  KernelIterator files_;
};

}  // namespace host::linux_machine
