// The full report of one process and of all, on devices made for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "harness/kept.h"
#include "harness/run.h"
#include "harness/stepped_device.h"
#include "harness/written_device.h"

namespace test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kDetailedProcesses[] = R"(
[[process]]
pid = 0
name = "kernel_task"

[[process]]
pid = 1
name = "launchd"

[[process]]
pid = 40
name = "Hello"
path = "/Applications/Hello.app/Hello"
parent = 1
user = 501
real-user = 502
saved-user = 503
group-id = 20
real-group-id = 21
saved-group-id = 22
flags = ["application", "donor"]
virtual = "1890M"
resident = "48M"
user-time = 125
system-time = 62.5
unix-calls = 77
mach-calls = 88
disk-read = "3M"
disk-written = 5000
threads = 12
work-queue = { threads = 3, running = 1, blocked = 2, state = 0 }
sandbox = true
container = "/private/var/mobile/Containers/Data/Hello"
application-state = "background"

[[process]]
pid = 41
name = "grandparent"
parent = 40

[[process]]
pid = 43
name = "second"
parent = 40

[[process]]
pid = 44
name = "leaf"
parent = 41
)";

constexpr char kBegin[] =
    "-----------------\n"
    "Warning: Unable to get task port - Statistics will be limited\n";

// What is said of Hello between its first line and the threads' heading. The kernel counts time in
// units of 125/3 nanoseconds, which are taken as nanoseconds.
constexpr char kHello[] =
    "Process: 40\tName: Hello           \tParent:     1\tStatus: runnable\n"
    "Container: /private/var/mobile/Containers/Data/Hello\n"
    "Flags:   64-bit,App,Donor\n"
    "State: Background\n"
    "Process: 40\tName: Hello           \tParent:     1\tStatus: runnable\n"
    "\n"
    "UID:      501\tRUID:   502\tSVUID:   503\n"
    "GID:       20\tRGID:    21\tSVGID:    22\n"
    "\n"
    "Virtual size:      \t1890M (1981808640)\tResident size:          48M (50331648)\n"
    "Time:     04.50   =    03.00 (User)    +    01.50 (System)\n"
    "Syscalls:          77\tMach Traps:      88\n"
    "Disk I/O:       3072K Read\t          4K Written\n"
    "No Network I/O detected for this process\n"
    "\n"
    "#Threads: 12   Workqueues:3 threads (1 running, 2 blocked) State: 0\n"
    "Thread Info:\n"
    "\n";

// Below it, the tree in the order of the table: the kernel lists the newest process first, and the
// report of all sorts by use of the processor, of which there is none.
constexpr char kTree[] =
    "\n"
    "Process Hierarchy:\n"
    " 40    Hello \n"
    " +- 43    second\n"
    "+- 41    grandparent\n"
    "|   +- 44    leaf\n"
    "\n"
    "0 File descriptors: ";

class DetailsReport : public testing::Test {
 protected:
  // On the device above with something more at its top and at its end.
  static Outcome run(const std::vector<std::string> &arguments, const std::string &top = "",
                     const std::string &end = "") {
    const WrittenDevice device(top + kSteppedClock + kDetailedProcesses + end);
    return runSondex(arguments, device.environment());
  }
};

TEST_F(DetailsReport, OfOneProcessHasEverySection) {
  const std::string whole = std::string(kBegin) + kHello + kTree;
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{"40"}, {"40", "all"}, {"Hello"}, {"hello", "all"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
    EXPECT_THAT(outcome.output, StartsWith(whole));
  }
}

TEST_F(DetailsReport, OfAllHasEachProcess) {
  const Outcome outcome = run({"all"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, HasSubstr(std::string(kBegin) + kHello));
  EXPECT_THAT(
      outcome.output,
      HasSubstr(" 44    leaf  has no children\n\n0 File descriptors: NO PROC THREADS YET\n"));
  EXPECT_THAT(outcome.output, HasSubstr("Process: 41\tName: grandparent     \tParent:    40"));
  EXPECT_EQ(withoutSampling(outcome.error).find("sysctl:PROCARGS: Invalid argument\n"),
            withoutSampling(outcome.error).size() -
                2 * std::string("sysctl:PROCARGS: Invalid argument\n").size())
      << "of the kernel, and of the list's spare entry: " << outcome;
}

TEST_F(DetailsReport, OfTheKernelEndsBehindItsIdentity) {
  const Outcome outcome = run({"0"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output,
              StartsWith(std::string(kBegin) +
                         "Process: 0\tName: kernel_task     \tParent:     0\tStatus: runnable\n"));
  EXPECT_THAT(outcome.output, Not(HasSubstr("Flags")));
  EXPECT_THAT(outcome.error, HasSubstr("sysctl:PROCARGS: Invalid argument\n"));
}

// Another user's process: the kernel tells nothing about it.
TEST_F(DetailsReport, OfWhatIsNotPermittedEndsBehindItsIdentity) {
  const Outcome outcome = run({"1"}, "caller = 501\n");
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output,
              StartsWith(std::string(kBegin) +
                         "Process: 0\tName:                 \tParent:     0\tStatus: unknown\n"));
  EXPECT_THAT(outcome.output, Not(HasSubstr("Flags")));
  EXPECT_THAT(outcome.error, HasSubstr("sysctl:PROCARGS: Invalid argument\n"));
}

std::string failing(const std::string &call) {
  return std::string("[[event]]\nat = 0\ndo = \"fail\"\ncall = \"").append(call).append("\"\n");
}

TEST_F(DetailsReport, LeavesOutWhatTheKernelDoesNotTell) {
  const struct {
    const char *call;
    const char *line;
  } kRows[] = {
      {"sandbox_container_path_for_pid", "Container: "},
      {"process_policy", "\nState: "},
      {"proc_pid_rusage", "Disk I/O: "},
  };
  for (const auto &row : kRows) {
    const Outcome outcome = run({"40"}, "", failing(row.call));
    EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
    EXPECT_THAT(outcome.output, Not(HasSubstr(row.line)));
    EXPECT_THAT(outcome.output, HasSubstr(kTree));
  }
}

TEST_F(DetailsReport, HasNoDiskUseOnKernelsWithoutIt) {
  const Outcome outcome = run({"40"}, "kernel.version = \"Darwin, xnu-2050\"\n");
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, Not(HasSubstr("Disk I/O: ")));
}

TEST_F(DetailsReport, OfThreadsOfAllIsANotice) {
  const Outcome outcome = run({"all", "threads"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, HasSubstr("PID: 44 (leaf)\nNO PROC THREADS YET\n"));
}

const KeptFile kKeptAll("report/minimal-all.txt");

TEST(KeptDetails, OfAllAreTheSameInEveryRun) {
  const SteppedDevice device("minimal", SteppedDevice::Background::silent);
  const Outcome outcome = runSondex({"all"}, device.environment());
  EXPECT_EQ(kKeptAll.complaintAbout(asText(outcome)), "");
}

}  // namespace
}  // namespace test
