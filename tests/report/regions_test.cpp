// The region map as `sondex` prints it, of one process and of all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "harness/run.h"
#include "harness/written_device.h"

namespace test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kMappedProcesses[] = R"(
[[process]]
pid = 0
name = "kernel_task"
regions = [
  { address = 0x1000, size = "4K", protection = "r-x" },
  { address = 0x2000, size = "1M", tag = 12 },
  { address = 0x200000, size = "16K", tag = 24 },
  { address = 0x300000, size = "16K", tag = 200 },
]

[[process]]
pid = 1
name = "mapped"
user = 501
regions = [
  { address = 0x100000000, size = "16K", protection = "r-x", largest = "r-x", share = "cow", object = 0xabc, path = "/usr/libexec/{name}" },
  { address = 0x100004000, size = "4K", protection = "---", tag = 1 },
  { address = 0x100005000, size = "1M", tag = 1, share = "empty" },
  { address = 0x100200000, size = "1028K", tag = 7, protection = "r--", largest = "rw-", share = "shared", object = 0xffffffff },
  { address = 0x16f000000, size = "16K", tag = 30, protection = "---", largest = "---" },
  { address = 0x16f004000, size = "8K", tag = 30, protection = "-w-", share = "true-shared" },
  { address = 0x180000000, size = "3G", tag = 32, protection = "--x", share = "private-aliased" },
  { address = 0x280000000, size = "1G", tag = 245, protection = "-wx", share = "shared-aliased" },
  { address = 0x7fff00000000, size = "2049G", tag = 58, protection = "rwx", share = "large-page", path = "/private/var/a\u001b[2Jb" },
]

[[process]]
pid = 2
name = ""
regions = [{ address = 0x1000, size = "4K" }]

[[process]]
pid = 40
name = "bare"
)";

struct Line {
  const char *colour;
  const char *text;
};

// In 22 columns: a blank, the text of an unnamed tag, which is wider.
const std::vector<Line> kMapped = {
    {"\033[0;0m",
     "                       0x00000abc 000100000000-000100004000 [  16K] r-x/r-x COW "
     "/usr/libexec/mapped"},
    {"\033[0;37m",
     "MALLOC guard page      0x00000000 000100004000-000100005000 [   4K] ---/rwx PRV "},
    {"\033[0;34m",
     "MALLOC metadata        0x00000000 000100005000-000100105000 [1024K] rw-/rwx NUL "},
    {"\033[0;32m",
     "MALLOC_TINY            0xffffffff 000100200000-000100301000 [   1M] r--/rw- SHM "},
    {"\033[0;37m",
     "STACK_GUARD            0x00000000 00016f000000-00016f004000 [  16K] ---/--- PRV "},
    {"\033[0;36m",
     "Stack                  0x00000000 00016f004000-00016f006000 [   8K] -w-/rwx TRU "},
    {"\033[0;32m",
     "Shared PMAP            0x00000000 000180000000-000240000000 [   3G] --x/rwx ALI "},
    {"\033[0;31m",
     "User Tag: 245          0x00000000 000280000000-0002c0000000 [1024M] -wx/rwx S/A "},
    {"\033[0;31m",
     "Tag: 58 (Unknown, Tell Z!) 0x00000000 7fff00000000-81ff40000000 [2049G] rwx/rwx LRG "
     "/private/var/a?[2Jb"},
};

std::string plainMap() {
  std::string map;
  for (const Line &line : kMapped) map.append(line.text).append("\n");
  return map;
}

std::string colouredMap() {
  std::string map;
  for (const Line &line : kMapped) map.append(line.colour).append(line.text).append("\033[0;0m\n");
  return map;
}

