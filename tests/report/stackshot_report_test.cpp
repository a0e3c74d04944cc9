// Stackshots as reports of the whole program, on a device made for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "harness/run.h"
#include "harness/written_device.h"

namespace test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr char kProcessesWithStacks[] = R"(
[[process]]
pid = 1
name = "launchd"
threads = [
  { id = 0x1a2, name = "com.apple.main-thread", state = "running", user-time = 3, system-time = 0.25, user-stack = [0x1a2b3c4d5, "0x100004a10"] },
  { id = 0x1a3, wait-event = "0xffffffe0011aa3c8", continuation = "0xfffffff007b6a1c4", kernel-stack = ["0xfffffff007b6a1c4", "0xfffffff007c00010"] },
  { id = 0x1a4, name = "bad \u001b[31m", user-stack = [16] },
]

[[process]]
pid = 2
name = "narrow"
bits = 32
threads = [{ id = 0x1b0, user-stack = [0x8010] }]
)";

constexpr char kThreads[] =
    "\t  Thread container\n"
    "\t\t_THREAD_SNAPSHOT  Thread 128 bytes (128)\n"
    "\t\tTID: 0x1a2\n"
    "\t\tName:  \tcom.apple.main-thread\n"
    "\t\t_CPU_TIMES  User: 3000000 System: 250000 Runnable: 0\n"
    "\n"
    "\t\tARRAY  of 2 Elements of type _USER_STACKLR64 \n"
    "\t\t0x1a2b3c4d5\n"
    "\t\t0x100004a10\n"
    "\n"
    "\t  Thread container\n"
    "\t\t_THREAD_SNAPSHOT  Thread 128 bytes (128)\n"
    "\t\tTID: 0x1a3\tContinuation: 0xfffffff007b6a1c4\n"
    "\t\t_CPU_TIMES  User: 0 System: 0 Runnable: 0\n"
    "\n"
    "\t\tARRAY  of 2 Elements of type _KERN_STACKLR64 \n"
    "\t\t0xfffffff007b6a1c4\n"
    "\t\t0xfffffff007c00010\n"
    "\n"
    "\t  Thread container\n"
    "\t\t_THREAD_SNAPSHOT  Thread 128 bytes (128)\n"
    "\t\tTID: 0x1a4\n"
    "\t\tName:  \tbad ?[31m\n"
    "\t\t_CPU_TIMES  User: 0 System: 0 Runnable: 0\n"
    "\n"
    "\t\tARRAY  of 1 Elements of type _USER_STACKLR64 \n"
    "\t\t0x10\n"
    "\n";

class StackshotReport : public testing::Test {
 protected:
  // On the device above with something more at its top and at its end.
  static Outcome run(const std::vector<std::string> &arguments, const std::string &top = "",
                     const std::string &end = "") {
    const WrittenDevice device(top + kSteppedClock + kProcessesWithStacks + end);
    const Outcome outcome = runSondex(arguments, device.environment());
    EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
    return outcome;
  }
};

std::string failingWith(const std::string &error) {
  return "[[event]]\ndo = \"fail\"\ncall = \"stackshot_capture_with_config\"\nerror = \"" + error +
         "\"\n";
}

TEST_F(StackshotReport, OfOneProcessIsItsThreads) {
  EXPECT_EQ(run({"1", "threads"}).output, kThreads);
  EXPECT_EQ(run({"launchd", "threads"}).output, kThreads);
}

TEST_F(StackshotReport, StandsBehindTheDetails) {
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{"1"}, {"1", "all"}, {"launchd"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_THAT(outcome.output, HasSubstr("\n0 File descriptors: \t  Thread container\n"));
    EXPECT_THAT(outcome.output, EndsWith(kThreads));
  }
}

TEST_F(StackshotReport, IsNoPartOfOtherReports) {
  for (const char *word : {"fds", "ports", "regions", "tree"}) {
    EXPECT_THAT(run({"1", word}, "", failingWith("EBUSY")).output, Not(HasSubstr("RC: "))) << word;
  }
  EXPECT_THAT(run({"all", "threads"}, "", failingWith("EBUSY")).output,
              HasSubstr("PID: 1 (launchd)\nNO PROC THREADS YET\n"));
}

