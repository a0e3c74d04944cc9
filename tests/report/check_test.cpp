// The calls that sondex-capture --check makes, and its verdicts on the answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "harness/child.h"
#include "harness/run.h"
#include "harness/stepped_device.h"
#include "harness/written_device.h"

namespace test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

// The verdict on a call, with what is said of it; empty where it was not made.
std::string verdictOn(const Outcome &outcome, const std::string &call) {
  for (const std::string &line : splitLines(outcome.output)) {
    if (!line.starts_with(call + ' ')) continue;
    return line.substr(std::min(line.size(), line.find_first_not_of(' ', call.size())));
  }
  return "";
}

std::string lastLine(const Outcome &outcome) {
  const std::vector<std::string> lines = splitLines(outcome.output);
  return lines.empty() ? "" : lines.back();
}

class CheckOf : public testing::TestWithParam<const char *> {};

TEST_P(CheckOf, AShippedDeviceFindsNothingDifferent) {
  const SteppedDevice device(GetParam(), SteppedDevice::Background::told);
  const Outcome outcome = runCapture({"--check"}, device.environment());
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, Not(HasSubstr("different: ")));
  EXPECT_THAT(lastLine(outcome), EndsWith(", 0 different"));
  EXPECT_EQ(verdictOn(outcome, "proc_listpids PROC_ALL_PIDS"), "fine");
  EXPECT_NE(verdictOn(outcome, "proc_pidinfo PROC_PIDTASKALLINFO of 1"), "");
}

INSTANTIATE_TEST_SUITE_P(Devices, CheckOf,
                         testing::Values("iphone", "ipad-16cpu", "old-32bit", "minimal",
                                         "locked-down", "kinds", "kernel-6153", "kernel-11417"),
                         [](const auto &row) {
                           std::string name = row.param;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

void expectNothingDifferent(std::optional<uid_t> user) {
  const Outcome outcome = runCapture({"--check"}, {}, user);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(lastLine(outcome), EndsWith(", 0 different")) << outcome;
  EXPECT_EQ(verdictOn(outcome, "sysctl kern.boottime"), "fine");
  EXPECT_EQ(verdictOn(outcome, "setupterm"), "fine");
  EXPECT_EQ(verdictOn(outcome, "/tmp"), "fine");
}

TEST(Check, OfThisMachineFindsNothingDifferent) {
  expectNothingDifferent(std::nullopt);
}

TEST(Check, OfThisMachineByAnotherUserFindsNothingDifferent) {
  if (!isRoot()) GTEST_SKIP() << "only root can become another user";
  expectNothingDifferent(kNobody);
}

TEST(Check, WithoutAKernelIsRefusedEverything) {
  const Outcome outcome = runCapture({"--check"}, {{"SONDEX_DEVICE", "none"}});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(verdictOn(outcome, "proc_listpids PROC_ALL_PIDS"), StartsWith("refused: "));
  EXPECT_THAT(lastLine(outcome), EndsWith(", 0 different"));
}

std::string deviceWith(const std::string &kernel, const std::string &process,
                       const std::string &events) {
  return "event = [" + events + "]\n" + R"(
[kernel]
version = "root:xnu-6153.142.1~4/RELEASE_ARM64_T8030"
)" + kernel +
         R"(
[clock]
mode = "stepped"
start = 2024-03-05T14:07:09Z
zone = "UTC"
[[process]]
pid = 1
name = "launchd"
)" + process;
}

Outcome check(const std::string &kernel, const std::string &process, const std::string &events) {
  const WrittenDevice device(deviceWith(kernel, process, events));
  return runCapture({"--check"}, device.environment());
}

TEST(Check, TellsAStructureOfAnotherSize) {
  const Outcome outcome = check(
      "", "",
      R"({ do = "fail", call = "proc_pidinfo", form = "PROC_PIDTASKALLINFO", error = "ENOMEM" })");
  EXPECT_TRUE(outcome.exitedWith(1)) << outcome;
  EXPECT_EQ(verdictOn(outcome, "proc_pidinfo PROC_PIDTASKALLINFO of 1"),
            "different: 232 bytes expected, 0 came");
  EXPECT_THAT(lastLine(outcome), EndsWith(", 1 different"));
}

TEST(Check, TellsWhatIsRefused) {
  const Outcome outcome = check("", "", R"({ do = "fail", call = "task_for_pid" },
    { do = "fail", call = "sysctl", form = "vm.loadavg", error = "EPERM" },
    { do = "fail", call = "ntstat", form = "connect", error = "EBUSY" })");
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(verdictOn(outcome, "task_for_pid of 1"), "refused: KERN_FAILURE (5)");
  EXPECT_EQ(verdictOn(outcome, "sysctl vm.loadavg"), "refused: Operation not permitted");
  EXPECT_EQ(verdictOn(outcome, "network statistics"), "refused: no connection: see standard error");
  EXPECT_THAT(lastLine(outcome), MatchesRegex("[0-9]+ fine, [0-9]+ refused to root, 0 different"));
}

TEST(Check, TellsFieldsOutOfRange) {
  const Outcome outcome = check("", R"(
work-queue = { threads = 1, running = 3, blocked = 0, state = 0 }
)",
                                "");
  EXPECT_TRUE(outcome.exitedWith(1)) << outcome;
  EXPECT_EQ(verdictOn(outcome, "proc_pidinfo PROC_PIDWORKQUEUEINFO of 1"),
            "different: 3 of 1 threads running");
  EXPECT_THAT(lastLine(outcome), EndsWith(", 1 different"));
}

TEST(Check, TellsEntryPointsThatAreMissing) {
  const Outcome outcome = check(
      R"(missing = ["proc_pid_rusage", "mach_vm_page_range_query", "memorystatus_get_level"])", "",
      "");
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  for (const char *call : {"symbol proc_pid_rusage", "symbol mach_vm_page_range_query",
                           "symbol memorystatus_get_level", "memorystatus_get_level",
                           "proc_pid_rusage version 3 of 1"}) {
    EXPECT_EQ(verdictOn(outcome, call), "refused: not in this system") << call;
  }
}

TEST(Check, TellsATerminalThatIsNotDescribed) {
  const Outcome outcome = runCapture({"--check"}, {{"TERM", "no-such-terminal"}});
  EXPECT_EQ(verdictOn(outcome, "setupterm"),
            "refused: no description for TERM \"no-such-terminal\"");
}

TEST(Capture, HelpsWhoAsks) {
  const Outcome outcome = runCapture({"--help"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, StartsWith("Usage: sondex-capture [-o FILE] [--stacks] "));
  EXPECT_THAT(outcome.error, IsEmpty());
}

TEST(Capture, RefusesArgumentsThatItDoesNotKnow) {
  const struct {
    std::vector<std::string> arguments;
    std::string message;
  } rows[] = {
      {{"--chek\x1b"}, "unknown argument '--chek?'"},
      {{"12x"}, "unknown argument '12x'"},
      {{"--check", "--chek\x1b"}, "nothing goes with --check: '--chek?'"},
      {{"--json", "--check"}, "nothing goes with --check: '--json'"},
      {{"-o"}, "something is missing behind '-o'"},
      {{"--memory"}, "something is missing behind '--memory'"},
      {{"--memory", "launchd"}, "no PID: 'launchd'"},
  };
  for (const auto &row : rows) {
    const Outcome outcome = runCapture(row.arguments);
    EXPECT_TRUE(outcome.exitedWith(2)) << outcome;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error, "sondex-capture: " + row.message + "\nTry 'sondex-capture --help'.\n");
  }
}

}  // namespace
}  // namespace test
