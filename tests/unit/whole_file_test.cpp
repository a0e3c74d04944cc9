#include "files/whole_file.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using namespace sondex;

class WholeFileTest : public testing::Test {
 protected:
  WholeFileTest() : directory_("/tmp/whole_file_test.XXXXXX") {
    EXPECT_NE(mkdtemp(directory_.data()), nullptr);
    path_ = directory_ + "/file";
  }
  ~WholeFileTest() override { std::filesystem::remove_all(directory_); }

  static std::string textOf(const std::string &path) {
    std::ifstream input(path);
    return {std::istreambuf_iterator<char>(input), {}};
  }
  long filesThere() const {
    return std::distance(std::filesystem::directory_iterator(directory_), {});
  }

  std::string directory_;
  std::string path_;
  WholeFile file_ = {};
};

TEST_F(WholeFileTest, ReplacesWhatWasThereAtItsEnd) {
  std::ofstream(path_) << "old";
  ASSERT_TRUE(beginWholeFile(&file_, path_.c_str()));
  fputs("new", file_.stream);
  fflush(file_.stream);
  EXPECT_EQ(textOf(path_), "old");
  ASSERT_TRUE(finishWholeFile(&file_));
  EXPECT_EQ(textOf(path_), "new");
  EXPECT_EQ(filesThere(), 1);
}

TEST_F(WholeFileTest, IsItsOwnersAlone) {
  ASSERT_TRUE(beginWholeFile(&file_, path_.c_str()));
  ASSERT_TRUE(finishWholeFile(&file_));
  struct stat found = {};
  ASSERT_EQ(stat(path_.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 07777, 0600u);
}

TEST_F(WholeFileTest, LeavesNothingWhenDropped) {
  std::ofstream(path_) << "old";
  ASSERT_TRUE(beginWholeFile(&file_, path_.c_str()));
  fputs("new", file_.stream);
  dropWholeFile(&file_);
  EXPECT_EQ(textOf(path_), "old");
  EXPECT_EQ(filesThere(), 1);
}

TEST_F(WholeFileTest, LeavesNothingWhenThereIsNoRoom) {
  std::ofstream(path_) << "old";
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  const rlimit small = {4096, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  ASSERT_TRUE(beginWholeFile(&file_, path_.c_str()));
  fputs(std::string(5000, 'x').c_str(), file_.stream);
  const bool finished = finishWholeFile(&file_);
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, handler);
  EXPECT_FALSE(finished);
  EXPECT_EQ(textOf(path_), "old");
  EXPECT_EQ(filesThere(), 1);
}

TEST_F(WholeFileTest, SaysWhyItCantBeMade) {
  EXPECT_FALSE(beginWholeFile(&file_, (directory_ + "/none/file").c_str()));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(beginWholeFile(&file_, std::string(PATH_MAX, 'x').c_str()));
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(WholeFileTest, CantTakeThePlaceOfAFolder) {
  std::filesystem::create_directory(path_);
  EXPECT_FALSE(beginWholeFile(&file_, path_.c_str()));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(filesThere(), 1);
}

}  // namespace
