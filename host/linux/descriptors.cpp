#include "host/linux/descriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/limits.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "darwin/file_flags.h"
#include "host/copy_text.h"
#include "host/darwin/errors.h"
#include "host/darwin/kqueue.h"
#include "host/darwin/proc_info.h"
#include "host/linux/liveness.h"
#include "host/linux/procfs.h"
#include "host/linux/signals.h"

namespace host::linux_machine {
namespace {

constexpr std::string_view kSharedMemory = "/dev/shm/";
constexpr std::string_view kAnonymousMemory = "/memfd:";
constexpr std::string_view kSocket = "socket:[";
constexpr std::string_view kPipe = "pipe:[";

// In place of the path that may not be known. No path looks so: they begin with "/" or a kind.
constexpr std::string_view kHidden = "(permission denied)";
// Of a descriptor of which only that it is there may be known.
constexpr int kNoNumber = -1;

// Position and flags stand at the beginning.
constexpr size_t kFileInfoSize = 256;
constexpr size_t kEventsSize = 1048576;
// A directory entry of /proc/PID/fd, for numbers of up to twelve digits.
constexpr size_t kEntrySize = 32;

// Darwin's types of a vnode.
enum VnodeType : int32_t {
  kNoType = 0,
  kRegular = 1,
  kDirectory = 2,
  kBlock = 3,
  kCharacter = 4,
  kLink = 5,
  kSocketFile = 6,
  kFifo = 7,
};

// "fd/7": the name of something of one descriptor below the process's directory.
struct EntryName {
  EntryName(const char *directory, int fd) { snprintf(text, sizeof(text), "%s/%d", directory, fd); }
  char text[24];
};

// Reads up to `limit` bytes. False, with errno set, if nothing could be read.
bool readText(int fd, size_t limit, std::string &text) {
  text.clear();
  char piece[4096];
  while (text.size() < limit) {
    const size_t room = std::min(sizeof(piece), limit - text.size());
    const ssize_t got = ::read(fd, piece, room);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && text.empty()) return false;
    if (got <= 0) break;
    text.append(piece, static_cast<size_t>(got));
    // The kernel makes these texts in one piece: a read that leaves room has reached its end.
    if (limit <= sizeof(piece) || static_cast<size_t>(got) < room) break;
  }
  return true;
}

// What a failed look below the process's directory means.
Errno failure(int error, int processDirectory) {
  switch (error) {
    case EACCES:
    case EPERM:
      // What is left of a zombie belongs to root.
      return isAlive(processDirectory) ? darwin::DARWIN_EPERM : darwin::DARWIN_ESRCH;
    case ENOENT:
    case ESRCH:
      return isAlive(processDirectory) ? darwin::DARWIN_EBADF : darwin::DARWIN_ESRCH;
    case ENOMEM:
      return darwin::DARWIN_ENOMEM;
    default:
      return darwin::DARWIN_EIO;
  }
}

// The number that follows "name" at the start of a line.
template <typename Number>
bool findNumber(std::string_view text, std::string_view name, int base, Number &number) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    if (line.starts_with(name)) return TextCursor(line.substr(name.size())).number(number, base);
    text.remove_prefix(std::min(line.size() + 1, text.size()));
  }
  return false;
}

// The number after "name" within a line.
template <typename Number>
bool findInLine(std::string_view line, std::string_view name, int base, Number &number) {
  const size_t at = line.find(name);
  return at != std::string_view::npos &&
         TextCursor(line.substr(at + name.size())).number(number, base);
}

uint32_t darwinOpenFlags(unsigned int flags) {
  uint32_t result = 0;
  if ((flags & O_PATH) == 0) {
    // The access modes are 0, 1 and 2; the two bits are one more than the mode.
    result = ((flags & O_ACCMODE) + 1) & (darwin::DARWIN_FREAD | darwin::DARWIN_FWRITE);
  }
  if ((flags & O_NONBLOCK) != 0) result |= darwin::DARWIN_O_NONBLOCK;
  if ((flags & O_APPEND) != 0) result |= darwin::DARWIN_O_APPEND;
  return result;
}

