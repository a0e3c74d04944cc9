// A /tmp for what the program writes to names there that tests can't choose.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace test {

// While this lives, /tmp is empty and nobody's but this process's, and that of what it starts.
// Where the system does not allow that it is everybody's still, but no other test uses those names:
// one at most in a test. To be made before anything in /tmp that the test needs.
class OwnTmp {
 public:
  OwnTmp() : isOwn_(cover()) {
    if (isOwn_) return;
    // The folder is what is locked: a file in it would be its first user's, and closed to others.
    folder_ = open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder_ < 0 || flock(folder_, LOCK_EX) != 0) {
      throw std::system_error(errno, std::generic_category(), "/tmp");
    }
  }
  OwnTmp(const OwnTmp &) = delete;
  OwnTmp &operator=(const OwnTmp &) = delete;
  ~OwnTmp() {
    if (isOwn_) umount2("/tmp", MNT_DETACH);
    if (folder_ >= 0) close(folder_);
  }

 private:
  // Not where the tests themselves are in it.
  static bool cover() {
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    return !self.string().starts_with("/tmp/") && unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/tmp", "tmpfs", 0, "mode=1777") == 0;
  }

  bool isOwn_;
  int folder_ = -1;
};

}  // namespace test
