// Processes that start and end by the hundred, and two thousand at once, while the program draws
// ten times a second: it neither falls over nor grows.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <regex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "harness/file_handle.h"
#include "harness/helper.h"
#include "harness/process_facts.h"
#include "harness/run.h"
#include "harness/terminal.h"

namespace fs = std::filesystem;

namespace test {
namespace {

constexpr int kProcessesPerSecond = 200;
// More than there are at any time of so many a second, also on a machine that is slow to end them.
constexpr int kProcessesAtATime = 400;
constexpr int kManyProcesses = 2000;

// What an allocator may keep back of memory that it once had.
constexpr uint64_t kSlack = uint64_t{2} << 20;
// A table of so many processes that is not given back is several times that.
constexpr uint64_t kSlackAfterMany = uint64_t{8} << 20;

// After so many, neither the current nor the previous table is one of before.
constexpr size_t kFramesToForget = 4;

int secondsOfChurn() {
  const char *wanted = std::getenv("SONDEX_STRESS_SECONDS");
  const int seconds = wanted != nullptr ? std::atoi(wanted) : 0;
  return seconds > 0 ? seconds : 10;
}

TerminalOptions largeTerminal(std::optional<uid_t> user = std::nullopt) {
  TerminalOptions options;
  options.columns = 200;
  options.rows = 60;
  options.user = user;
  return options;
}

struct Footprint {
  size_t descriptors;
  uint64_t residentBytes;
};

// Files of processes that are there may stay open, and whose they are is not the test's business.
bool isOfPresentProcess(const std::string &file) {
  int pid = 0;
  return std::sscanf(file.c_str(), "/proc/%d/", &pid) == 1 &&
         fs::exists("/proc/" + std::to_string(pid));
}

// Another user's files can't be told apart without the capability to look: all are counted then.
size_t countDescriptors(pid_t pid) {
  std::error_code error;
  size_t count = 0;
  for (const auto &entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error)) {
    const fs::path file = fs::read_symlink(entry.path(), error);
    const bool isClosed = error == std::errc::no_such_file_or_directory;
    if (!isClosed && !isOfPresentProcess(file.string())) count++;
  }
  return count;
}

Footprint footprintOf(pid_t pid) {
  const std::optional<ProcessFacts> facts = readFacts(pid);
  return facts ? Footprint{countDescriptors(pid), facts->residentBytes} : Footprint{0, 0};
}

void waitForFrames(Terminal &terminal, size_t count) {
  for (size_t i = 0; i < count; i++) {
    ASSERT_TRUE(terminal.drawAgain()) << terminal.text();
  }
}

// Has frames drawn for as long as `condition` does not hold.
void refreshUntil(Terminal &terminal, const std::function<bool()> &condition, Duration patience) {
  ASSERT_TRUE(terminal.drawUntil(condition, patience));
  ASSERT_FALSE(terminal.hasEnded()) << terminal.text();
}

void expectEndByCtrlC(Terminal &terminal) {
  terminal.press(kCtrlC);
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value()) << terminal.text();
  EXPECT_TRUE(ending->exitedWith(0)) << *ending << '\n' << terminal.text();
  EXPECT_TRUE(sameModes(terminal.modes(), terminal.modesBefore()));
}

Steps churn(int seconds) {
  return {"churn", std::to_string(kProcessesPerSecond), std::to_string(seconds)};
}

// The same steps as that user's, if there is one.
Steps stepsOf(std::optional<uid_t> user, Steps steps) {
  if (user) steps.insert(steps.begin(), {"user", std::to_string(*user)});
  return steps;
}

void churnFor(Terminal &terminal, int seconds, std::optional<uid_t> user) {
  Helper helper(stepsOf(user, churn(seconds)));
  refreshUntil(
      terminal, [&helper] { return helper.hasEnded(); }, Duration{seconds * 1000} + kPatience);
  const std::optional<Ending> ending = helper.waitForEnd(Duration{0});
  ASSERT_TRUE(ending.has_value());
  ASSERT_TRUE(ending->exitedWith(0)) << *ending;
}

void crowdFor(Terminal &terminal, int processes, size_t frames,
              std::optional<uid_t> user = std::nullopt) {
  const Helper crowd(stepsOf(user, {"children", std::to_string(processes)}));
  waitForFrames(terminal, frames);
}

