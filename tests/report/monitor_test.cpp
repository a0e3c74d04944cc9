// The monitor modes as a whole program on this machine: what they begin with, that it is seen at
// once through a pipe, and how they end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "harness/child.h"
#include "harness/file_handle.h"
#include "harness/run.h"
#include "harness/wait.h"

namespace test {
namespace {

constexpr char kFirstLine[] = "Running in Monitor mode; Press CTRL-C to exit\n";
constexpr char kPressureLine[] = "Monitoring VM Pressure\n";
constexpr char kUnknownPressure[] = "Wanted -1 pages, Reclaimed: 0\n";

class RunningMonitor {
 public:
  explicit RunningMonitor(const std::vector<std::string> &words,
                          const Environment &environment = {})
      : output_(makePipe()), child_(launchOf(words, environment)) {
    output_.writeEnd.close();
  }

  // Takes in what the program writes until it begins with `start`. False when it ends, or does not
  // by the deadline.
  bool awaitOutput(const std::string &start) {
    const Clock::time_point deadline = Clock::now() + kPatience;
    while (text_.size() < start.size()) {
      const auto left = std::chrono::duration_cast<Duration>(deadline - Clock::now()).count();
      pollfd waited = {output_.readEnd.get(), POLLIN, 0};
      if (left <= 0 || poll(&waited, 1, static_cast<int>(left)) <= 0) return false;
      char chunk[4096];
      const ssize_t length = read(output_.readEnd.get(), chunk, sizeof chunk);
      if (length <= 0) return false;
      text_.append(chunk, static_cast<size_t>(length));
    }
    return text_.compare(0, start.size(), start) == 0;
  }

  const std::string &text() const { return text_; }
  void stopReading() { output_.readEnd.close(); }
  Child &child() { return child_; }

 private:
  Launch launchOf(const std::vector<std::string> &words, const Environment &environment) {
    Launch launch;
    launch.program = sondexPath();
    launch.arguments = words;
    launch.environment = environment;
    launch.output = output_.writeEnd.get();
    return launch;
  }

  Pipe output_;
  Child child_;
  std::string text_;
};

class OnThisMachine : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(OnThisMachine, BeginsAtOnceAndEndsWithCtrlC) {
  RunningMonitor monitor(GetParam());
  const bool watchesPressure = GetParam()[0] == "vmmon";
  EXPECT_TRUE(monitor.awaitOutput(std::string(kFirstLine) + (watchesPressure ? kPressureLine : "")))
      << monitor.text();
  EXPECT_FALSE(monitor.child().poll().has_value());
  monitor.child().signal(SIGINT);
  const std::optional<Ending> ending = monitor.child().waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, SIGINT) << *ending;
  if (!watchesPressure) {
    EXPECT_EQ(monitor.text().find(kPressureLine), std::string::npos);
  }
}

INSTANTIATE_TEST_SUITE_P(Monitor, OnThisMachine,
                         testing::Values(std::vector<std::string>{"monitor"},
                                         std::vector<std::string>{"monitor", "vm"},
                                         std::vector<std::string>{"monitor", "process"},
                                         std::vector<std::string>{"vmmon"},
                                         std::vector<std::string>{"vmmon", "process", "more"}));

TEST(MonitorOfNothing, PressureIsUnknownAgainAndAgainAtLittleCost) {
  const Clock::time_point start = Clock::now();
  RunningMonitor monitor({"vmmon"}, {{"SONDEX_DEVICE", "none"}});
  EXPECT_TRUE(monitor.awaitOutput(std::string(kFirstLine) + kPressureLine + kUnknownPressure +
                                  kUnknownPressure + kUnknownPressure))
      << monitor.text();
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(2)) << "one line a second";
  monitor.child().signal(SIGINT);
  const std::optional<Ending> ending = monitor.child().waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, SIGINT) << *ending;
}

TEST(MonitorOfNothing, EndsWhenNobodyReads) {
  RunningMonitor monitor({"vmmon"}, {{"SONDEX_DEVICE", "none"}});
  EXPECT_TRUE(monitor.awaitOutput(std::string(kFirstLine) + kPressureLine)) << monitor.text();
  monitor.stopReading();
  const std::optional<Ending> ending = monitor.child().waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, SIGPIPE) << *ending;
}

TEST(MonitorOfNothing, ProcessesCannotBeWatched) {
  const Outcome outcome = runSondex({"monitor"}, {{"SONDEX_DEVICE", "none"}});
  EXPECT_TRUE(outcome.exitedWith(3)) << outcome;
  EXPECT_EQ(outcome.output, kFirstLine);
  EXPECT_THAT(withoutNetworkService(outcome.error),
              testing::EndsWith(std::string("kevent: ") + std::strerror(EOPNOTSUPP) + "\n"));
}

}  // namespace
}  // namespace test
