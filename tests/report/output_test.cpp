// What is printed once, where it can't be written: it is said, and is a failure.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "harness/file_handle.h"
#include "harness/run.h"
#include "harness/size_limit.h"
#include "harness/written_device.h"

namespace test {
namespace {

constexpr char kProcesses[] = R"(
[[process]]
pid = 1
name = "launchd"
[[process]]
pid = 50
name = "many"
copies = 200
)";

// A report of a few lines, one that is longer than any buffer, and what is not a report.
const std::vector<std::vector<std::string>> kPrinted = {
    {"50", "ports"}, {"all"}, {"all", "fds"}, {"gestalt"}, {}};

class LostOutput : public testing::TestWithParam<std::vector<std::string>> {
 protected:
  LostOutput() {
    launch_.program = sondexPath();
    launch_.arguments = GetParam();
    // Devices of characters count as terminals, to which plain lists don't go.
    launch_.environment = device_.environment({{"nc", "1"}});
  }

  // Ends with this said at last.
  void expectFailure(const std::string &reason) {
    Pipe error = makePipe();
    launch_.error = error.writeEnd.get();
    Child child(launch_);
    error.writeEnd.close();
    std::string said;
    char buffer[4096];
    for (ssize_t length = 0; (length = read(error.readEnd.get(), buffer, sizeof buffer)) > 0;) {
      said.append(buffer, static_cast<size_t>(length));
    }
    const std::optional<Ending> ending = child.waitForEnd();
    ASSERT_TRUE(ending.has_value());
    EXPECT_TRUE(ending->exitedWith(1)) << *ending;
    EXPECT_TRUE(said.ends_with("standard output: " + reason + "\n")) << said;
  }

  const WrittenDevice device_{std::string(kSteppedClock) + kProcesses};
  Launch launch_;
};

TEST_P(LostOutput, OnAFullDiskIsAFailure) {
  const FileHandle file(open(testing::TempDir().c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
  ASSERT_GE(file.get(), 0);
  launch_.output = file.get();
  const SizeLimit limit(4);
  expectFailure("File too large");
}

TEST_P(LostOutput, WithoutAReaderIsAFailureWhereTheSignalIsIgnored) {
  Pipe pipe = makePipe();
  pipe.readEnd.close();
  launch_.output = pipe.writeEnd.get();
  launch_.ignoredSignals = {SIGPIPE};
  expectFailure("Broken pipe");
}

TEST_P(LostOutput, WithoutAReaderEndsQuietly) {
  Pipe pipe = makePipe();
  pipe.readEnd.close();
  launch_.output = pipe.writeEnd.get();
  Child child(launch_);
  const std::optional<Ending> ending = child.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, SIGPIPE) << *ending;
}

INSTANTIATE_TEST_SUITE_P(Of, LostOutput, testing::ValuesIn(kPrinted), [](const auto &row) {
  std::string name;
  for (const std::string &word : row.param) name += word;
  return name.empty() ? "List" : name;
});

// On a full disk as such, which is a device of characters.
TEST(FullDisk, IsSaid) {
  const WrittenDevice device(std::string(kSteppedClock) + kProcesses);
  const FileHandle full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  Launch launch;
  launch.program = sondexPath();
  launch.environment = device.environment();
  launch.output = full.get();
  for (const char *target : {"50", "all", "gestalt"}) {
    launch.arguments = {target};
    Child child(launch);
    const std::optional<Ending> ending = child.waitForEnd();
    ASSERT_TRUE(ending.has_value());
    EXPECT_TRUE(ending->exitedWith(1)) << *ending;
  }
}

// What the sampler says of process after process stands above the report, whole, and once.
TEST(Messages, OfTheSampleAreEachSaidOnceWithTheirCount) {
  const WrittenDevice device(std::string(kSteppedClock) + R"(
[[process]]
pid = 1
name = "launchd"
[[process]]
pid = 50
name = "many"
copies = 4999
[[event]]
do = "fail"
call = "proc_pidinfo"
form = "PROC_PIDTASKALLINFO"
)");
  // Of the 5,000 processes and the list's spare entry.
  const Outcome report = runSondex({"all", "tree"}, device.environment());
  EXPECT_TRUE(report.exitedWith(0)) << report;
  EXPECT_EQ(report.error, "proc_pidinfo: Input/output error (5001 times)\n");
  // A plain list is sampled twice.
  const Outcome list = runSondex({}, device.environment({{"nc", "1"}}));
  EXPECT_TRUE(list.exitedWith(0));
  EXPECT_EQ(splitLines(list.error)[0], "proc_pidinfo: Input/output error (10002 times)");
}

}  // namespace
}  // namespace test