// `flags` are Linux's, with O_CLOEXEC.
void setOpenFlags(unsigned int flags, darwin::proc_fileinfo &info) {
  info.fi_openflags = darwinOpenFlags(flags);
  if ((flags & O_CLOEXEC) != 0) info.fi_status = darwin::PROC_FP_CLEXEC;
}

darwin::proc_fileinfo parseFileInfo(std::string_view text, uint32_t type) {
  darwin::proc_fileinfo info = {};
  unsigned int flags = 0;
  info.fi_type = static_cast<int32_t>(type);
  if (findNumber(text, "flags:", 8, flags)) setOpenFlags(flags, info);
  findNumber(text, "pos:", 10, info.fi_offset);
  return info;
}

// Eight bits of major and 24 of minor number, as Darwin packs them.
uint32_t darwinDevice(uint32_t majorNumber, uint32_t minorNumber) {
  return (majorNumber & 0xff) << 24 | (minorNumber & 0xffffff);
}

// Looks at the open file itself. Doesn't wait for a server that holds the file: what is known here
// is good enough, and a dead one must not hold up the whole listing. A file whose system refuses to
// tell is left all zero, for its descriptor is open nevertheless. `device` is the whole number of
// which `stat` has room for a part.
Errno lookAt(int processDirectory, int fd, darwin::vinfo_stat &stat, uint64_t &device) {
  const EntryName name("fd", fd);
  struct statx file;
  if (statx(processDirectory, name.text, AT_STATX_DONT_SYNC, STATX_BASIC_STATS | STATX_BTIME,
            &file) != 0) {
    const bool closed = errno == ENOENT || errno == ESRCH;
    return closed ? failure(errno, processDirectory) : kAnswered;
  }
  device = makedev(file.stx_dev_major, file.stx_dev_minor);
  stat.vst_dev = darwinDevice(file.stx_dev_major, file.stx_dev_minor);
  stat.vst_mode = file.stx_mode;
  stat.vst_nlink = static_cast<uint16_t>(std::min<uint32_t>(file.stx_nlink, UINT16_MAX));
  stat.vst_ino = file.stx_ino;
  stat.vst_uid = file.stx_uid;
  stat.vst_gid = file.stx_gid;
  stat.vst_atime = file.stx_atime.tv_sec;
  stat.vst_atimensec = file.stx_atime.tv_nsec;
  stat.vst_mtime = file.stx_mtime.tv_sec;
  stat.vst_mtimensec = file.stx_mtime.tv_nsec;
  stat.vst_ctime = file.stx_ctime.tv_sec;
  stat.vst_ctimensec = file.stx_ctime.tv_nsec;
  if ((file.stx_mask & STATX_BTIME) != 0) {
    stat.vst_birthtime = file.stx_btime.tv_sec;
    stat.vst_birthtimensec = file.stx_btime.tv_nsec;
  }
  stat.vst_size = static_cast<int64_t>(file.stx_size);
  stat.vst_blocks = static_cast<int64_t>(file.stx_blocks);
  stat.vst_blksize = static_cast<int32_t>(file.stx_blksize);
  stat.vst_rdev = darwinDevice(file.stx_rdev_major, file.stx_rdev_minor);
  return kAnswered;
}

Errno lookAt(int processDirectory, int fd, darwin::vinfo_stat &stat) {
  uint64_t device = 0;
  return lookAt(processDirectory, fd, stat, device);
}

uint64_t deviceOf(const FileRecord &file) {
  return makedev(file.device >> 20, file.device & 0xfffff);
}

// What lookAt() fills in, by what the kernel told of the file. Not for files whose systems have
// figures of their own: nothing but an inode stands behind sockets and pipes.
void fillStat(const FileRecord &file, darwin::vinfo_stat &stat) {
  const uint64_t device = deviceOf(file);
  stat.vst_dev = darwinDevice(major(device), minor(device));
  stat.vst_mode = file.mode;
  stat.vst_nlink = static_cast<uint16_t>(std::min<uint32_t>(file.links, UINT16_MAX));
  stat.vst_ino = file.inode;
  stat.vst_uid = file.user;
  stat.vst_gid = file.group;
  stat.vst_atime = file.accessSeconds;
  stat.vst_atimensec = file.accessNanoseconds;
  stat.vst_mtime = file.modificationSeconds;
  stat.vst_mtimensec = file.modificationNanoseconds;
  stat.vst_ctime = file.changeSeconds;
  stat.vst_ctimensec = file.changeNanoseconds;
  stat.vst_size = file.size;
  stat.vst_blocks = static_cast<int64_t>(file.blocks);
  stat.vst_blksize = int32_t{1} << std::min<int>(file.blockBits, 30);
}