TEST_F(StackshotReport, IsTheSameEveryTime) {
  EXPECT_EQ(run({"1", "threads"}).output, run({"1", "threads"}).output);
}

// Addresses of 32 bits are named, and left.
TEST_F(StackshotReport, OfA32BitProcess) {
  EXPECT_EQ(run({"narrow", "threads"}).output,
            "\t  Thread container\n"
            "\t\t_THREAD_SNAPSHOT  Thread 128 bytes (128)\n"
            "\t\tTID: 0x1b0\n"
            "\t\t_CPU_TIMES  User: 0 System: 0 Runnable: 0\n"
            "\n"
            "\t\tARRAY  of 1 Elements of type _USER_STACKLR \n"
            "NOT YET!\n");
}

// Each message beside its number, whatever the report that it is part of.
TEST_F(StackshotReport, SaysWhyItFailed) {
  const struct {
    const char *error;
    const char *message;
    const char *result;
  } rows[] = {
      {"EPERM", "sswc: Operation not permitted\n", "RC: 1\n"},
      {"EINVAL", "sswc: Invalid argument\n", "RC: 22\n"},
      {"EBUSY", "sswc: BUSY\n", "RC: 16\n"},
      {"ENOTSUP", "sswc: NOTSUPP\n", "RC: 45\n"},
      {"ETIMEDOUT", "sswc: ETIMEDOUT\n", "RC: 60\n"},
      {"ENOMEM", "sswc: NOMEM\n", "RC: 12\n"},
  };
  for (const auto &row : rows) {
    const Outcome threads = run({"1", "threads"}, "", failingWith(row.error));
    EXPECT_EQ(threads.output, row.result);
    EXPECT_THAT(threads.error, EndsWith(row.message));
    const Outcome full = run({"1"}, "", failingWith(row.error));
    EXPECT_THAT(full.output, EndsWith(std::string("\n0 File descriptors: ") + row.result));
    EXPECT_THAT(full.error, HasSubstr(row.message));
  }
}

TEST_F(StackshotReport, SaysOnlyTheNumberOfOtherFailures) {
  const Outcome outcome = run({"1", "threads"}, "", failingWith("EIO"));
  EXPECT_EQ(outcome.output, "RC: 5\n");
  EXPECT_THAT(outcome.error, Not(HasSubstr("sswc")));
}

TEST_F(StackshotReport, IsForRootOnly) {
  const Outcome outcome = run({"1", "threads"}, "caller = 501\n");
  EXPECT_EQ(outcome.output, "RC: 1\n");
  EXPECT_THAT(outcome.error, HasSubstr("sswc: Operation not permitted\n"));
}

TEST_F(StackshotReport, OfAProcessThatIsNotThere) {
  const Outcome outcome = run({"99998", "threads"});
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.error, EndsWith("99998: No such process!\n"));
}

// Found at first, and gone when it is looked at.
TEST_F(StackshotReport, OfAProcessThatEnded) {
  const Outcome outcome =
      run({"1", "threads"}, "", "[[event]]\ndo = \"exit\"\nprocess = 1\nzombie = true\n");
  EXPECT_EQ(outcome.output, "RC: 22\n");
  EXPECT_THAT(outcome.error, HasSubstr("sswc: Invalid argument\n"));
}

TEST_F(StackshotReport, DebuggingDumpsTheBytesFirst) {
  const WrittenDevice device(std::string(kSteppedClock) + kProcessesWithStacks);
  Launch launch;
  launch.program = "/bin/sh";
  launch.arguments = {"-c", "exec \"$0\" \"$@\" 2>&1", sondexPath(), "1", "threads"};
  launch.environment = device.environment();
  launch.environment.emplace_back("ZDEBUG", "1");
  const Outcome outcome = test::run(launch);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  const size_t dump =
      outcome.output.find("0x0000: 0x07 0x58 0xA2 0x59 0x00 0x00 0x00 0x00 \t.X.Y....\n");
  ASSERT_NE(dump, std::string::npos) << outcome;
  EXPECT_THAT(outcome.output.substr(dump), EndsWith(kThreads));
  // The end of the data is the end of the dump.
  EXPECT_THAT(outcome.output.substr(dump), HasSubstr(": 0xED 0x58 0x91 0xF1 0x00"));
}

}  // namespace
}  // namespace test
