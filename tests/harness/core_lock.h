// The names of core files that do not depend on a process a test could choose: /tmp/CORE, and
// /tmp/core.0 of the kernel. Tests of several runs share them.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace test {

// While this lives, no other test uses those names. The folder is what is locked: a file in it
// would be its first user's, and closed to the others.
class CoreLock {
 public:
  CoreLock() : folder_(open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (folder_ < 0 || flock(folder_, LOCK_EX) != 0) {
      throw std::system_error(errno, std::generic_category(), "/tmp");
    }
  }
  CoreLock(const CoreLock &) = delete;
  CoreLock &operator=(const CoreLock &) = delete;
  ~CoreLock() { close(folder_); }

 private:
  int folder_;
};

}  // namespace test