darwin::proc_fileinfo fileInfoOf(const FileRecord &file, uint32_t type) {
  darwin::proc_fileinfo info = {};
  info.fi_type = static_cast<int32_t>(type);
  setOpenFlags(file.closesOnExec != 0 ? file.flags | O_CLOEXEC : file.flags, info);
  info.fi_offset = file.position;
  return info;
}

// The file system that an open file stands in; 0 if none was opened.
uint64_t deviceOf(const FileHandle &file) {
  struct stat stat;
  return file.get() >= 0 && fstat(file.get(), &stat) == 0 ? stat.st_dev : 0;
}

uint64_t deviceOfSockets() {
  return deviceOf(FileHandle(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)));
}

uint64_t deviceOfPipes() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return 0;
  const FileHandle writing(ends[1]);
  return deviceOf(FileHandle(ends[0]));
}

uint64_t deviceOfQueues() {
  return deviceOf(FileHandle(epoll_create1(EPOLL_CLOEXEC)));
}

int32_t vnodeType(uint16_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return kRegular;
    case S_IFDIR:
      return kDirectory;
    case S_IFBLK:
      return kBlock;
    case S_IFCHR:
      return kCharacter;
    case S_IFLNK:
      return kLink;
    case S_IFSOCK:
      return kSocketFile;
    case S_IFIFO:
      return kFifo;
    default:  // what has no file behind it
      return kNoType;
  }
}

// As it is shown. The kernel marks every anonymous memory as deleted, which never had a name to
// lose.
std::string_view sharedMemoryName(std::string_view link) {
  constexpr std::string_view kMark = " (deleted)";
  if (!link.starts_with(kAnonymousMemory)) return link.substr(kSharedMemory.size() - 1);
  if (link.ends_with(kMark)) link.remove_suffix(kMark.size());
  return link.substr(kAnonymousMemory.size());
}

using Events = std::vector<darwin::kevent_extinfo>;

darwin::kevent_extinfo &addEvent(Events &events, uint64_t ident, int16_t filter) {
  darwin::kevent_extinfo &event = events.emplace_back();
  event = {};
  event.kqext_kev.ident = ident;
  event.kqext_kev.filter = filter;
  return event;
}

void addEpollEvents(std::string_view line, Events &events) {
  uint64_t target;
  uint32_t mask;
  uint64_t data;
  if (!line.starts_with("tfd:") || !findInLine(line, "tfd:", 10, target) ||
      !findInLine(line, "events:", 16, mask) || !findInLine(line, "data:", 16, data)) {
    return;
  }
  struct Filter {
    int16_t number;
    uint32_t mask;
  };
  constexpr Filter kFilters[] = {
      {darwin::EVFILT_READ, EPOLLIN | EPOLLRDNORM | EPOLLRDHUP},
      {darwin::EVFILT_WRITE, EPOLLOUT | EPOLLWRNORM},
      {darwin::EVFILT_EXCEPT, EPOLLPRI | EPOLLRDBAND},
  };
  for (const Filter &filter : kFilters) {
    if ((mask & filter.mask) == 0) continue;
    darwin::kevent_qos_s &event = addEvent(events, target, filter.number).kqext_kev;
    event.udata = data;
    if ((mask & EPOLLET) != 0) event.flags = darwin::EV_CLEAR;
  }
}

void addSignalEvents(std::string_view text, Events &events) {
  uint64_t mask = 0;
  if (!findNumber(text, "sigmask:", 16, mask)) return;
  for (int signal = 1; signal <= SIGSYS; signal++) {
    const int number = darwinSignal(signal);
    if ((mask >> (signal - 1) & 1) == 0 || number == 0) continue;
    addEvent(events, static_cast<uint64_t>(number), darwin::EVFILT_SIGNAL);
  }
}