// Both the program and the processes are the user's, if there is one.
void expectToStayAsItWas(int seconds, std::optional<uid_t> user) {
  constexpr int kWarmUpSeconds = 3;
  constexpr size_t kQuietFrames = 3;
  constexpr int kMostChurns = 4;
  // The program opens what it asks about sockets with when it first sees one, and keeps it: there
  // is one from the start.
  const FileHandle socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_TRUE(socket.isOpen());
  Terminal terminal(largeTerminal(user));
  ASSERT_EQ(terminal.awaitText("COMMAND"), "");
  // A table keeps the pages of all records that it has had.
  crowdFor(terminal, kProcessesAtATime, kFramesToForget, user);
  churnFor(terminal, kWarmUpSeconds, user);
  waitForFrames(terminal, kQuietFrames);
  const Footprint before = footprintOf(terminal.pid());
  ASSERT_GT(before.descriptors, 0u);
  const size_t framesBefore = terminal.repaints();

  // At least one frame a second; a slow build on a busy machine is given more of them.
  const size_t wantedFrames = framesBefore + static_cast<size_t>(seconds);
  for (int i = 0; i < kMostChurns && terminal.repaints() < wantedFrames; i++) {
    ASSERT_NO_FATAL_FAILURE(churnFor(terminal, seconds, user));
  }
  EXPECT_GE(terminal.repaints(), wantedFrames);
  waitForFrames(terminal, kQuietFrames);
  // A frame may be under way, with descriptors that it closes again.
  EXPECT_TRUE(terminal.waitFor([&] {
    return footprintOf(terminal.pid()).descriptors <= before.descriptors;
  })) << footprintOf(terminal.pid()).descriptors
      << " descriptors, " << before.descriptors << " before";
  if (!sondexIsSanitized()) {
    uint64_t residentBefore = before.residentBytes;
    uint64_t residentAfter = footprintOf(terminal.pid()).residentBytes;
    // Others' processes are in the tables too: a crowd of theirs makes the program grow once, but
    // what it loses makes it grow with each churn.
    for (int i = 1; i < kMostChurns && residentAfter > residentBefore + kSlack; i++) {
      ASSERT_NO_FATAL_FAILURE(churnFor(terminal, seconds, user));
      waitForFrames(terminal, kQuietFrames);
      residentBefore = std::exchange(residentAfter, footprintOf(terminal.pid()).residentBytes);
    }
    EXPECT_LE(residentAfter, residentBefore + kSlack);
  }
  testing::Test::RecordProperty("frames", static_cast<int>(terminal.repaints()));
  testing::Test::RecordProperty("residentKiBBefore", static_cast<int>(before.residentBytes >> 10));
  testing::Test::RecordProperty("residentKiBAfter",
                                static_cast<int>(footprintOf(terminal.pid()).residentBytes >> 10));
  expectEndByCtrlC(terminal);
}

TEST(Churn, LeavesTheProgramAsItWas) {
  expectToStayAsItWas(secondsOfChurn(), std::nullopt);
}

TEST(Churn, LeavesTheProgramOfAUserAsItWas) {
  if (!isRoot()) GTEST_SKIP() << "the other test has a user's program";
  constexpr int kSeconds = 3;
  expectToStayAsItWas(kSeconds, kNobody);
}

TEST(Churn, CanBeListedAgainAndAgain) {
  const Helper helper(churn(60));
  for (int i = 0; i < 5; i++) {
    const Outcome list = listProcesses();
    EXPECT_TRUE(list.exitedWith(0)) << list;
    EXPECT_EQ(withoutSampling(list.error), "");
  }
  const Outcome ports = runSondex({"all", "ports"});
  EXPECT_TRUE(ports.exitedWith(0)) << ports.error;
}

// As the first line tells it, -1 while there is none. It counts the list's spare entry too.
int shownProcesses(const Terminal &terminal) {
  static const std::regex count("([0-9]+) processes");
  std::smatch part;
  const std::string line = terminal.rowText(0);
  return std::regex_search(line, part, count) ? std::stoi(part[1]) : -1;
}

// Others may come and go, and the list's spare entry be taken.
bool isCountRight(const Terminal &terminal) {
  constexpr int kTolerance = 20;
  return std::abs(shownProcesses(terminal) - static_cast<int>(allProcesses().size())) <= kTolerance;
}

TEST(ManyProcesses, AreCounted) {
  Terminal terminal(largeTerminal());
  ASSERT_EQ(terminal.awaitText("COMMAND"), "");
  const int fewShown = shownProcesses(terminal);
  ASSERT_GT(fewShown, 0);

  const Helper many({"children", std::to_string(kManyProcesses)});
  ASSERT_EQ(many.children().size(), static_cast<size_t>(kManyProcesses));
  refreshUntil(
      terminal, [&] { return shownProcesses(terminal) > kManyProcesses && isCountRight(terminal); },
      kPatience);
  expectEndByCtrlC(terminal);
}

TEST(ManyProcesses, GoAsTheyCame) {
  Terminal terminal(largeTerminal());
  ASSERT_EQ(terminal.awaitText("COMMAND"), "");
  const auto crowd = [&terminal] { crowdFor(terminal, kManyProcesses, 2); };
  const auto settle = [&terminal] {
    refreshUntil(
        terminal, [&] { return isCountRight(terminal); }, kPatience);
    waitForFrames(terminal, kFramesToForget);
  };
  crowd();
  settle();
  const Footprint before = footprintOf(terminal.pid());
  for (int i = 0; i < 3; i++) crowd();
  settle();
  EXPECT_TRUE(terminal.waitFor(
      [&] { return footprintOf(terminal.pid()).descriptors <= before.descriptors; }));
  if (!sondexIsSanitized()) {
    EXPECT_LE(footprintOf(terminal.pid()).residentBytes, before.residentBytes + kSlackAfterMany);
  }
  expectEndByCtrlC(terminal);
}

}  // namespace
}  // namespace test
