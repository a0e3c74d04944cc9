#include "host/linux/mapped_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <string>
#include <tuple>

#include "host/linux/procfs.h"

namespace host::linux_machine {

static constexpr std::chrono::milliseconds kFreshFor(30);
static constexpr int kUseForDurations = 10;
static constexpr size_t kPiece = 65536;

// Takes a number and the character after it off the front.
template <typename Number>
static bool takeNumber(std::string_view &text, int base, char after, Number &number) {
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop == end || *stop != after) return false;
  text.remove_prefix(static_cast<size_t>(stop - text.data()) + 1);
  return true;
}

// "7f0000000000-7f0000001000 rw-s 00000000 00:01 1234   /memfd:name (deleted)"
bool parseMappedFile(std::string_view line, MappedFile &file) {
  uint64_t start = 0;
  uint64_t end = 0;
  uint64_t offset = 0;
  unsigned int majorNumber = 0;
  unsigned int minorNumber = 0;
  if (!takeNumber(line, 16, '-', start) || !takeNumber(line, 16, ' ', end)) return false;
  const size_t rightsEnd = line.find(' ');
  if (rightsEnd == std::string_view::npos) return false;
  line.remove_prefix(rightsEnd + 1);
  if (!takeNumber(line, 16, ' ', offset) || !takeNumber(line, 16, ':', majorNumber) ||
      !takeNumber(line, 16, ' ', minorNumber)) {
    return false;
  }
  uint64_t inode = 0;
  const auto read = std::from_chars(line.data(), line.data() + line.size(), inode);
  if (read.ec != std::errc() || inode == 0) return false;
  file = {makedev(majorNumber, minorNumber), inode, start};
  return true;
}

static bool isBefore(const MappedFile &a, const MappedFile &b) {
  return std::tie(a.device, a.inode, a.address) < std::tie(b.device, b.inode, b.address);
}

bool MappedFiles::isReadingOf(uint64_t process) const {
  const Clock::duration fresh = std::max<Clock::duration>(kFreshFor, duration_ * kUseForDurations);
  return process != 0 && process == process_ && Clock::now() - readAt_ < fresh;
}

void MappedFiles::addLines(std::string_view text) {
  TextCursor lines(text);
  std::string_view line;
  MappedFile file{};
  while (lines.line(line)) {
    if (parseMappedFile(line, file)) files_.push_back(file);
  }
}

Errno MappedFiles::read(int processDirectory) {
  const FileHandle maps(openat(processDirectory, "maps", O_RDONLY | O_CLOEXEC));
  if (!maps.isOpen()) return darwinError(errno);
  files_.clear();
  std::string text;
  size_t kept = 0;  // the beginning of a line whose end is still to come
  for (;;) {
    text.resize(kept + kPiece);
    const ssize_t taken = ::read(maps.get(), text.data() + kept, kPiece);
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) return darwinError(errno);
    if (taken == 0) break;
    text.resize(kept + static_cast<size_t>(taken));
    const size_t lastEnd = text.rfind('\n');
    const size_t whole = lastEnd == std::string::npos ? 0 : lastEnd + 1;
    addLines(std::string_view(text).substr(0, whole));
    text.erase(0, whole);
    kept = text.size();
  }
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