// `kind` is the link's text: what sort of queue this is.
void addEvents(std::string_view kind, std::string_view text, int fd, Events &events) {
  const auto ident = static_cast<uint64_t>(fd);
  int64_t count = 0;
  if (kind == "anon_inode:[eventpoll]") {
    // A line without its end was cut off by the limit.
    for (size_t end; (end = text.find('\n')) != std::string_view::npos;) {
      addEpollEvents(text.substr(0, end), events);
      text.remove_prefix(end + 1);
    }
  } else if (kind == "anon_inode:[timerfd]") {
    findNumber(text, "ticks:", 10, count);
    addEvent(events, ident, darwin::EVFILT_TIMER).kqext_kev.data = count;
  } else if (kind == "anon_inode:[eventfd]") {
    uint64_t value = 0;
    findNumber(text, "eventfd-count:", 16, value);
    addEvent(events, ident, darwin::EVFILT_USER).kqext_kev.data = static_cast<int64_t>(value);
  } else if (kind == "anon_inode:[signalfd]") {
    addSignalEvents(text, events);
  } else {
    // The process of a pidfd; -1 once that has ended, as its registration then has. io_uring: none.
    int64_t pid = 0;
    if (findNumber(text, "Pid:", 10, pid) && pid > 0) {
      addEvent(events, static_cast<uint64_t>(pid), darwin::EVFILT_PROC);
    }
  }
}

// The path of this process's own list of descriptors.
std::string ownListing() {
  return "/proc/" + std::to_string(getpid()) + "/fd";
}

// The descriptor number that an entry of /proc/PID/fd is named after.
std::optional<int> parseEntry(std::string_view name) {
  int number = 0;
  if (!parseNumber(name, number) || number < 0) return std::nullopt;
  return number;
}

}  // namespace

struct Descriptors::Link {
  // The kernel makes these texts in a page.
  char buffer[PATH_MAX + 64];
  std::string_view text;
  uint32_t type = darwin::PROX_FDTYPE_VNODE;

  // False, with errno set, if there is no such link.
  bool read(int directory, const char *name) {
    const ssize_t length = readlinkat(directory, name, buffer, sizeof(buffer));
    // Only a file can have a name that is too long for the kernel.
    if (length < 0 && errno != ENAMETOOLONG) return false;
    text = std::string_view(buffer, length < 0 ? 0 : static_cast<size_t>(length));
    type = descriptorTypeOfLink(text);
    return true;
  }

  // The same of an event queue or its like, by its name. False for anything else.
  bool take(const FileRecord &file, uint64_t queueDevice) {
    constexpr std::string_view kKind = "anon_inode:";
    const size_t length = strnlen(file.name, sizeof(file.name));
    if (queueDevice == 0 || deviceOf(file) != queueDevice || length + 1 >= sizeof(file.name)) {
      return false;
    }
    memcpy(buffer, kKind.data(), kKind.size());
    memcpy(buffer + kKind.size(), file.name, length);
    text = std::string_view(buffer, kKind.size() + length);
    type = descriptorTypeOfLink(text);
    return true;
  }

  // The number in "socket:[123]".
  uint64_t inode() const {
    uint64_t number = 0;
    const size_t start = text.find('[') + 1;
    parseNumber(text.substr(start, text.find(']') - start), number);
    return number;
  }
};

uint32_t descriptorTypeOfLink(std::string_view link) {
  struct Kind {
    std::string_view text;
    uint32_t type;
  };
  constexpr Kind kKinds[] = {
      {"anon_inode:[eventpoll]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[timerfd]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[eventfd]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[signalfd]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[pidfd]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[io_uring]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:inotify", darwin::PROX_FDTYPE_FSEVENTS},
      {"anon_inode:[fanotify]", darwin::PROX_FDTYPE_FSEVENTS},
  };
  if (link.starts_with(kSocket)) return darwin::PROX_FDTYPE_SOCKET;
  if (link.starts_with(kPipe)) return darwin::PROX_FDTYPE_PIPE;
  for (const Kind &kind : kKinds) {
    if (link == kind.text) return kind.type;
  }
  if (link.starts_with(kAnonymousMemory)) return darwin::PROX_FDTYPE_PSHM;
  // What shm_open makes stands in this directory itself, never further down.
  if (link.starts_with(kSharedMemory) &&
      link.find('/', kSharedMemory.size()) == std::string_view::npos) {
    return darwin::PROX_FDTYPE_PSHM;
  }
  return darwin::PROX_FDTYPE_VNODE;
}

