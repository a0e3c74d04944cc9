// Killing, stopping and continuing: processes of a simulated device, and of the machine that the
// test runs on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "harness/helper.h"
#include "harness/process_facts.h"
#include "screen/display.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::Optional;

constexpr char kSure[] = "Are you sure?";
constexpr char kWhich[] = "Which PID do you want to kill today?";

class SimulatedControl : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(display.begin(), "");
    ASSERT_EQ(display.sortByPid(), "");
    ASSERT_THAT(display.highlightedPid(), Optional(kHello));
  }
  // Of the record with PID 0, which counts as none.
  void selectNone() {
    ASSERT_EQ(display.press("r"), "");
    ASSERT_THAT(display.highlightedPid(), Optional(0));
  }
  void answerSure(std::string_view answer) {
    ASSERT_EQ(display.ask("K", kSure), "");
    ASSERT_EQ(display.press(std::string(answer) + "\n"), "");
  }

  Display display;
};

TEST_F(SimulatedControl, KillsTheSelectedOneAfterAY) {
  answerSure("y");
  EXPECT_THAT(display.pids(), ElementsAre(1, 0));
}

TEST_F(SimulatedControl, LooksAtTheFirstCharacterOfTheAnswer) {
  answerSure("yes, sure");
  EXPECT_THAT(display.pids(), ElementsAre(1, 0));
}

TEST_F(SimulatedControl, KillsNothingOtherwise) {
  for (const char *answer : {"Y", "n", "", " y"}) {
    SCOPED_TRACE(answer);
    answerSure(answer);
    EXPECT_THAT(display.pids(), ElementsAre(kHello, 1, 0));
    EXPECT_EQ(display.status(), "");
  }
}

TEST_F(SimulatedControl, KeepsTheSelectionAboveTheList) {
  ASSERT_EQ(display.press(kUpKey), "");
  answerSure("y");
  EXPECT_THAT(display.pids(), ElementsAre(1, 0));
}

TEST_F(SimulatedControl, AsksForAPidWhenNoneIsSelected) {
  selectNone();
  ASSERT_EQ(display.ask("K", kWhich), "");
  display.terminal().press("40\n");
  ASSERT_EQ(display.terminal().awaitText(kSure), "");
  ASSERT_EQ(display.press("y\n"), "");
  EXPECT_THAT(display.pids(), ElementsAre(0, 1));
}

TEST_F(SimulatedControl, AsksForAPidWhenTheSelectedOneIsNotOnTheScreen) {
  ASSERT_EQ(display.answer("/", "Enter a filter expression:", "launchd"), "");
  ASSERT_THAT(display.pids(), ElementsAre(1));
  ASSERT_EQ(display.highlightedPid(), std::nullopt);
  ASSERT_EQ(display.ask("K", kWhich), "");
  ASSERT_EQ(display.press("\n"), "");
  EXPECT_EQ(display.terminal().findRow("Process: "), -1);
  ASSERT_EQ(display.press("\n"), "") << "Enter opens nothing";
  EXPECT_EQ(display.terminal().findRow("Process: "), -1);
  ASSERT_EQ(display.answer("/", "Enter a filter expression:", ""), "");
  EXPECT_THAT(display.pids(), ElementsAre(kHello, 1, 0));
}

// Typed at once: by the time of the second key the first one is on the screen.
TEST_F(SimulatedControl, ActsOnWhatTheKeyBeforeItSelected) {
  display.terminal().press(std::string(kDownKey) + "K");
  ASSERT_EQ(display.terminal().awaitText(kSure), "");
  EXPECT_THAT(display.highlightedPid(), Optional(1));
  ASSERT_EQ(display.press("n\n"), "");
}

TEST_F(SimulatedControl, RefusesWhatIsNoPid) {
  selectNone();
  for (const char *key : {"K", "t", "T"}) {
    for (const char *answer : {"abc", "", "0", "x40"}) {
      SCOPED_TRACE(std::string(key) + " " + answer);
      ASSERT_EQ(display.answer(key, kWhich, answer), "");
      EXPECT_EQ(display.status(), "Not a valid PID.. Try again?");
      EXPECT_TRUE(display.hasStatusBar());
      ASSERT_EQ(display.press(kIdleKey), "");
      EXPECT_EQ(display.status(), "Not a valid PID.. Try again?");
      ASSERT_EQ(display.press(kIdleKey), "");
      EXPECT_EQ(display.status(), "");
    }
  }
  EXPECT_THAT(display.pids(), ElementsAre(0, 1, kHello));
}

