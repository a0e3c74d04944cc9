#include "host/linux/procfs.h"
#include "host/darwin/errors.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace host::linux_machine {

static constexpr size_t kFirstBuffer = 16384;
static constexpr size_t kDirectoryBuffer = 32768;

Errno darwinError(int linuxErrno) {
  switch (linuxErrno) {
    case EPERM:
    case EACCES:
      return darwin::DARWIN_EPERM;
    case ENOENT:
      return darwin::DARWIN_ENOENT;
    case ESRCH:
      return darwin::DARWIN_ESRCH;
    case EBADF:
      return darwin::DARWIN_EBADF;
    case ENOMEM:
      return darwin::DARWIN_ENOMEM;
    case EBUSY:
      return darwin::DARWIN_EBUSY;
    case EINVAL:
      return darwin::DARWIN_EINVAL;
    case EROFS:
      return darwin::DARWIN_EROFS;
    case ENOSYS:
    case EOPNOTSUPP:
      return darwin::DARWIN_ENOTSUP;
    default:
      return darwin::DARWIN_EIO;
  }
}

FileHandle &FileHandle::operator=(FileHandle &&other) noexcept {
  if (this != &other) {
    close();
    descriptor_ = std::exchange(other.descriptor_, -1);
  }
  return *this;
}

void FileHandle::close() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

FileHandle openDirectory(int directory, const char *name) {
  return FileHandle(openat(directory, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

FileHandle openStartingPoint(int directory, const char *name) {
  return FileHandle(openat(directory, name, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

Errno writeFile(int directory, const char *name, std::string_view text) {
  const FileHandle file(openat(directory, name, O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC));
  if (!file.isOpen()) return darwinError(errno);
  ssize_t written = -1;
  do {
    written = ::write(file.get(), text.data(), text.size());
  } while (written < 0 && errno == EINTR);
  if (written < 0) return darwinError(errno);
  return static_cast<size_t>(written) == text.size() ? kAnswered : darwin::DARWIN_EIO;
}

Errno FileReader::readRecord(int directory, const char *name, std::string_view &text) {
  return read(directory, name, false, text);
}

Errno FileReader::readRecord(const FileHandle &file, std::string_view &text) {
  if (buffer_.empty()) buffer_.resize(kFirstBuffer);
  for (;;) {
    const ssize_t taken = pread(file.get(), buffer_.data(), buffer_.size(), 0);
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) return darwinError(errno);
    text = std::string_view(buffer_.data(), static_cast<size_t>(taken));
    if (text.size() < buffer_.size()) return kAnswered;
    if (buffer_.size() >= kLargest) return darwin::DARWIN_EOVERFLOW;
    buffer_.resize(buffer_.size() * 2);
  }
}

Errno FileReader::readList(int directory, const char *name, std::string_view &text) {
  return read(directory, name, true, text);
}

Errno FileReader::readBeginning(int directory, const char *name, size_t most,
                                std::string_view &text) {
  FileHandle file(openat(directory, name, O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) return darwinError(errno);
  if (buffer_.size() < most) buffer_.resize(most);
  size_t filled = 0;
  while (filled < most) {
    ssize_t taken = ::read(file.get(), buffer_.data() + filled, most - filled);
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) return darwinError(errno);
    if (taken == 0) break;
    filled += static_cast<size_t>(taken);
  }
  text = std::string_view(buffer_.data(), filled);
  return kAnswered;
}

Errno FileReader::read(int directory, const char *name, bool pieces, std::string_view &text) {
  FileHandle file(openat(directory, name, O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) return darwinError(errno);
  if (buffer_.empty()) buffer_.resize(kFirstBuffer);

  size_t filled = 0;
  for (;;) {
    if (filled == buffer_.size()) {
      if (buffer_.size() >= kLargest) return darwin::DARWIN_EOVERFLOW;
      buffer_.resize(buffer_.size() * 2);
    }
    ssize_t taken = ::read(file.get(), buffer_.data() + filled, buffer_.size() - filled);
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) return darwinError(errno);
    filled += static_cast<size_t>(taken);
    if (taken == 0 || (!pieces && filled < buffer_.size())) break;
  }
  text = std::string_view(buffer_.data(), filled);
  return kAnswered;
}

Errno DirectoryReader::rewind(int directory) {
  if (buffer_.empty()) buffer_.resize(kDirectoryBuffer);
  filled_ = 0;
  position_ = 0;
  return lseek(directory, 0, SEEK_SET) < 0 ? darwinError(errno) : kAnswered;
}

Errno DirectoryReader::next(int directory, Entry &entry, bool &end) {
  if (position_ == filled_) {
    ssize_t taken = getdents64(directory, buffer_.data(), buffer_.size());
    if (taken < 0) return darwinError(errno);
    end = taken == 0;
    if (end) return kAnswered;
    filled_ = static_cast<size_t>(taken);
    position_ = 0;
  }
  // The kernel aligns entries to 8 bytes, as the buffer is; fields are copied out all the same.
  const char *raw = buffer_.data() + position_;
  unsigned short length = 0;
  std::memcpy(&length, raw + offsetof(dirent64, d_reclen), sizeof length);
  if (length <= offsetof(dirent64, d_name) || length > filled_ - position_) {
    return darwin::DARWIN_EIO;
  }
  entry.name = raw + offsetof(dirent64, d_name);
  entry.isDirectory = raw[offsetof(dirent64, d_type)] == DT_DIR;
  position_ += length;
  return kAnswered;
}

Errno DirectoryReader::readNumbers(int directory, std::vector<int32_t> &numbers) {
  return readNames(directory, [&numbers](const char *name, bool) {
    int32_t number = 0;
    if (name[0] >= '1' && name[0] <= '9' && parseNumber(std::string_view(name), number)) {
      numbers.push_back(number);
    }
  });
}

bool parseAddress(std::string_view text, uint64_t &value) {
  return text.starts_with("0x") && parseNumber(text.substr(2), value, 16);
}

bool TextCursor::line(std::string_view &line) {
  size_t end = rest_.find('\n');
  if (end == std::string_view::npos) return false;
  line = rest_.substr(0, end);
  rest_.remove_prefix(end + 1);
  return true;
}

bool TextCursor::word(std::string_view &word) {
  auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\n'; };
  size_t start = 0;
  while (start < rest_.size() && isBlank(rest_[start])) start++;
  size_t end = start;
  while (end < rest_.size() && !isBlank(rest_[end])) end++;
  if (end == start) return false;
  word = rest_.substr(start, end - start);
  rest_.remove_prefix(end);
  return true;
}

bool TextCursor::skipWords(int count) {
  std::string_view ignored;
  for (int i = 0; i < count; i++) {
    if (!word(ignored)) return false;
  }
  return true;
}

}  // namespace host::linux_machine
