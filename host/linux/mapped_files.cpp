#include "host/linux/mapped_files.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <tuple>

#include "host/linux/memory_map.h"

namespace host::linux_machine {

static constexpr std::chrono::milliseconds kFreshAtLeast(30);
static constexpr int kFreshForDurations = 10;

static bool isBefore(const MappedFile &a, const MappedFile &b) {
  return std::tie(a.device, a.inode, a.address) < std::tie(b.device, b.inode, b.address);
}

bool MappedFiles::isReadingOf(uint64_t process) const {
  const Clock::duration fresh =
      std::max<Clock::duration>(kFreshAtLeast, duration_ * kFreshForDurations);
  return process != 0 && process == process_ && Clock::now() - readAt_ < fresh;
}

Errno MappedFiles::read(int processDirectory) {
  files_.clear();
  const Errno error = readMemoryMap(processDirectory, [this](const Mapping &mapping) {
    if (mapping.inode == 0) return;
    files_.push_back(
        {makedev(mapping.majorNumber, mapping.minorNumber), mapping.inode, mapping.start});
  });
  if (error != kAnswered) return error;
  std::sort(files_.begin(), files_.end(), isBefore);
  return kAnswered;
}

uint64_t MappedFiles::addressOf(int processDirectory, uint64_t device, uint64_t inode) {
  struct stat process {};
  if (fstat(processDirectory, &process) != 0) return 0;
  if (!isReadingOf(process.st_ino)) {
    const Clock::time_point start = Clock::now();
    process_ = read(processDirectory) == kAnswered ? process.st_ino : 0;
    readAt_ = Clock::now();
    duration_ = readAt_ - start;
    if (process_ == 0) return 0;
  }
  const auto found =
      std::lower_bound(files_.begin(), files_.end(), MappedFile{device, inode, 0}, isBefore);
  const bool isMapped = found != files_.end() && found->device == device && found->inode == inode;
  return isMapped ? found->address : 0;
}

}  // namespace host::linux_machine