// Without a list of extensions; with one the tags from 24 and 28 on are numbers.
std::string kernelMap(const char *tag24 = "?       ", const char *tag200 = "?       ") {
  return std::string(
             "Untagged (0)           0x00000000 000000001000-000000002000 [   4K] r-x/rwx PRV \n"
             "ZONE                   0x00000000 000000002000-000000102000 [1024K] rw-/rwx PRV \n")
      .append(tag24)
      .append("               0x00000000 000000200000-000000204000 [  16K] rw-/rwx PRV \n")
      .append(tag200)
      .append("               0x00000000 000000300000-000000304000 [  16K] rw-/rwx PRV \n");
}

class Regions : public testing::Test {
 protected:
  // On the device above with something more at its top and at its end.
  static Outcome run(const std::vector<std::string> &arguments, const Environment &environment = {},
                     const std::string &top = "", const std::string &end = "") {
    const WrittenDevice device(top + kSteppedClock + kMappedProcesses + end);
    return runSondex(arguments, device.environment(environment));
  }

  static void expect(const Outcome &outcome, const std::string &output) {
    EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
    EXPECT_EQ(outcome.output, output);
    EXPECT_EQ(withoutSampling(outcome.error), "");
  }
};

TEST_F(Regions, OfOneProcess) {
  expect(run({"1", "regions"}), plainMap() + "\n");
  expect(run({"mapped", "regions"}), plainMap() + "\n");
}

TEST_F(Regions, InColour) {
  const Environment colour = {{"ZCOLOR", "1"}};
  expect(run({"1", "regions"}, colour), colouredMap() + "\n");
  // The value of the variable does not count.
  expect(run({"1", "regions"}, {{"ZCOLOR", ""}}), colouredMap() + "\n");
}

TEST_F(Regions, OfAProcessWithoutAny) {
  const WrittenDevice device(std::string(kSteppedClock) + "[[process]]\nname = \"a\"\npid = 1\n");
  expect(runSondex({"1", "regions"}, device.environment()), "\n");
}

TEST_F(Regions, OfTheKernel) {
  expect(run({"0", "regions"}), kernelMap() + "\n");
  expect(run({"0", "regions"}, {}, "kernel.extensions = []\n"),
         kernelMap("Tag: 24 ", "Tag: 200") + "\n");
}

TEST_F(Regions, OfAllProcesses) {
  // In the order of the kernel's list, as none of them uses the processor. One without a name is
  // passed over.
  const auto wanted = [](const std::string &map) {
    return "PID: 40 (bare)\n\nPID: 1 (mapped)\n" + map + "\nPID: 0 (kernel_task)\n";
  };
  expect(run({"all", "regions"}), wanted(plainMap()) + kernelMap() + "\n");
  EXPECT_THAT(run({"all", "regions"}, {{"ZCOLOR", "1"}}).output, StartsWith(wanted(colouredMap())));
}

TEST_F(Regions, OfAnotherUsersProcessAreNotTold) {
  const std::string user = "caller = 501\n";
  expect(run({"1", "regions"}, {}, user), plainMap() + "\n");
  expect(run({"0", "regions"}, {}, user), "\n");
}

