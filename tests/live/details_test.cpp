// The details report on this machine's kernel, for processes that the test made itself: what it
// says against what ps and /proc say of them. Its list of descriptors is tested with those.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <sstream>

#include "harness/helper.h"
#include "harness/process_facts.h"
#include "harness/run.h"
#include "live/list_row.h"

namespace test {
namespace {

using testing::HasSubstr;
using testing::Not;

// By column, each of which is one word.
std::map<std::string, std::string> wordsOfPS(pid_t pid, const std::vector<std::string> &columns) {
  std::string wanted;
  for (const std::string &column : columns) wanted += (wanted.empty() ? "" : ",") + column + "=";
  std::map<std::string, std::string> values;
  std::istringstream words(askPS(pid, wanted));
  for (const std::string &column : columns) words >> values[column];
  return values;
}

std::string padded(const std::string &text, size_t width) {
  return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

std::string statusText(const std::string &state) {
  const std::map<std::string, std::string> texts = {
      {"R", "runnable"}, {"S", "sleeping"}, {"D", "sleeping"}, {"T", "stopped"}};
  const auto found = texts.find(state);
  return found == texts.end() ? "unexpected " + state : found->second;
}

std::string reportOn(pid_t pid, std::optional<uid_t> user = std::nullopt) {
  const Outcome outcome = runSondex({std::to_string(pid)}, {}, user);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(withoutSampling(outcome.error), isRoot() && !user ? "" : kNoStackshot);
  return outcome.output;
}

// The line that begins with a text, without that.
std::string lineAfter(const std::string &report, const std::string &start) {
  for (const std::string &line : splitLines(report)) {
    if (line.starts_with(start)) return line.substr(start.size());
  }
  ADD_FAILURE() << "no \"" << start << "\" in\n" << report;
  return "";
}

long hundredths(uint64_t ticks) {
  return static_cast<long>(ticks * 100 / static_cast<uint64_t>(sysconf(_SC_CLK_TCK)));
}

// A process at rest: all its figures stay as they are.
void expectReportToAgree(const Helper &helper, const std::string &name) {
  const pid_t pid = helper.pid();
  ASSERT_TRUE(comesToRest(pid));
  // Before the report, whose stackshot wakes the process for a moment, and has stack pages loaded
  // that it did not use itself.
  auto ps = wordsOfPS(pid, {"ppid", "s", "uid", "ruid", "svuid", "gid", "rgid", "svgid", "vsz",
                            "rss", "cputimes", "nlwp"});
  const std::optional<ProcessFacts> facts = readFacts(pid);
  ASSERT_TRUE(facts);
  const std::string report = reportOn(pid);

  const std::string identity =
      "Process: " + std::to_string(pid) + "\tName: " + name + std::string(16 - name.size(), ' ') +
      "\tParent: " + padded(ps["ppid"], 5) + "\tStatus: " + statusText(ps["s"]) + "\n";
  EXPECT_THAT(report, HasSubstr(identity + "Flags:   64-bit"));
  EXPECT_THAT(
      report,
      HasSubstr("UID:    " + padded(ps["uid"], 5) + "\tRUID: " + padded(ps["ruid"], 5) +
                "\tSVUID: " + padded(ps["svuid"], 5) + "\nGID:    " + padded(ps["gid"], 5) +
                "\tRGID: " + padded(ps["rgid"], 5) + "\tSVGID: " + padded(ps["svgid"], 5) + "\n"));

  const uint64_t virtualBytes = std::stoull(ps["vsz"]) * 1024;
  const uint64_t residentBytes = std::stoull(ps["rss"]) * 1024;
  EXPECT_THAT(report, HasSubstr("\nVirtual size:      \t" + virtualCell(virtualBytes) + " (" +
                                std::to_string(virtualBytes) + ")\tResident size:        "));
  EXPECT_THAT(report, HasSubstr("(" + std::to_string(residentBytes) + ")\n"));
  EXPECT_THAT(lineAfter(report, "#Threads: "), HasSubstr(ps["nlwp"]));

  static const std::regex times("  (.*)   = (.*) \\(User\\)    \\+ (.*) \\(System\\)");
  std::smatch part;
  const std::string line = lineAfter(report, "Time:");
  ASSERT_TRUE(std::regex_match(line, part, times)) << line;
  const std::optional<long> all = hundredthsOf(part[1]);
  const std::optional<long> user = hundredthsOf(part[2]);
  const std::optional<long> system = hundredthsOf(part[3]);
  ASSERT_TRUE(all && user && system) << line;
  EXPECT_EQ(*all, *user + *system);
  EXPECT_EQ(*all, hundredths(facts->processorTicks));
  EXPECT_EQ(*all / 100, std::stol(ps["cputimes"]));
  EXPECT_THAT(report, Not(HasSubstr("\nState: ")));
}

TEST(Details, OfASleepingProcess) {
  expectReportToAgree(Helper(Steps{}), "make_process");
}

TEST(Details, OfAStoppedProcess) {
  const Helper helper({"stop"});
  const auto isStopped = [&] {
    const std::optional<ProcessFacts> facts = readFacts(helper.pid());
    return facts && facts->state == 'T';
  };
  ASSERT_TRUE(waitUntil(isStopped));
  expectReportToAgree(helper, "make_process");
}

TEST(Details, OfOneThatHasComputedAndHasThreads) {
  expectReportToAgree(Helper({"memory", "300", "threads", "12", "name", "a b) R (c"}), "a b) R (c");
}

TEST(Details, OfManyIdentities) {
  if (!isRoot()) GTEST_SKIP() << "needs root to be several users";
  expectReportToAgree(Helper({"identities", "1001", "1002", "1003", "2001", "2002", "2003"}),
                      "make_process");
}

TEST(Details, OfAParentHaveItsZombies) {
  const Helper parent({"zombies", "2"});
  const std::string report = reportOn(parent.pid());
  ASSERT_EQ(parent.children().size(), 2u);
  for (const pid_t zombie : parent.children()) {
    EXPECT_THAT(report, testing::ContainsRegex(" " + std::to_string(zombie) + " +make_process\n"));
  }
}

TEST(Details, OfOneInAContainer) {
  if (!isRoot()) GTEST_SKIP() << "needs root to change a root directory";
  std::string root = "/tmp/details_test.XXXXXX";
  ASSERT_NE(mkdtemp(root.data()), nullptr);
  {
    const Helper confined({"root", root, "seccomp"});
    EXPECT_THAT(reportOn(confined.pid()), HasSubstr("\nContainer: " + root + "\n"));
    const Helper filtered({"seccomp"});
    EXPECT_THAT(reportOn(filtered.pid()), Not(HasSubstr("Container: ")));
  }
  EXPECT_EQ(rmdir(root.c_str()), 0);
}

TEST(Details, AreThereForTheProcesssOwnUser) {
  if (!isRoot()) GTEST_SKIP() << "needs root to be another user";
  // One that gave up being root keeps its descriptors to itself until it is another program.
  const Helper helper({"user", std::to_string(kNobody), "deleted", "listen", "tcp4"});
  const std::string report = reportOn(helper.pid(), kNobody);
  EXPECT_THAT(report, HasSubstr("UID:    65534\tRUID: 65534\tSVUID: 65534\n"));
  EXPECT_THAT(report, HasSubstr("3u  socket tcp4   127.0.0.1:"));
}

TEST(Details, OfAnothersProcessEndWithTheFirstLine) {
  if (!isRoot()) GTEST_SKIP() << "needs root to be another user";
  const Helper helper(Steps{});
  const Outcome outcome = runSondex({std::to_string(helper.pid())}, {}, kNobody);
  EXPECT_THAT(outcome.output, Not(HasSubstr("Flags:")));
  EXPECT_EQ(withoutSampling(outcome.error),
            std::string("sysctl:PROCARGS: Invalid argument\n").append(kNoStackshot));
}

// A kernel thread was started with nothing: the report ends after the first line on it.
TEST(Details, OfAKernelThread) {
  if (!isRoot()) GTEST_SKIP() << "needs root to look at one";
  const std::optional<ProcessFacts> facts = readFacts(2);
  if (!facts || facts->name != "kthreadd") GTEST_SKIP() << "none is to be seen from here";
  const Outcome outcome = runSondex({"2"});
  EXPECT_THAT(outcome.output, HasSubstr("Process: 2\tName: kthreadd        \tParent:     0\t"));
  EXPECT_THAT(outcome.output, Not(HasSubstr("Flags:")));
  EXPECT_EQ(withoutSampling(outcome.error), "sysctl:PROCARGS: Invalid argument\n");
}

}  // namespace
}  // namespace test
