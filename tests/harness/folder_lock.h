// A lock for what the program writes to names in /tmp that tests can't choose.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace test {

// While this lives, no other test uses those names: one at most in a test. The folder is what is
// locked: a file in it would be its first user's, and closed to the others.
class FolderLock {
 public:
  FolderLock() : folder_(open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (folder_ < 0 || flock(folder_, LOCK_EX) != 0) {
      throw std::system_error(errno, std::generic_category(), "/tmp");
    }
  }
  FolderLock(const FolderLock &) = delete;
  FolderLock &operator=(const FolderLock &) = delete;
  ~FolderLock() { close(folder_); }

 private:
  int folder_;
};

}  // namespace test