TEST_F(Regions, OfNoProcess) {
  const Outcome outcome = run({kNoPid, "regions"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(withoutSampling(outcome.error), std::string(kNoPid) + ": No such process!\n");
}

// Which processes there are the device says, and nobody else.
TEST_F(Regions, OfAProcessThatOnlyOneOfTwoMachinesHas) {
  int free = 99999;  // the largest that a device has
  while (getpgid(free) >= 0) free--;
  const std::string there = std::to_string(free);
  const WrittenDevice device(std::string(kSteppedClock) +
                             "[[process]]\nname = \"only\"\npid = " + there + "\n");
  expect(runSondex({there, "regions"}, device.environment()), "\n");

  const std::string here = std::to_string(getpid());
  EXPECT_EQ(withoutSampling(run({here, "regions"}).error), here + ": No such process!\n");
}

TEST_F(Regions, ThatTheKernelRefusesAreNotTold) {
  const std::string refused =
      "[[event]]\ndo = \"fail\"\ncall = \"proc_pidinfo\"\nform = \"PROC_PIDREGIONPATHINFO\"\n";
  expect(run({"1", "regions"}, {}, "", refused), "\n");
}

TEST_F(Regions, WithDebugOutputBeginWithThePort) {
  const Environment debug = {{"ZDEBUG", "1"}};
  const Outcome outcome = run({"1", "regions"}, debug);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  unsigned int port = 0;
  ASSERT_EQ(std::sscanf(outcome.output.c_str(), " KR : 0 GOT TASK %x\n", &port), 1) << outcome;
  EXPECT_NE(port, 0u);
  char first[64];
  std::snprintf(first, sizeof first, " KR : 0 GOT TASK %x\n", port);
  EXPECT_EQ(outcome.output, first + plainMap() + "\n");

  const std::string refused = "[[event]]\ndo = \"fail\"\ncall = \"task_name_for_pid\"\n";
  EXPECT_EQ(run({"1", "regions"}, debug, "", refused).output,
            " KR : 5 GOT TASK 0\n" + plainMap() + "\n");
}

TEST_F(Regions, AreASectionOfTheFullReport) {
  const std::string before = "Thread Info:\n\n";
  const std::string after = "\nProcess Hierarchy:\n";
  // Colour is on unless a word was given.
  EXPECT_THAT(run({"1"}).output, HasSubstr(before + colouredMap() + after));
  const Outcome plain = run({"1", "all"});
  EXPECT_THAT(plain.output, HasSubstr(before + plainMap() + after));
  EXPECT_THAT(plain.output, Not(HasSubstr("\033")));
  EXPECT_THAT(run({"1", "all"}, {{"ZCOLOR", "1"}}).output,
              HasSubstr(before + colouredMap() + after));
  EXPECT_THAT(run({"all", "all"}).output, HasSubstr(before + plainMap() + after));
}

// More text than the buffer holds.
TEST_F(Regions, ThatAreManyComeInPieces) {
  constexpr uint64_t kMany = 60'000;
  const WrittenDevice device(std::string(kSteppedClock) +
                             "[[process]]\nname = \"vast\"\npid = 1\n"
                             "regions = [{ address = 0x100000000, size = \"16K\", gap = \"16K\", "
                             "copies = 60000, tag = 2 }]\n");
  std::string wanted;
  for (uint64_t i = 0; i < kMany; i++) {
    char line[160];
    const unsigned long long start = 0x100000000 + i * 0x8000;
    std::snprintf(line, sizeof line,
                  "MALLOC_SMALL           0x00000000 %012llx-%012llx [  16K] rw-/rwx PRV \n", start,
                  start + 0x4000);
    wanted += line;
  }
  const Outcome outcome = runSondex({"1", "regions"}, device.environment());
  EXPECT_TRUE(outcome.exitedWith(0));
  EXPECT_TRUE(outcome.output == wanted + "\n")
      << outcome.output.size() << " bytes of " << wanted.size();
  // As a section too, and in the same place.
  const Outcome full = runSondex({"1", "all"}, device.environment());
  EXPECT_TRUE(full.exitedWith(0));
  EXPECT_NE(full.output.find("Thread Info:\n\n" + wanted + "\nProcess Hierarchy:\n"),
            std::string::npos);
}

// The whole map of every process of the devices that come with the program can be printed.
TEST(RegionsOfDevices, HaveNoUnknownTag) {
  for (const char *name : {"iphone", "old-32bit", "ipad-16cpu", "crowd", "kinds", "minimal"}) {
    const Outcome outcome = runSondex({"all", "regions"}, {{"SONDEX_DEVICE", name}});
    EXPECT_TRUE(outcome.exitedWith(0)) << outcome.error;
    EXPECT_THAT(outcome.output, HasSubstr("(launchd)\n")) << name;
    EXPECT_THAT(outcome.output, Not(HasSubstr("Unknown, Tell Z!"))) << name;
  }
}

}  // namespace
}  // namespace test