TEST_F(SimulatedControl, SaysNothingOfAProcessThatIsNotThere) {
  selectNone();
  ASSERT_EQ(display.ask("K", kWhich), "");
  display.terminal().press("4242\n");
  ASSERT_EQ(display.terminal().awaitText(kSure), "");
  ASSERT_EQ(display.press("y\n"), "");
  EXPECT_THAT(display.pids(), ElementsAre(0, 1, kHello));
  EXPECT_EQ(display.status(), "");
}

// Of those whose threads all sleep: what runs is shown as running even when it was stopped.
TEST(SimulatedStatus, FollowsStopAndContinue) {
  constexpr pid_t kAsleep = 50;
  Display display({"kinds", 132, 50, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  ASSERT_EQ(display.answer("/", "Enter a filter expression:", "fds-0"), "");
  ASSERT_EQ(display.press(kDownKey), "");
  ASSERT_THAT(display.highlightedPid(), Optional(kAsleep));
  for (const char *keys : {"tT", "Tt"}) {
    EXPECT_EQ(display.cellOf(kAsleep, Column::status), "S");
    ASSERT_EQ(display.press(std::string(1, keys[0])), "");
    EXPECT_EQ(display.cellOf(kAsleep, Column::status), "T");
    ASSERT_EQ(display.press(std::string(1, keys[1])), "");
    EXPECT_EQ(display.cellOf(kAsleep, Column::status), "S");
  }
}

TEST_F(SimulatedControl, StopsAtOnceWhatIsNamed) {
  selectNone();
  ASSERT_EQ(display.answer("t", kWhich, "40"), "");
  EXPECT_EQ(display.cellOf(kHello, Column::status), "T");
}

// A process of the test's own, alone in the list and selected. The display stands still, as on a
// busy machine the places in the list change with each sample.
class LiveControl : public testing::Test {
 protected:
  LiveControl() : name_(uniqueName("ctl")), helper(std::vector<std::string>{"name", name_}) {}
  void SetUp() override {
    if (!isRoot()) GTEST_SKIP() << "needs root, to be sure of the columns";
    ASSERT_EQ(display.begin(), "");
    ASSERT_EQ(display.answer("/", "Enter a filter expression:", name_), "");
    select();
  }
  // Freezes the display, and goes to the one that is shown.
  void select() {
    ASSERT_EQ(display.press("F"), "");
    ASSERT_THAT(display.pids(), ElementsAre(helper.pid()));
    for (const std::string_view key : {kDownKey, kUpKey}) {
      if (display.highlightedPid() == helper.pid()) break;
      ASSERT_EQ(display.press(key), "");
    }
    ASSERT_THAT(display.highlightedPid(), Optional(helper.pid()));
  }
  void thaw() { ASSERT_EQ(display.press("F"), ""); }
  bool awaitState(char state) const {
    return waitUntil([&] {
      const std::optional<ProcessFacts> facts = readFacts(helper.pid());
      return facts && facts->state == state;
    });
  }

  const std::string name_;
  Helper helper;
  Display display{{"", 132, 50, false}};
};

TEST_F(LiveControl, KillsAfterAY) {
  ASSERT_EQ(display.answer("K", kSure, "y"), "");
  const std::optional<Ending> ending = helper.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, SIGKILL);
  thaw();
  EXPECT_TRUE(display.pids().empty()) << display.terminal().text();
}

TEST_F(LiveControl, KillsNothingOtherwise) {
  for (const char *answer : {"Y", "n", ""}) ASSERT_EQ(display.answer("K", kSure, answer), "");
  thaw();
  EXPECT_THAT(display.pids(), ElementsAre(helper.pid()));
  EXPECT_FALSE(helper.hasEnded());
}

TEST_F(LiveControl, StopsAndContinues) {
  for (const char *keys : {"tT", "Tt"}) {
    ASSERT_EQ(display.press(std::string(1, keys[0])), "");
    EXPECT_TRUE(awaitState('T'));
    thaw();
    EXPECT_EQ(display.cellOf(helper.pid(), Column::status), "T");
    select();
    ASSERT_EQ(display.press(std::string(1, keys[1])), "");
    EXPECT_TRUE(awaitState('S'));
    thaw();
    EXPECT_EQ(display.cellOf(helper.pid(), Column::status), "S");
    select();
  }
}

}  // namespace
}  // namespace test