Descriptors::Descriptors()
    : socketKind_{darwin::PROX_FDTYPE_SOCKET, darwin::DARWIN_ENOTSOCK, deviceOfSockets()},
      pipeKind_{darwin::PROX_FDTYPE_PIPE, darwin::DARWIN_EBADF, deviceOfPipes()},
      queueDevice_(deviceOfQueues()),
      ownNetwork_(networkOf(openStartingPoint(AT_FDCWD, "/proc/thread-self").get())) {}
Descriptors::~Descriptors() = default;

void Descriptors::beginPass() {
  sockets_.beginPass();
  otherNetworks_.beginPass();
}

Errno Descriptors::list(int processDirectory, size_t limit, std::vector<darwin::proc_fdinfo> &list,
                        std::vector<uint64_t> *sockets, const DescriptorBudget *ownFiles) {
  list_.clear();
  inodes_.clear();
  Errno error = kAnswered;
  if (!files_.empty()) {
    error = listFiles(processDirectory, limit, ownFiles);
  } else {
    const FileHandle directory = openDirectory(processDirectory, "fd");
    if (!directory.isOpen()) {
      error = errno == ENOENT ? darwin::DARWIN_ESRCH : failure(errno, processDirectory);
      return error == darwin::DARWIN_EPERM ? count(processDirectory, limit, list, sockets) : error;
    }
    error = listDirectory(directory.get(), processDirectory, limit, ownFiles);
  }
  if (error != kAnswered) return error;
  if (list_.empty() && !isAlive(processDirectory)) return darwin::DARWIN_ESRCH;
  list.assign(list_.begin(), list_.end());
  if (sockets != nullptr) sockets->assign(inodes_.begin(), inodes_.end());
  return kAnswered;
}

// Links are read of what has a name only.
Errno Descriptors::listFiles(int processDirectory, size_t limit, const DescriptorBudget *ownFiles) {
  Link link;
  for (const FileRecord &file : files_) {
    if (list_.size() >= limit) break;
    const uint64_t device = deviceOf(file);
    const bool isOwnFile = ownFiles != nullptr && ownFiles->has(file.descriptor);
    uint32_t type = darwin::PROX_FDTYPE_VNODE;
    if (device == socketKind_.device) {
      type = darwin::PROX_FDTYPE_SOCKET;
      inodes_.push_back(file.inode);
    } else if (device == pipeKind_.device) {
      type = darwin::PROX_FDTYPE_PIPE;
    } else if (!isOwnFile) {
      const bool isRead = link.take(file, queueDevice_) ||
                          link.read(processDirectory, EntryName("fd", file.descriptor).text);
      if (!isRead && (errno == ENOENT || errno == ESRCH)) continue;
      if (!isRead && errno != EACCES && errno != EPERM) return failure(errno, processDirectory);
      if (isRead) type = link.type;
    }
    list_.push_back({file.descriptor, type});
  }
  return kAnswered;
}

