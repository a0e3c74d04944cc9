// What sondex makes of its arguments: targets that are there and are not, words that are reports
// and are not, and with which status it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>

#include "harness/helper.h"
#include "harness/process_facts.h"
#include "harness/run.h"

namespace test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

void expectSilentFailure(const Outcome &outcome, int status, const std::string &said) {
  EXPECT_TRUE(outcome.exitedWith(status)) << outcome;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(withoutSampling(outcome.error), said);
}

std::string usageOfReports() {
  const std::string program = sondexPath();
  return "Usage: " + program +
         " [pid] [binary|core|fds|ports|net|tree|threads|regions|all]\n"
         "           or\n       " +
         program + " vmmon\n";
}

TEST(Name, OfNoProcess) {
  if (!isRoot()) GTEST_SKIP() << "needs root: others get a hint";
  const std::string name = uniqueName("none");
  expectSilentFailure(runSondex({name}), 1, "Can't find process matching '" + name + "'\n");
}

TEST(Name, OfNoProcessForAnotherUser) {
  if (!isRoot()) GTEST_SKIP() << "needs root, to become someone else";
  const std::string name = uniqueName("none");
  expectSilentFailure(
      runSondex({name, "ports"}, {}, kNobody), 1,
      "Can't find process matching '" + name + "' (also, you're not root, so maybe that's why?)\n");
}

TEST(Name, OfNoProcessIsMadeSafe) {
  const Outcome outcome = runSondex({"\x1b[2Jx", "ports"});
  EXPECT_TRUE(outcome.exitedWith(1)) << outcome;
  EXPECT_THAT(outcome.error, testing::HasSubstr("Can't find process matching '?[2Jx'"));
  EXPECT_THAT(outcome.error, Not(testing::HasSubstr("\x1b")));
}

TEST(Name, OfTwoProcesses) {
  const std::string name = uniqueName("two");
  const Helper first({"name", name});
  const Helper second({"name", name});
  const auto matches = [&name](const Helper &one, const Helper &other) {
    return "There are multiple matches for '" + name + "' - " + std::to_string(one.pid()) + ", " +
           std::to_string(other.pid()) + "\n";
  };
  const Outcome outcome = runSondex({name, "ports"});
  EXPECT_TRUE(outcome.exitedWith(2)) << outcome;
  EXPECT_EQ(outcome.output, "");
  // In the order of the kernel's list.
  EXPECT_THAT(withoutSampling(outcome.error),
              AnyOf(matches(first, second), matches(second, first)));
}

