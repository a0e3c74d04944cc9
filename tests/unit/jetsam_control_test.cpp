#include "control/jetsam_control.h"

// Curses first, with wide characters.
#include "tests/unit/curses_screen.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>

#include "host/darwin/errors.h"
#include "proc/process_table.h"
#include "terminal/status_bar.h"
#include "tests/unit/sampled_machine.h"
#include "tests/unit/typed_keys.h"
#include "tests/unit/wake_pipe.h"

namespace {

using namespace sondex;

constexpr int32_t kPid = 123;

// Something may happen right before a question is answered.
class ChangingMachine : public sampled::SampledMachine {
 public:
  std::function<void(std::string_view question)> before;

 protected:
  host::Errno admit(const char *question) override {
    if (before) before(question);
    return SampledMachine::admit(question);
  }
};

class JetsamControl : public fake_machine::MachineTest<ChangingMachine> {
 protected:
  JetsamControl() {
    nodelay(stdscr, TRUE);
    machine.entries = {{1, 20, 0, -1, 0}, {kPid, 10, 99, 1400, 0}};
    machine.limits[kPid] = {1400, 1, 1200, 0};
    shown("locationd");
  }

  // The only process of the list on the screen.
  static void shown(std::string_view name) {
    releaseProcessTable(load(g_previous_process_information));
    ProcessRecord *table = allocateProcessTable(1);
    table[0].taskAllInfo.pbsd.pbi_pid = kPid;
    name.copy(table[0].taskAllInfo.pbsd.pbi_comm, sizeof table[0].taskAllInfo.pbsd.pbi_comm - 1);
    store(g_process_information, table);
    store(num_procs, 1);
    store(g_previous_process_information, table);
    store(previous_num_procs, 1);
  }

  // The status bar's text after these answers; one that nobody asked for is the test's failure.
  static std::string outcome(const std::string &answers, int32_t pid = kPid) {
    clearStatusBar();
    typeKeys(keysOf(answers));
    controlJetsam(pid);
    EXPECT_EQ(wgetch(stdscr), ERR) << "an answer too many";
    const std::string status = getStatusBar();
    EXPECT_LT(status.size(), 80u) << "a bar of 80 cells stays empty";
    return status;
  }

  // The last question that these answers lead to, as it stands in the bottom row.
  static std::string question(const std::string &answers, int32_t pid = kPid) {
    CursesScreen::empty();
    typeKeys(keysOf(answers));
    controlJetsam(pid);
    const std::string row = CursesScreen::text(23);
    return row.substr(0, row.find_last_not_of(' ') + 2);
  }

  void expectUntouched() const {
    EXPECT_FALSE(machine.lastPlace.has_value());
    EXPECT_EQ(machine.limits.at(kPid).memlimit_active, 1400);
    EXPECT_EQ(machine.limits.at(kPid).memlimit_inactive, 1200);
  }