Errno Descriptors::listDirectory(int directory, int processDirectory, size_t limit,
                                 const DescriptorBudget *ownFiles) {
  alignas(8) char buffer[16384];
  Link link;
  bool isWhole = false;
  bool areHidden = false;
  while (!isWhole && list_.size() < limit) {
    // The kernel does some work for each entry it hands out: no more than the limit are asked for,
    // and the two of the directory itself.
    const size_t room = sizeof(buffer) / kEntrySize - 2;
    const size_t wanted = std::min(limit - list_.size(), room) + 2;
    const ssize_t size = getdents64(directory, buffer, wanted * kEntrySize);
    if (size < 0) return failure(errno, processDirectory);
    // The kernel stops for want of room only.
    isWhole = static_cast<size_t>(size) + kEntrySize <= wanted * kEntrySize;
    for (size_t at = 0; at < static_cast<size_t>(size) && list_.size() < limit;) {
      const char *entry = buffer + at;
      uint16_t length;
      memcpy(&length, entry + offsetof(dirent64, d_reclen), sizeof(length));
      if (length <= offsetof(dirent64, d_name) || length > static_cast<size_t>(size) - at) {
        return darwin::DARWIN_EIO;
      }
      at += length;
      const char *name = entry + offsetof(dirent64, d_name);
      const std::optional<int> number =
          parseEntry({name, strnlen(name, length - offsetof(dirent64, d_name))});
      if (!number.has_value()) continue;
      const bool isKnown = areHidden || (ownFiles != nullptr && ownFiles->has(*number));
      if (!isKnown && link.read(directory, EntryName(".", *number).text)) {
        // In a listing of this process: what it is read from.
        if (*number == directory && link.text == ownListing()) continue;
        list_.push_back({*number, link.type});
        if (link.type == darwin::PROX_FDTYPE_SOCKET) inodes_.push_back(link.inode());
      } else if (isKnown || errno == EACCES || errno == EPERM) {
        list_.push_back({*number, darwin::PROX_FDTYPE_VNODE});
        // The kernel decides it for a process, not for each descriptor.
        areHidden = areHidden || !isKnown;
      } else if (errno != ENOENT && errno != ESRCH) {
        return failure(errno, processDirectory);
      }
    }
  }
  return kAnswered;
}

// What is known of a descriptor from the look at all of them, but once: who asks again wants the
// state of now. Null for one that is not known.
const FileRecord *Descriptors::takeFile(int fd) {
  const auto file = std::ranges::lower_bound(files_, fd, {}, &FileRecord::descriptor);
  if (file == files_.end() || file->descriptor != fd || file->isTaken != 0) return nullptr;
  file->isTaken = 1;
  return &*file;
}

// How many there are, where the kernel keeps even their numbers to itself. Those before 6.2 don't
// tell that either.
Errno Descriptors::count(int processDirectory, size_t limit, std::vector<darwin::proc_fdinfo> &list,
                         std::vector<uint64_t> *sockets) {
  struct stat directory;
  if (fstatat(processDirectory, "fd", &directory, 0) != 0) return failure(errno, processDirectory);
  if (directory.st_size <= 0) return darwin::DARWIN_EPERM;
  const auto open = static_cast<size_t>(directory.st_size);
  list.assign(std::min(open, limit), {kNoNumber, darwin::PROX_FDTYPE_VNODE});
  if (sockets != nullptr) sockets->clear();
  return kAnswered;
}

Errno Descriptors::readLink(int processDirectory, int fd, Link &link) {
  if (fd < 0) {
    const bool isHidden =
        fd == kNoNumber && !openDirectory(processDirectory, "fd").isOpen() && errno == EACCES;
    return isHidden ? failure(EACCES, processDirectory) : darwin::DARWIN_EBADF;
  }
  if (link.read(processDirectory, EntryName("fd", fd).text)) return kAnswered;
  return failure(errno, processDirectory);
}

// The same by what takeFile() gave, as far as that tells.
Errno Descriptors::findLink(int processDirectory, int fd, const FileRecord *file, Link &link) {
  const bool isTold = file != nullptr && link.take(*file, queueDevice_);
  return isTold ? kAnswered : readLink(processDirectory, fd, link);
}

Errno Descriptors::readFileInfo(int processDirectory, int fd, size_t limit) {
  const EntryName name("fdinfo", fd);
  const FileHandle file(openat(processDirectory, name.text, O_RDONLY | O_CLOEXEC));
  if (!file.isOpen() || !readText(file.get(), limit, text_)) {
    return failure(errno, processDirectory);
  }
  return kAnswered;
}

Errno Descriptors::type(int processDirectory, int fd, uint32_t &type) {
  Link link;
  Errno error = readLink(processDirectory, fd, link);
  darwin::proc_fileinfo info = {};
  if (error == darwin::DARWIN_EPERM) error = readAccess(processDirectory, fd, info);
  if (error == kAnswered) type = link.type;
  return error;
}

