// Files: their flags, what is known of them, and memory mapped from them.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

#include "darwin/interfaces.h"
#include "darwin/kernel_control.h"
#include "darwin/layout.h"
#include "imports/calls.h"

extern "C" {

int __wrap_ioctl(int descriptor, unsigned long request, ...) noexcept;

void device_open();
void device_fcntl();
void device_ioctl();

}  // extern "C"

namespace {

struct Flag {
  int darwin;
  int native;
};

constexpr int kAccess = 3;  // counted the same
constexpr Flag kOpenFlags[] = {
    {0x4, O_NONBLOCK},       {0x8, O_APPEND},        {0x80, O_SYNC},  {0x100, O_NOFOLLOW},
    {0x200, O_CREAT},        {0x400, O_TRUNC},       {0x800, O_EXCL}, {0x20000, O_NOCTTY},
    {0x100000, O_DIRECTORY}, {0x1000000, O_CLOEXEC},
};

constexpr Flag kMapFlags[] = {
    {0x1, MAP_SHARED},     {0x2, MAP_PRIVATE},      {0x10, MAP_FIXED},
    {0x40, MAP_NORESERVE}, {0x1000, MAP_ANONYMOUS},
};

// False when a flag is in no table.
template <size_t kCount>
bool toNative(int darwin, const Flag (&flags)[kCount], int &native) {
  native = 0;
  for (const Flag &flag : flags) {
    if ((darwin & flag.darwin) != 0) native |= flag.native;
    darwin &= ~flag.darwin;
  }
  return darwin == 0;
}

// Those that do not matter to the program are left out.
int openFlagsToDarwin(int native) {
  int darwin = native & kAccess;
  for (const Flag &flag : kOpenFlags) {
    if ((native & flag.native) == flag.native) darwin |= flag.darwin;
  }
  return darwin;
}

int refuse(int error) {
  errno = error;
  return -1;
}

struct DeviceStat {
  int32_t device;
  uint16_t mode;
  uint16_t links;
  uint64_t inode;
  uint32_t user;
  uint32_t group;
  int32_t specialDevice;
  timespec accessed;
  timespec modified;
  timespec changed;
  timespec born;
  int64_t size;
  int64_t blocks;
  int32_t blockSize;
  uint32_t flags;
  uint32_t generation;
  int32_t reserved[5];
};
DARWIN_LAYOUT(DeviceStat, 144, 8, (device, 0), (mode, 4), (links, 6), (inode, 8), (user, 16),
              (group, 20), (specialDevice, 24), (accessed, 32), (modified, 48), (changed, 64),
              (born, 80), (size, 96), (blocks, 104), (blockSize, 112), (flags, 116),
              (generation, 120));

// The kind of device in the highest eight bits.
int32_t deviceNumber(dev_t device) {
  return static_cast<int32_t>(major(device) << 24 | (minor(device) & 0xFFFFFF));
}

int tell(int result, const struct stat &native, DeviceStat *told) {
  if (result != 0) return result;
  *told = {};
  told->device = deviceNumber(native.st_dev);
  told->mode = static_cast<uint16_t>(native.st_mode);
  told->links = static_cast<uint16_t>(native.st_nlink);
  told->inode = native.st_ino;
  told->user = native.st_uid;
  told->group = native.st_gid;
  told->specialDevice = deviceNumber(native.st_rdev);
  told->accessed = native.st_atim;
  told->modified = native.st_mtim;
  told->changed = native.st_ctim;
  told->size = native.st_size;
  told->blocks = native.st_blocks;
  told->blockSize = static_cast<int32_t>(native.st_blksize);
  return 0;
}

int statDescriptor(int descriptor, DeviceStat *told) {
  struct stat native {};
  return tell(fstat(descriptor, &native), native, told);
}

int statLink(const char *path, DeviceStat *told) {
  struct stat native {};
  return tell(lstat(path, &native), native, told);
}

int statPath(const char *path, DeviceStat *told) {
  struct stat native {};
  return tell(stat(path, &native), native, told);
}

// The other ways to count from are numbered differently.
off_t seek(int descriptor, off_t offset, int whence) {
  if (whence < SEEK_SET || whence > SEEK_END) return refuse(EINVAL);
  return lseek(descriptor, offset, whence);
}

void *map(void *address, size_t size, int rights, int flags, int descriptor, off_t offset) {
  int native = 0;
  if (!toNative(flags, kMapFlags, native)) {
    refuse(EINVAL);
    return MAP_FAILED;
  }
  return mmap(address, size, rights, native, descriptor, offset);
}

constexpr int kDuplicate = 0;
constexpr int kGetDescriptorFlags = 1;
constexpr int kSetDescriptorFlags = 2;
constexpr int kGetFlags = 3;
constexpr int kSetFlags = 4;
constexpr int kDuplicateForSelf = 67;

constexpr unsigned long kWindowSize = 0x40087468;
constexpr unsigned long kBytesToRead = 0x4004667F;

}  // namespace

extern "C" {

int on_open(const char *path, int flags, const uint64_t *arguments) {
  int native = 0;
  if (!toNative(flags & ~kAccess, kOpenFlags, native)) return refuse(EINVAL);
  const mode_t mode = (native & O_CREAT) != 0 ? static_cast<mode_t>(arguments[0]) & 07777 : 0;
  return open(path, native | (flags & kAccess), mode);
}

int on_fcntl(int descriptor, int command, const uint64_t *arguments) {
  const auto argument = [arguments] { return static_cast<int>(arguments[0]); };
  int native = 0;
  switch (command) {
    case kDuplicate:
      return fcntl(descriptor, F_DUPFD, argument());
    case kDuplicateForSelf:
      return fcntl(descriptor, F_DUPFD_CLOEXEC, argument());
    case kGetDescriptorFlags:
      return fcntl(descriptor, F_GETFD);
    case kSetDescriptorFlags:
      return fcntl(descriptor, F_SETFD, argument());
    case kGetFlags:
      native = fcntl(descriptor, F_GETFL);
      return native < 0 ? native : openFlagsToDarwin(native);
    case kSetFlags:
      if (!toNative(argument() & ~kAccess, kOpenFlags, native)) return refuse(EINVAL);
      return fcntl(descriptor, F_SETFL, native);
    default:
      return refuse(EINVAL);
  }
}

// Any other request would be another one here.
int on_ioctl(int descriptor, unsigned long request, const uint64_t *arguments) {
  void *argument = reinterpret_cast<void *>(arguments[0]);
  switch (request) {
    case kWindowSize:
      return __wrap_ioctl(descriptor, TIOCGWINSZ, argument);
    case kBytesToRead:
      return __wrap_ioctl(descriptor, FIONREAD, argument);
    case darwin::CTLIOCGINFO:
    case darwin::SIOCGA80211:
      return __wrap_ioctl(descriptor, request, argument);
    default:
      return refuse(ENOTTY);
  }
}

}  // extern "C"

namespace loader {

std::span<const Import> files() {
  static const Import table[] = {
      LOADER_VARIADIC(fcntl), call("fstat", &statDescriptor), LOADER_VARIADIC(ioctl),
      call("lseek", &seek),   call("lstat", &statLink),       call("mmap", &map),
      LOADER_VARIADIC(open),  call("stat", &statPath),
  };
  return table;
}

}  // namespace loader
