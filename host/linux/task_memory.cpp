#include "host/linux/task_memory.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "host/darwin/errors.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

// Less than the kernel copies at most in one call.
static constexpr size_t kPiece = size_t{1} << 30;

Errno checkMemoryAccess(int processDirectory) {
  const FileHandle memory(openat(processDirectory, "mem", O_RDONLY | O_CLOEXEC));
  if (memory.isOpen()) return kAnswered;
  return errno == ENOENT ? darwin::DARWIN_ESRCH : darwinError(errno);
}

// Unlike the process's "mem" file this call respects the protection of pages, and copies without a
// buffer between.
static Errno copyPiece(pid_t pid, uint64_t address, size_t size, char *to) {
  const iovec here = {to, size};
  const iovec there = {reinterpret_cast<void *>(address), size};
  const ssize_t copied = process_vm_readv(pid, &here, 1, &there, 1, 0);
  if (copied < 0) return errno == EFAULT ? darwin::DARWIN_EFAULT : darwinError(errno);
  return static_cast<size_t>(copied) == size ? kAnswered : darwin::DARWIN_EFAULT;
}

Errno readTaskMemory(int processDirectory, pid_t pid, uint64_t address, size_t size, void *to) {
  if (size > std::numeric_limits<uint64_t>::max() - address) return darwin::DARWIN_EFAULT;
  Errno error = kAnswered;
  for (size_t done = 0; done < size && error == kAnswered;) {
    const size_t length = std::min(size - done, kPiece);
    error = copyPiece(pid, address + done, length, static_cast<char *>(to) + done);
    done += length;
  }
  // The directory has files as long as the process has its pid: then it had it all the time.
  const bool isSame = faccessat(processDirectory, "stat", F_OK, 0) == 0;
  return isSame ? error : darwin::DARWIN_ESRCH;
}

}  // namespace host::linux_machine