// What the kernel tells of a descriptor whose link may not be read.
Errno Descriptors::readAccess(int processDirectory, int fd, darwin::proc_fileinfo &info) {
  const EntryName name("fd", fd);
  struct stat link;
  if (fstatat(processDirectory, name.text, &link, AT_SYMLINK_NOFOLLOW) != 0) {
    return failure(errno, processDirectory);
  }
  info = {};
  info.fi_type = darwin::PROX_FDTYPE_VNODE;
  if ((link.st_mode & S_IRUSR) != 0) info.fi_openflags |= darwin::DARWIN_FREAD;
  if ((link.st_mode & S_IWUSR) != 0) info.fi_openflags |= darwin::DARWIN_FWRITE;
  return kAnswered;
}

// What all questions begin with: the link, which must be of the type asked about, and the fdinfo.
Errno Descriptors::open(int processDirectory, int fd, uint32_t type, Link &link,
                        darwin::proc_fileinfo &info) {
  const FileRecord *file = takeFile(fd);
  Errno error = findLink(processDirectory, fd, file, link);
  if (error != kAnswered) return error;
  if (link.type != type) return darwin::DARWIN_EBADF;
  if (file == nullptr) error = readFileInfo(processDirectory, fd, kFileInfoSize);
  if (error == kAnswered) {
    info = file != nullptr ? fileInfoOf(*file, type) : parseFileInfo(text_, type);
  }
  return error;
}

Errno Descriptors::vnode(int processDirectory, int fd, darwin::vnode_fdinfowithpath &info) {
  Link link;
  darwin::vnode_fdinfowithpath answer = {};
  Errno error = open(processDirectory, fd, darwin::PROX_FDTYPE_VNODE, link, answer.pfi);
  if (error == darwin::DARWIN_EPERM) {
    error = readAccess(processDirectory, fd, answer.pfi);
    copyText(kHidden, answer.pvip.vip_path);
    if (error == kAnswered) info = answer;
    return error;
  }
  if (error != kAnswered) return error;
  darwin::vnode_info &vnode = answer.pvip.vip_vi;
  error = lookAt(processDirectory, fd, vnode.vi_stat);
  if (error != kAnswered) return error;
  vnode.vi_type = vnodeType(vnode.vi_stat.vst_mode);
  vnode.vi_fsid.val[0] = static_cast<int32_t>(vnode.vi_stat.vst_dev);
  copyText(link.text, answer.pvip.vip_path);
  info = answer;
  return kAnswered;
}

// What questions about sockets and pipes begin with. The file system tells them from everything
// else: the link is read only of what is none, or does not tell.
Errno Descriptors::openNameless(int processDirectory, int fd, const NamelessKind &kind,
                                uint64_t &inode, darwin::proc_fileinfo &info,
                                darwin::vinfo_stat &stat) {
  if (fd < 0) return darwin::DARWIN_EBADF;
  const FileRecord *file = takeFile(fd);
  if (file != nullptr && deviceOf(*file) == kind.device) {
    fillStat(*file, stat);
    inode = file->inode;
    info = fileInfoOf(*file, kind.type);
    return kAnswered;
  }
  uint64_t device = 0;
  Errno error = lookAt(processDirectory, fd, stat, device);
  if (error != kAnswered) return error;
  inode = stat.vst_ino;
  if (device == 0 || device != kind.device) {
    Link link;
    error = readLink(processDirectory, fd, link);
    if (error != kAnswered) return error;
    if (link.type != kind.type) return kind.otherType;
    inode = link.inode();
  }
  error = readFileInfo(processDirectory, fd, kFileInfoSize);
  if (error == kAnswered) info = parseFileInfo(text_, kind.type);
  return error;
}

// The kernel lists sockets per namespace, and Internet sockets not before they are bound or
// connected.
void Descriptors::describeUnlisted(int processDirectory, int fd, uint64_t inode,
                                   darwin::socket_info &info) {
  const NetworkKey network = networkOf(processDirectory);
  if (!network.isKnown()) return;
  const bool isOwn = network == ownNetwork_;
  if (!isOwn && otherNetworks_.describe(processDirectory, network, inode, info)) return;
  char path[64];
  char name[32];
  snprintf(path, sizeof(path), "/proc/thread-self/fd/%d/fd/%d", processDirectory, fd);
  const ssize_t size = getxattr(path, "system.sockprotoname", name, sizeof(name));
  if (size <= 0) return;
  const std::string_view protocol(name, strnlen(name, static_cast<size_t>(size)));
  // One in a network that may not be entered may have an address all the same.
  const bool mayBeBound = !isOwn && isListedProtocol(protocol) && !otherNetworks_.isListed(network);
  if (!protocol.empty() && !mayBeBound) linux_machine::describeUnlisted(protocol, info);
}

