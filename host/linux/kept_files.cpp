#include "host/linux/kept_files.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <string>
#include <utility>

namespace host::linux_machine {

// The kernel needs some 5 KB for each.
static constexpr size_t kMostKept = 16384;

void DescriptorBudget::set(int fd, bool isOpen) {
  const size_t number = static_cast<size_t>(fd);
  if (number >= isOpen_.size()) isOpen_.resize(2 * number + 1);
  isOpen_[number] = isOpen;
  isOpen ? open_++ : open_--;
}

KeptFile::KeptFile(DescriptorBudget &budget, int directory, const char *name)
    : file_(openat(directory, name, O_RDONLY | O_CLOEXEC)) {
  if (!file_.isOpen()) return;
  budget.set(file_.get(), true);
  budget_ = &budget;
}

KeptFile &KeptFile::operator=(KeptFile &&other) noexcept {
  if (this != &other) {
    close();
    budget_ = std::exchange(other.budget_, nullptr);
    file_ = std::move(other.file_);
  }
  return *this;
}

void KeptFile::close() {
  if (budget_ == nullptr) return;
  std::exchange(budget_, nullptr)->set(file_.get(), false);
  file_.close();
}

KeptFiles openKeptFiles(DescriptorBudget &budget, int processDirectory) {
  if (!budget.hasRoomFor(KeptFiles::kCount)) return {};
  KeptFiles files{{budget, processDirectory, "stat"},
                  {budget, processDirectory, "schedstat"},
                  {budget, processDirectory, "oom_score_adj"}};
  const bool hasAll = files.stat.isOpen() && files.schedule.isOpen() && files.score.isOpen();
  return hasAll ? std::move(files) : KeptFiles{};
}

KeptThreadFiles openKeptThreadFiles(DescriptorBudget &budget, int tasks, int32_t thread) {
  if (!budget.hasRoomFor(KeptThreadFiles::kCount)) return {};
  const std::string directory = std::to_string(thread);
  KeptThreadFiles files{{budget, tasks, (directory + "/stat").c_str()},
                        {budget, tasks, (directory + "/schedstat").c_str()}};
  const bool hasAll = files.stat.isOpen() && files.schedule.isOpen();
  return hasAll ? std::move(files) : KeptThreadFiles{};
}

// The kernel doubles a table of descriptors that has become too small, and where threads share it
// waits each time until all of them have noticed. Before there are any that costs nothing.
static void enlargeTable(size_t descriptors) {
  constexpr size_t kOthers = 256;
  const int number = saturate<int>(descriptors + kOthers);
  const FileHandle any = openStartingPoint(AT_FDCWD, "/");
  FileHandle(fcntl(any.get(), F_DUPFD_CLOEXEC, number)).close();
}

size_t descriptorsToKeep() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  const rlimit raised = {limit.rlim_max, limit.rlim_max};
  if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  // A quarter is left for everything else.
  const size_t most = std::min<rlim_t>(limit.rlim_cur / 4 * 3, kMostKept);
  struct sysinfo system {};
  if (sysinfo(&system) == 0) {
    enlargeTable(std::min(system.procs * KeptFiles::kCount, most));
  }
  return most;
}

}  // namespace host::linux_machine