  DisplayStateGuard guard;
  TypedInput input{""};
  CursesScreen screen{24, 80};
};

TEST_F(JetsamControl, SetsWhatIsAnswered) {
  EXPECT_EQ(outcome("3\n50\n"), "123 (locationd) is set: band 3, limit 50 MB");
  ASSERT_TRUE(machine.lastPlace.has_value());
  EXPECT_EQ(machine.lastPlace->band, 3);
  EXPECT_EQ(machine.lastPlace->userData, 99u);
  const darwin::memorystatus_memlimit_properties &limits = machine.limits[kPid];
  EXPECT_EQ(limits.memlimit_active, 50);
  EXPECT_EQ(limits.memlimit_active_attr, 1u);
  EXPECT_EQ(limits.memlimit_inactive, 50);
  EXPECT_EQ(limits.memlimit_inactive_attr, 0u);
}

TEST_F(JetsamControl, TheBandAlone) {
  EXPECT_EQ(outcome("3\n\n"), "123 (locationd) is set: band 3, limit 1400 MB");
  EXPECT_EQ(machine.limits[kPid].memlimit_inactive, 1200);
}

TEST_F(JetsamControl, TheLimitAlone) {
  EXPECT_EQ(outcome("\n50\n"), "123 (locationd) is set: band 10, limit 50 MB");
  EXPECT_FALSE(machine.lastPlace.has_value());
}

TEST_F(JetsamControl, NothingAnsweredChangesNothing) {
  EXPECT_EQ(outcome("\n\n"), "Nothing changed: band 10, limit 1400 MB");
  expectUntouched();
}

TEST_F(JetsamControl, SaysWhatTheKernelMadeOfIt) {
  EXPECT_EQ(outcome("1\n-5\n"), "123 (locationd) is set: band 0, limit none");
  EXPECT_EQ(outcome("-1\n0\n"), "123 (locationd) is set: band 18, limit 0 MB");
}

TEST_F(JetsamControl, QuestionsShowThePresentValues) {
  EXPECT_EQ(question("x\n"), "Jetsam band of 123 (locationd), now 10: x ");
  EXPECT_EQ(question("\nx\n"), "Memory limit in MB of 123 (locationd), now 1400: x ");
  machine.entries[1].limit = -1;
  EXPECT_EQ(question("\nx\n"), "Memory limit in MB of 123 (locationd), now none: x ");
  EXPECT_EQ(question("x\n", 1), "Jetsam band of 1, now 20: x ") << "not on the screen";
}

TEST_F(JetsamControl, TextsAreSafeAndFitIntoARow) {
  shown(
      "a\x1b[2J\xff"
      "bcdefghijkl");
  machine.entries[1].priority = 210;
  machine.entries[1].limit = INT32_MAX;
  EXPECT_EQ(question("x\n"), "Jetsam band of 123 (a?[2J?bcdefghij), now 210: x ");
  EXPECT_EQ(question("\nx\n"), "Memory limit in MB of 123 (a?[2J?bcdefghij), now 2147483647: x ");
  EXPECT_EQ(outcome("\n\n"), "Nothing changed: band 210, limit 2147483647 MB");
}

TEST_F(JetsamControl, WhatIsNoNumberChangesNothing) {
  const std::string ending = " has to be a whole number of at most 32 bits";
  for (const char *answer : {"abc", "5x", "5 6", "5 ", "0x5", "1.5", "-", " ", "2147483648",
                             "-2147483649", "99999999999999999999", "5\x7f"}) {
    SCOPED_TRACE(answer);
    // The limit is not asked for any more.
    EXPECT_EQ(outcome(std::string(answer) + "\n"), "Nothing changed: the band" + ending);
    EXPECT_EQ(outcome("3\n" + std::string(answer) + "\n"), "Nothing changed: the limit" + ending);
  }
  expectUntouched();
  EXPECT_EQ(machine.entries[1].priority, 10);
}

TEST_F(JetsamControl, OtherNumbersAreTheKernelsToRefuse) {
  for (const char *answer : {"22", "-3", "2147483647", "-2147483648"}) {
    EXPECT_EQ(outcome(std::string(answer) + "\n\n"),
              "Band refused: Invalid argument; band 10, limit 1400 MB")
        << answer;
  }
  EXPECT_EQ(outcome("\n2147483647\n"), "123 (locationd) is set: band 10, limit 2147483647 MB");
  EXPECT_EQ(outcome("\n -2147483648\n"), "123 (locationd) is set: band 10, limit none");
}

TEST_F(JetsamControl, ARefusedBandLeavesTheLimitToBeSet) {
  machine.refusals["setMemoryStatusPlace"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(outcome("3\n50\n"), "Band refused: Operation not permitted; band 10, limit 50 MB");
  EXPECT_EQ(machine.limits[kPid].memlimit_active, 50);
}

TEST_F(JetsamControl, ARefusedLimitLeavesTheBandAsItWasSet) {
  for (const char *question : {"memoryLimits", "setMemoryLimits"}) {
    machine.refusals = {{question, darwin::DARWIN_ENOTSUP}};
    machine.entries[1].priority = 10;
    EXPECT_EQ(outcome("3\n50\n"), "Limit refused: Operation not supported; band 3, limit 1400 MB");
  }
  EXPECT_EQ(machine.limits[kPid].memlimit_active, 1400);
}

TEST_F(JetsamControl, BothRefused) {
  machine.refusals["setMemoryStatusPlace"] = darwin::DARWIN_EPERM;
  machine.refusals["memoryLimits"] = darwin::DARWIN_ENOTSUP;
  EXPECT_EQ(outcome("3\n50\n"),
            "Band refused: Operation not permitted; limit refused: Operation not supported");
}

TEST_F(JetsamControl, AsksNothingOfAProcessThatIsNotInTheList) {
  EXPECT_EQ(outcome("", 4242), "4242 is not in the jetsam list");
  EXPECT_EQ(outcome("", -5), "-5 is not in the jetsam list");
  machine.entries.pop_back();
  EXPECT_EQ(outcome(""), "123 (locationd) is not in the jetsam list");
}

TEST_F(JetsamControl, AsksNothingWhenTheListCantBeRead) {
  machine.privileges = {false};
  EXPECT_EQ(sampled::errorOutputOf([] {
              EXPECT_EQ(outcome(""), "The jetsam list can't be read: Operation not permitted");
            }),
            "");
}

TEST_F(JetsamControl, AProcessThatEndsWhileItIsAskedAbout) {
  int lists = 0;
  machine.before = [&](std::string_view question) {
    if (question == "memoryStatusList" && ++lists == 2) machine.entries.pop_back();
  };
  EXPECT_EQ(outcome("3\n50\n"), "123 (locationd) has ended meanwhile");
  expectUntouched();
}

TEST_F(JetsamControl, AProcessThatEndsWithoutAnAnswer) {
  int lists = 0;
  machine.before = [&](std::string_view question) {
    if (question == "memoryStatusList" && ++lists == 2) machine.entries.pop_back();
  };
  EXPECT_EQ(outcome("\n\n"), "123 (locationd) has ended meanwhile");
}

TEST_F(JetsamControl, AProcessThatEndsBetweenBandAndLimit) {
  // It may stand in the list for a moment more.
  machine.refusals["memoryLimits"] = darwin::DARWIN_ESRCH;
  EXPECT_EQ(outcome("3\n50\n"), "123 (locationd) has ended meanwhile");
  machine.refusals = {{"setMemoryStatusPlace", darwin::DARWIN_ESRCH}};
  EXPECT_EQ(outcome("3\n50\n"), "123 (locationd) has ended meanwhile");
}

TEST_F(JetsamControl, WhatIsEndingCountsAsEnded) {
  machine.refusals["setMemoryStatusPlace"] = darwin::DARWIN_EBUSY;
  machine.before = [&](std::string_view question) {
    if (question == "setMemoryStatusPlace") machine.entries.pop_back();
  };
  EXPECT_EQ(outcome("3\n\n"), "123 (locationd) has ended meanwhile");
}

TEST_F(JetsamControl, WhatCantBeReadBackIsSaid) {
  for (const auto &[answers, status] :
       {std::pair{"3\n\n", "123 (locationd) is set: not read back: Operation not permitted"},
        std::pair{"\n\n", "Nothing changed: not read back: Operation not permitted"},
        std::pair{"22\n\n",
                  "Band refused: Invalid argument; not read back: Operation not permitted"}}) {
    machine.refusals.clear();
    int asked = 0;
    machine.before = [&](std::string_view question) {
      if (question != "memoryStatusList") return;
      // At the start, before a band is set, afterwards.
      const int last = std::string_view(answers) == "\n\n" ? 2 : 3;
      if (++asked == last) machine.refusals[std::string(question)] = darwin::DARWIN_EPERM;
    };
    EXPECT_EQ(outcome(answers), status);
  }
}

TEST_F(JetsamControl, MessagesStayForFiveRedraws) {
  outcome("\n\n");
  for (int redraw = 0; redraw < 5; redraw++) printStatusBar();
  EXPECT_STRNE(getStatusBar(), "");
  printStatusBar();
  EXPECT_STREQ(getStatusBar(), "");
}

}  // namespace