TEST(Name, OfAProcess) {
  const std::string name = uniqueName("one");
  const Helper helper({"name", name});
  const Outcome outcome = runSondex({name, "ports"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "NOT YET\n");
  EXPECT_EQ(withoutSampling(outcome.error), "");
}

TEST(Name, IsComparedWithoutCase) {
  std::string name = uniqueName("low");
  const Helper helper({"name", name});
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  const Outcome outcome = runSondex({name, "ports"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "NOT YET\n");
}

TEST(Name, IsComparedWhole) {
  const std::string name = uniqueName("abc");
  const Helper helper({"name", name});
  const std::string part = name.substr(0, name.size() - 1);
  EXPECT_TRUE(runSondex({part, "ports"}).exitedWith(1));
  EXPECT_TRUE(runSondex({name + "d", "ports"}).exitedWith(1));
}

TEST(Name, IsComparedUpToFifteenCharacters) {
  std::string name = uniqueName("");
  name.resize(15, 'n');
  const Helper helper({"name", name});
  const Outcome longer = runSondex({name + " and more", "ports"});
  EXPECT_TRUE(longer.exitedWith(0)) << longer;
  EXPECT_EQ(longer.output, "NOT YET\n");
  EXPECT_TRUE(runSondex({name.substr(0, 14), "ports"}).exitedWith(1));
}

TEST(Name, OfAProcessWithBlanksAndParentheses) {
  const std::string name = uniqueName(") (");
  const Helper helper({"name", name});
  const Outcome outcome = runSondex({name, "ports"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "NOT YET\n");
}

TEST(Word, UnknownAfterAPid) {
  const Helper helper({});
  expectSilentFailure(runSondex({std::to_string(helper.pid()), "nonsense"}), 5, usageOfReports());
}

TEST(Word, UnknownAfterAName) {
  const std::string name = uniqueName("word");
  const Helper helper({"name", name});
  expectSilentFailure(runSondex({name, "nonsense"}), 5, usageOfReports());
}

TEST(Word, UnknownAfterAll) {
  expectSilentFailure(runSondex({"all", "nonsense"}), 5, usageOfReports());
}

TEST(Word, EmptyOrOfAnotherCase) {
  expectSilentFailure(runSondex({"all", ""}), 5, usageOfReports());
  expectSilentFailure(runSondex({"all", "PORTS"}), 5, usageOfReports());
}

TEST(Pid, OfNoProcess) {
  expectSilentFailure(runSondex({kNoPid}), 0, std::string(kNoPid) + ": No such process!\n");
  expectSilentFailure(runSondex({kNoPid, "ports"}), 0,
                      std::string(kNoPid) + ": No such process!\n");
  // Before the word is looked at.
  expectSilentFailure(runSondex({kNoPid, "nonsense"}), 0,
                      std::string(kNoPid) + ": No such process!\n");
}

TEST(Pid, IsTheNumberThatAnArgumentBeginsWith) {
  const std::string pid = kNoPid;
  expectSilentFailure(
      runSondex({pid + "abc", "ports"}), 0,
      "'" + pid + "abc' is taken as process " + pid + "\n" + pid + ": No such process!\n");
}

TEST(Pid, OfAProcessThatEnded) {
  std::string pid;
  {
    const Helper helper({});
    pid = std::to_string(helper.pid());
  }
  expectSilentFailure(runSondex({pid, "ports"}), 0, pid + ": No such process!\n");
}

TEST(Pid, OfAProcess) {
  const Helper helper({});
  const Outcome outcome = runSondex({std::to_string(helper.pid()), "ports"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "NOT YET\n");
  EXPECT_EQ(withoutSampling(outcome.error), "");
}

TEST(Pid, Zero) {
  const Outcome outcome = runSondex({"0", "ports"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "NOT YET\n");
}

TEST(Usage, IsPrintedForH) {
  const Outcome outcome = runSondex({"-h"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "");
  // When the program was built is not for a test to know: three letters, day, year, time.
  static const std::regex built(
      "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 1-3][0-9] 20[0-9]{2}, "
      "[0-2][0-9]:[0-5][0-9]:[0-5][0-9]");
  const std::string program = sondexPath();
  EXPECT_EQ(std::regex_replace(withoutSampling(outcome.error), built, "DATE, TIME"),
            "Usage: " + program +
                " [pid|processname|all] [binary|core|fds|ports|net|tree|threads|regions|all]\n"
                "           or\n       " +
                program +
                " monitor  [vm|process]\n"
                "\nThis is Z's Sondex v2 (TLV), compiled on DATE, TIME\n");
}

TEST(All, TreePrintsNothing) {
  const Outcome outcome = runSondex({"all", "tree"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(withoutSampling(outcome.error), "");
}

TEST(All, TreeOfOneProcessPrintsNothing) {
  const Helper helper({});
  const Outcome outcome = runSondex({std::to_string(helper.pid()), "tree"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "");
}

TEST(All, PortsPrintsAPairForEachProcess) {
  const std::string name = uniqueName("p");
  const Helper helper({"name", name});
  const Helper escaping({"name",
                         "\x1b[1m"
                         "e"});
  const Helper parent({"zombies", "1"});
  const std::vector<pid_t> before = allProcesses();
  const Outcome outcome = runSondex({"all", "ports"});
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;

  const std::vector<std::string> lines = splitLines(outcome.output);
  static const std::regex heading("PID: ([0-9]+) \\(.+\\)");
  ASSERT_EQ(lines.size() % 2, 0u) << outcome;
  std::multiset<pid_t> listed;
  for (size_t i = 0; i < lines.size(); i += 2) {
    std::smatch part;
    ASSERT_TRUE(std::regex_match(lines[i], part, heading)) << lines[i];
    EXPECT_EQ(lines[i + 1], "NOT YET");
    listed.insert(std::stoi(part[1]));
  }
  EXPECT_THAT(lines, Contains("PID: " + std::to_string(helper.pid()) + " (" + name + ")"));
  EXPECT_THAT(lines, Contains("PID: " + std::to_string(escaping.pid()) + " (?[1me)"));
  EXPECT_EQ(listed.count(parent.children().at(0)), 1u);
  EXPECT_EQ(withoutSampling(outcome.error), "");
  if (!isRoot()) return;  // other users' processes are not listed
  for (const pid_t pid : before) {
    const std::optional<ProcessFacts> facts = readFacts(pid);
    if (!facts) continue;
    EXPECT_EQ(listed.count(pid), 1u) << facts->name;
  }
}

TEST(All, PortsOfAnotherUserAreHisOwn) {
  if (!isRoot()) GTEST_SKIP() << "needs root, to become someone else";
  const Helper roots({});
  const Helper nobodys({"user", std::to_string(kNobody)});
  const Outcome outcome = runSondex({"all", "ports"}, {}, kNobody);
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const std::vector<std::string> lines = splitLines(outcome.output);
  const auto heading = [](const Helper &helper) {
    return "PID: " + std::to_string(helper.pid()) + " (make_process)";
  };
  EXPECT_THAT(lines, Contains(heading(nobodys)));
  EXPECT_THAT(lines, Not(Contains(heading(roots))));
}

TEST(Output, ThatIsClosedDoesNoHarm) {
  Launch launch;
  launch.program = "/bin/sh";
  launch.arguments = {"-c", "exec \"$0\" all ports >&- 2>&-", sondexPath()};
  const Outcome outcome = run(launch);
  ASSERT_TRUE(outcome.ending.has_value()) << outcome;
  EXPECT_EQ(outcome.ending->signal, 0) << outcome;
}

TEST(Screen, ThatCanNotBeOpenedIsExplained) {
  // Without the variable "nc", a list goes to the screen even when standard output is a pipe.
  const Outcome outcome = runSondex({}, withoutLeakDetection({{"TERM", "dumb-unknown"}}));
  ASSERT_TRUE(outcome.ending.has_value()) << outcome;
  EXPECT_EQ(outcome.ending->signal, 0);
  EXPECT_NE(outcome.ending->status, 0);
  EXPECT_THAT(
      outcome.output,
      testing::StartsWith(
          "If you are reading this, curses full screen initialization failed. This is either "
          "because $TERM is not set properly,\nor because you are missing the terminfo files "
          "(which aren't present on iOS).\nYou can fix either easily if you read the README.\n"
          "TERM is \"dumb-unknown\".\nIts description was looked for in "));
}

}  // namespace
}  // namespace test
