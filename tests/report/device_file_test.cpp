// The choice of a device file by SONDEX_DEVICE, and how the program ends when there is none or it
// has a mistake: before it starts anything, with the mistake and nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "harness/run.h"

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr int kUsageStatus = 64;
constexpr int kDataStatus = 65;

constexpr char kTwoProcesses[] =
    "[[process]]\nname = \"launchd\"\npid = 1\n[[process]]\nname = \"thedaemon\"\npid = 42\n";

class DeviceFolder : public testing::Test {
 protected:
  DeviceFolder() {
    const auto *info = testing::UnitTest::GetInstance()->current_test_info();
    folder_ =
        fs::path(testing::TempDir()) / ("devices-" + std::to_string(getpid()) + "-" + info->name());
    fs::create_directories(folder_);
  }
  ~DeviceFolder() override { fs::remove_all(folder_); }

  std::string write(const std::string &name, const std::string &text) const {
    const std::string path = (folder_ / name).string();
    std::ofstream(path) << text;
    return path;
  }

  Outcome runWith(const std::string &device) const {
    return runSondex(
        {}, {{"nc", "1"}, {"SONDEX_DEVICE", device}, {"SONDEX_DEVICES", folder_.string()}});
  }

  fs::path folder_;
};

TEST_F(DeviceFolder, IsWhereANameIsLookedFor) {
  write("mine.toml", kTwoProcesses);
  const Outcome outcome = runWith("mine");
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, testing::HasSubstr("thedaemon"));
  // Once at the start, once for the list.
  const std::string noIdentity =
      "Error loading Gestalt: /usr/lib/libMobileGestalt.dylib: cannot open shared object file: "
      "No such file or directory\n";
  EXPECT_EQ(withoutSampling(outcome.error), noIdentity + noIdentity);
}

TEST_F(DeviceFolder, IsNotWhereAPathIsLookedFor) {
  const std::string path = write("mine", kTwoProcesses);
  const Outcome outcome = runWith(path);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, testing::HasSubstr("thedaemon"));

  write("other.toml", kTwoProcesses);
  const Outcome ending = runWith("other.toml");
  EXPECT_TRUE(ending.exitedWith(kDataStatus)) << ending;
  EXPECT_EQ(ending.error, "other.toml: can't be read: No such file or directory\n");
}

TEST_F(DeviceFolder, IsListedForAnUnknownName) {
  write("zebra.toml", kTwoProcesses);
  write("ant.toml", kTwoProcesses);
  write("readme.txt", "");
  const Outcome outcome = runWith("bee");
  EXPECT_TRUE(outcome.exitedWith(kUsageStatus)) << outcome;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.error, "sondex: SONDEX_DEVICE=bee: no such device; known: ant, zebra, none\n");
}

TEST_F(DeviceFolder, AMistakeEndsTheProgram) {
  const std::string path = write("wrong.toml", "[[process]]\nname = \"a\"\nnice = 21\n");
  const std::string expected = ":3: process[0].nice: found 21; expected a number from -20 to 20\n";
  for (const std::string &device : {std::string("wrong"), path}) {
    SCOPED_TRACE(device);
    const Outcome outcome = runWith(device);
    EXPECT_TRUE(outcome.exitedWith(kDataStatus)) << outcome;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error, path + expected);
  }
}

TEST_F(DeviceFolder, TextsOfAMistakeDoNotReachTheTerminalAsTheyAre) {
  const std::string path = write("bad\x1b[2J.toml", "[[process]]\nname = 5\n");
  const Outcome outcome = runWith(path);
  EXPECT_TRUE(outcome.exitedWith(kDataStatus)) << outcome;
  EXPECT_THAT(outcome.error, testing::Not(testing::HasSubstr("\x1b")));
  EXPECT_THAT(outcome.error, testing::HasSubstr("/bad?[2J.toml:2: process[0].name: found 5; "));
}

TEST(SourceTree, HoldsOnlyDevicesThatLoad) {
  const Outcome unknown = runSondex({"-h"}, {{"SONDEX_DEVICE", "no-such-device"}});
  ASSERT_TRUE(unknown.exitedWith(kUsageStatus)) << unknown;
  const std::string known = "known: ";
  std::string names = unknown.error.substr(unknown.error.find(known) + known.size());
  size_t count = 0;
  for (size_t end = names.find(", "); end != std::string::npos; end = names.find(", ")) {
    const std::string name = names.substr(0, end);
    SCOPED_TRACE(name);
    const Outcome outcome = runSondex({"0", "ports"}, {{"SONDEX_DEVICE", name}});
    EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
    names.erase(0, end + 2);
    ++count;
  }
  EXPECT_GT(count, 0u);
  EXPECT_EQ(names, "none\n");
}

}  // namespace
}  // namespace test
