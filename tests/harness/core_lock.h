// The names of core files that do not depend on a process a test could choose: /tmp/CORE, and
// /tmp/core.0 of the kernel. Tests of several runs share them.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace test {

// While this lives, no other test uses those names.
class CoreLock {
 public:
  CoreLock() : file_(open("/tmp/.core_dump_test", O_CREAT | O_RDWR | O_CLOEXEC, 0600)) {
    if (file_ < 0 || lockf(file_, F_LOCK, 0) != 0) {
      throw std::system_error(errno, std::generic_category(), "/tmp/.core_dump_test");
    }
  }
  CoreLock(const CoreLock &) = delete;
  CoreLock &operator=(const CoreLock &) = delete;
  ~CoreLock() { close(file_); }

 private:
  int file_;
};

}  // namespace test
