// The files of processes and threads that every pass reads, which stay open from one pass to the
// next: to find and open them costs the kernel more than to read them. They belong to the process
// or thread that they were opened for: once that has ended, reading them fails with DARWIN_ESRCH,
// whoever has its number then.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "host/linux/procfs.h"

namespace host::linux_machine {

// How many descriptors may be kept open, of those that this program may have. Raises its limit as
// far as it may.
size_t descriptorsToKeep();

// How many are. Outlives them.
class DescriptorBudget {
 public:
  explicit DescriptorBudget(size_t most) : most_(most) {}
  DescriptorBudget(const DescriptorBudget &) = delete;
  DescriptorBudget &operator=(const DescriptorBudget &) = delete;

  bool hasRoomFor(size_t files) const { return most_ - open_ >= files; }
  size_t open() const { return open_; }
  // Whether this program's descriptor `fd` is one of them.
  bool has(int fd) const {
    return static_cast<size_t>(fd) < isOpen_.size() && isOpen_[static_cast<size_t>(fd)];
  }

 private:
  friend class KeptFile;
  void set(int fd, bool isOpen);

  const size_t most_;
  size_t open_ = 0;
  std::vector<bool> isOpen_;  // by descriptor
};

class KeptFile {
 public:
  KeptFile() = default;
  // Opens the file, for which there is room. Not open if it can't be.
  KeptFile(DescriptorBudget &budget, int directory, const char *name);
  KeptFile(KeptFile &&other) noexcept
      : budget_(std::exchange(other.budget_, nullptr)), file_(std::move(other.file_)) {}
  KeptFile &operator=(KeptFile &&other) noexcept;
  ~KeptFile() { close(); }

  bool isOpen() const { return file_.isOpen(); }
  const FileHandle &handle() const { return file_; }

 private:
  void close();

  DescriptorBudget *budget_ = nullptr;  // null while it is not open
  FileHandle file_;
};

// All open, or none.
struct KeptFiles {
  static constexpr size_t kCount = 3;

  KeptFile stat;
  KeptFile schedule;  // schedstat
  KeptFile score;     // oom_score_adj

  bool areOpen() const { return stat.isOpen(); }
};

struct KeptThreadFiles {
  static constexpr size_t kCount = 2;

  KeptFile stat;
  KeptFile schedule;

  bool areOpen() const { return stat.isOpen(); }
};

// Opens them in an open directory of a process, or of a thread whose directory is below `tasks`.
// None is open if one of them can't be, or there is no room for all.
KeptFiles openKeptFiles(DescriptorBudget &budget, int processDirectory);
KeptThreadFiles openKeptThreadFiles(DescriptorBudget &budget, int tasks, int32_t thread);

}  // namespace host::linux_machine