Errno Descriptors::socket(int processDirectory, int fd, darwin::socket_fdinfo &info) {
  darwin::socket_fdinfo answer = {};
  uint64_t inode = 0;
  const Errno error =
      openNameless(processDirectory, fd, socketKind_, inode, answer.pfi, answer.psi.soi_stat);
  if (error != kAnswered) return error;
  if (!sockets_.describe(inode, answer.psi)) {
    describeUnlisted(processDirectory, fd, inode, answer.psi);
  }
  info = answer;
  return kAnswered;
}

// Nothing on Linux is a semaphore with a descriptor.
Errno Descriptors::semaphore(int processDirectory, int fd, darwin::psem_fdinfo &) {
  Link link;
  const Errno error = readLink(processDirectory, fd, link);
  return error == kAnswered ? darwin::DARWIN_EBADF : error;
}

Errno Descriptors::sharedMemory(int processDirectory, int fd, darwin::pshm_fdinfo &info) {
  Link link;
  darwin::pshm_fdinfo answer = {};
  Errno error = open(processDirectory, fd, darwin::PROX_FDTYPE_PSHM, link, answer.pfi);
  if (error != kAnswered) return error;
  darwin::vinfo_stat file = {};
  uint64_t device = 0;
  error = lookAt(processDirectory, fd, file, device);
  if (error != kAnswered) return error;
  answer.pshminfo.pshm_mappaddr = mappedFiles_.addressOf(processDirectory, device, file.vst_ino);
  darwin::vinfo_stat &stat = answer.pshminfo.pshm_stat;
  stat.vst_mode = file.vst_mode;
  stat.vst_uid = file.vst_uid;
  stat.vst_gid = file.vst_gid;
  stat.vst_size = file.vst_size;
  copyText(sharedMemoryName(link.text), answer.pshminfo.pshm_name);
  info = answer;
  return kAnswered;
}

Errno Descriptors::pipe(int processDirectory, int fd, darwin::pipe_fdinfo &info) {
  darwin::pipe_fdinfo answer = {};
  uint64_t inode = 0;
  const Errno error =
      openNameless(processDirectory, fd, pipeKind_, inode, answer.pfi, answer.pipeinfo.pipe_stat);
  if (error != kAnswered) return error;
  const bool writes = (answer.pfi.fi_openflags & darwin::DARWIN_FWRITE) != 0;
  const uint64_t reading = inode * 2;
  answer.pipeinfo.pipe_handle = reading + (writes ? 1 : 0);
  answer.pipeinfo.pipe_peerhandle = reading + (writes ? 0 : 1);
  info = answer;
  return kAnswered;
}

Errno Descriptors::kqueue(int processDirectory, int fd, darwin::kqueue_fdinfo &info) {
  Link link;
  darwin::kqueue_fdinfo answer = {};
  const Errno error = open(processDirectory, fd, darwin::PROX_FDTYPE_KQUEUE, link, answer.pfi);
  if (error != kAnswered) return error;
  info = answer;
  return kAnswered;
}

Errno Descriptors::kqueueEvents(int processDirectory, int fd,
                                std::vector<darwin::kevent_extinfo> &events) {
  Link link;
  const FileRecord *file = takeFile(fd);
  Errno error = findLink(processDirectory, fd, file, link);
  if (error != kAnswered) return error;
  if (link.type != darwin::PROX_FDTYPE_KQUEUE) return darwin::DARWIN_EBADF;
  error = readFileInfo(processDirectory, fd, kEventsSize);
  if (error != kAnswered) return error;
  events_.clear();
  addEvents(link.text, text_, fd, events_);
  events.assign(events_.begin(), events_.end());
  return kAnswered;
}

}  // namespace host::linux_machine
