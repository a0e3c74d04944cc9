#include "columns/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "columns/perspective.h"
#include "terminal/status_bar.h"
#include "tests/harness/configuration_file.h"
#include "tests/harness/list_columns.h"
#include "tests/harness/size_limit.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/display_state.h"

namespace {

using namespace sondex;
using test::ConfigurationFile;
using test::kListColumns;
using testing::StartsWith;

constexpr char kFailure[] = "Unable to open file for output";

const std::string kHeaderLine = "## Config File for Z's Sondex, https://sondex.invalid/\n";
const std::string kDefault =
    "Perspective Default\n\tShowWiFi\n\tShowDisks\n" + test::savedColumns();

std::string saved(const Perspective *perspective) {
  char *text = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&text, &size);
  savePerspectiveToFile(perspective, stream);
  std::fclose(stream);
  const std::string copy(text, size);
  std::free(text);
  return copy;
}

TEST(SavedPerspective, Default) {
  const DisplayStateGuard state;
  EXPECT_EQ(saved(getDefaultPerspective()), kDefault);
}

TEST(SavedPerspective, NullWritesNothing) {
  EXPECT_EQ(saved(nullptr), "");
}

TEST(SavedPerspective, TogglesInTheirOrder) {
  const DisplayStateGuard state;
  Perspective *perspective = getDefaultPerspective();
  store(perspective->ShowNetworks, 1);
  store(perspective->ShowPower, 7);
  EXPECT_THAT(saved(perspective),
              StartsWith("Perspective Default\n\tShowWiFi\n\tShowDisks\n\tShowNetworks\n"
                         "\tShowPower\n\tColumns\n"));
  store(perspective->ShowWiFi, 0);
  store(perspective->ShowDisks, 0);
  store(perspective->ShowNetworks, 0);
  store(perspective->ShowPower, 0);
  EXPECT_EQ(saved(perspective), "Perspective Default\n" + test::savedColumns());
}

TEST(SavedPerspective, HiddenColumnsAreLeftOut) {
  const DisplayStateGuard state;
  Perspective *perspective = getDefaultPerspective();
  hideSelectedCol(perspective);  // CPU
  const std::string text = saved(perspective);
  EXPECT_EQ(text.find("\t\tColumn\tCPU  \n"), std::string::npos);
  EXPECT_EQ(text.size(), kDefault.size() - std::strlen("\t\tColumn\tCPU  \n"));
}

TEST(SavedPerspective, ColumnsThatAreNotShownForLackOfRightsStay) {
  const DisplayStateGuard state;
  g_r00t = 0;
  g_OsVer = 0;
  EXPECT_EQ(saved(getDefaultPerspective()), kDefault);
}

TEST(SavedPerspective, MovedColumnsInTheirOrder) {
  const DisplayStateGuard state;
  moveCol(1, -1);
  const std::string first = std::string("\t\tColumn\t") + kListColumns[0].saved + "\n";
  const std::string second = std::string("\t\tColumn\t") + kListColumns[1].saved + "\n";
  std::string expected = kDefault;
  expected.replace(expected.find(first + second), (first + second).size(), second + first);
  EXPECT_EQ(saved(getDefaultPerspective()), expected);
}

class ConfigFile : public testing::Test {
 protected:
  ~ConfigFile() override { std::remove(target_.c_str()); }
  void SetUp() override {
    if (!file_.isOurs()) GTEST_SKIP() << kPath << " is another user's";
  }

  static std::string text() { return ConfigurationFile::text(); }
  static std::string errorsOfSaving(const char *name = "~/.sdrc") {
    testing::internal::CaptureStderr();
    saveConfigToFile(name);
    return testing::internal::GetCapturedStderr();
  }

  static constexpr const char *kPath = ConfigurationFile::kPath;
  const ConfigurationFile file_;
  const DisplayStateGuard state_;
  const std::string target_ = "/tmp/sondex_configuration_test." + std::to_string(getpid());
};

TEST_F(ConfigFile, HoldsTheDefaultPerspective) {
  EXPECT_EQ(errorsOfSaving(), "");
  EXPECT_EQ(text(), kHeaderLine + kDefault);
  EXPECT_STREQ(getStatusBar(), "");
}

TEST_F(ConfigFile, HasTheDefaultPermissions) {
  for (const mode_t mask : {0u, 022u, 077u}) {
    std::remove(kPath);
    const mode_t before = umask(mask);
    saveConfigToFile("~/.sdrc");
    umask(before);
    struct stat made = {};
    ASSERT_EQ(stat(kPath, &made), 0);
    EXPECT_EQ(made.st_mode & 07777, 0666 & ~mask);
  }
}

TEST_F(ConfigFile, IsTheSameWhateverItsNameIs) {
  for (const char *name : {target_.c_str(), "", "/nonexistent/x"}) {
    std::remove(kPath);
    EXPECT_EQ(errorsOfSaving(name), "");
    EXPECT_EQ(text(), kHeaderLine + kDefault);
  }
  EXPECT_NE(access(target_.c_str(), F_OK), 0);
  EXPECT_EQ(errorsOfSaving(nullptr), "");
}

TEST_F(ConfigFile, ReplacesALongerOne) {
  std::ofstream(kPath) << std::string(100'000, 'x');
  EXPECT_EQ(errorsOfSaving(), "");
  EXPECT_EQ(text(), kHeaderLine + kDefault);
}

TEST_F(ConfigFile, IsClosed) {
  const auto lowestFree = [] {
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
  };
  const int before = lowestFree();
  saveConfigToFile("~/.sdrc");
  EXPECT_EQ(lowestFree(), before);
  std::remove(kPath);
  ASSERT_EQ(mkdir(kPath, 0700), 0);
  saveConfigToFile("~/.sdrc");
  EXPECT_EQ(lowestFree(), before);
}

TEST_F(ConfigFile, ThatCannotBeOpenedIsToldInTheStatusBar) {
  ASSERT_EQ(mkdir(kPath, 0700), 0);
  EXPECT_EQ(errorsOfSaving(), "");
  EXPECT_STREQ(getStatusBar(), kFailure);
}

TEST_F(ConfigFile, ThatCannotBeOpenedIsToldForThreeRedraws) {
  const CursesScreen screen(4, 80);
  ASSERT_EQ(mkdir(kPath, 0700), 0);
  saveConfigToFile("~/.sdrc");
  for (int redraw = 0; redraw < 3; redraw++) {
    printStatusBar();
    EXPECT_STREQ(getStatusBar(), kFailure) << redraw;
  }
  printStatusBar();
  EXPECT_STREQ(getStatusBar(), "");
}

TEST_F(ConfigFile, BehindALinkIsLeftAlone) {
  std::ofstream(target_) << "precious";
  ASSERT_EQ(symlink(target_.c_str(), kPath), 0);
  EXPECT_EQ(errorsOfSaving(), "");
  EXPECT_STREQ(getStatusBar(), kFailure);
  EXPECT_EQ(text(), "precious");
}

TEST_F(ConfigFile, ThatFindsNoRoomIsToldOnStandardError) {
  std::string errors;
  {
    const test::SizeLimit limit(100);
    errors = errorsOfSaving();
  }
  EXPECT_EQ(errors, "/tmp/.sdrc: File too large\n");
  EXPECT_STREQ(getStatusBar(), "");
}

}  // namespace
