#include "files/safe_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

using namespace sondex;

constexpr uid_t kSomeoneElse = 65534;

class SafeFile : public testing::Test {
 protected:
  SafeFile() : directory_("/tmp/safe_file_test.XXXXXX") {
    EXPECT_NE(mkdtemp(directory_.data()), nullptr);
    path_ = directory_ + "/file";
    maskBefore_ = umask(022);
  }
  ~SafeFile() override {
    umask(maskBefore_);
    std::filesystem::remove_all(directory_);
  }

  static void put(const std::string &path, const std::string &text) { std::ofstream(path) << text; }
  static std::string textOf(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  struct stat status() const {
    struct stat found {};
    EXPECT_EQ(lstat(path_.c_str(), &found), 0);
    return found;
  }
  mode_t permissions() const { return status().st_mode & 07777; }

  void expectRefused(int error) {
    errno = 0;
    const int descriptor = openToRewrite(path_.c_str());
    EXPECT_EQ(descriptor, -1);
    EXPECT_EQ(errno, error) << strerror(errno);
    if (descriptor >= 0) close(descriptor);
  }
  void expectRewritten(const std::string &text) {
    const int descriptor = openToRewrite(path_.c_str());
    ASSERT_GE(descriptor, 0) << strerror(errno);
    EXPECT_EQ(write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    EXPECT_EQ(close(descriptor), 0);
    EXPECT_EQ(textOf(path_), text);
  }

  std::string directory_;
  std::string path_;
  mode_t maskBefore_;
};

TEST_F(SafeFile, IsMadeWithTheDefaultPermissions) {
  expectRewritten("new");
  EXPECT_EQ(permissions(), 0644u);
}

TEST_F(SafeFile, PermissionsFollowTheMask) {
  umask(077);
  expectRewritten("new");
  EXPECT_EQ(permissions(), 0600u);
}

TEST_F(SafeFile, OwnFileIsEmptied) {
  put(path_, "something longer than before");
  ASSERT_EQ(chmod(path_.c_str(), 0600), 0);
  const ino_t before = status().st_ino;
  expectRewritten("short");
  EXPECT_EQ(status().st_ino, before);
  EXPECT_EQ(permissions(), 0600u);
}

TEST_F(SafeFile, IsNotInheritedByOtherPrograms) {
  const int descriptor = openToRewrite(path_.c_str());
  ASSERT_GE(descriptor, 0);
  EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  close(descriptor);
}

TEST_F(SafeFile, SymbolicLinkIsNotFollowed) {
  const std::string target = directory_ + "/target";
  put(target, "precious");
  ASSERT_EQ(symlink(target.c_str(), path_.c_str()), 0);
  expectRefused(ELOOP);
  EXPECT_EQ(textOf(target), "precious");
}

TEST_F(SafeFile, DanglingLinkMakesNothing) {
  const std::string target = directory_ + "/target";
  ASSERT_EQ(symlink(target.c_str(), path_.c_str()), 0);
  expectRefused(ELOOP);
  EXPECT_NE(access(target.c_str(), F_OK), 0);
}

TEST_F(SafeFile, LinkedDirectoryIsFollowed) {
  const std::string real = directory_ + "/real";
  ASSERT_EQ(mkdir(real.c_str(), 0700), 0);
  ASSERT_EQ(symlink("real", (directory_ + "/link").c_str()), 0);
  path_ = directory_ + "/link/file";
  expectRewritten("new");
}

TEST_F(SafeFile, FileWithAnotherNameIsLeftAlone) {
  const std::string other = directory_ + "/other";
  put(other, "precious");
  ASSERT_EQ(link(other.c_str(), path_.c_str()), 0);
  expectRefused(EEXIST);
  EXPECT_EQ(textOf(other), "precious");
}

TEST_F(SafeFile, FIFOWithoutAReaderIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0666), 0);
  expectRefused(ENXIO);
}

TEST_F(SafeFile, FIFOWithAReaderIsRefused) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0666), 0);
  const int reader = open(path_.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  expectRefused(EEXIST);
  close(reader);
}

TEST_F(SafeFile, DeviceIsRefused) {
  path_ = "/dev/null";
  expectRefused(EEXIST);
}

TEST_F(SafeFile, DirectoryIsRefused) {
  ASSERT_EQ(mkdir(path_.c_str(), 0700), 0);
  expectRefused(EISDIR);
}

TEST_F(SafeFile, MissingDirectoryIsRefused) {
  path_ = directory_ + "/none/file";
  expectRefused(ENOENT);
}

TEST_F(SafeFile, FileOfAnotherUserIsLeftAlone) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to give a file away";
  put(path_, "precious");
  ASSERT_EQ(chown(path_.c_str(), kSomeoneElse, kSomeoneElse), 0);
  expectRefused(EEXIST);
  EXPECT_EQ(textOf(path_), "precious");
}

TEST_F(SafeFile, OwnReadOnlyFileIsRefusedToOthersThanRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to become someone else";
  ASSERT_EQ(chown(directory_.c_str(), kSomeoneElse, kSomeoneElse), 0);
  ASSERT_EQ(seteuid(kSomeoneElse), 0);
  put(path_, "kept");
  EXPECT_EQ(chmod(path_.c_str(), 0444), 0);
  expectRefused(EACCES);
  EXPECT_EQ(textOf(path_), "kept");
  EXPECT_EQ(chmod(path_.c_str(), 0644), 0);
  expectRewritten("its owner's");
  ASSERT_EQ(seteuid(0), 0);
  // Ownership is the effective user's, not what the user may write.
  expectRefused(EEXIST);
}

TEST_F(SafeFile, KeepsNoDescriptors) {
  const auto count = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto before = count();
  expectRewritten("new");
  ASSERT_EQ(unlink(path_.c_str()), 0);
  ASSERT_EQ(mkdir(path_.c_str(), 0700), 0);
  expectRefused(EISDIR);
  EXPECT_EQ(count(), before);
}

}  // namespace
