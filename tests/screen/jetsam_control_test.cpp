// The dialogue about band and memory limit: of processes of simulated devices, and of one of the
// machine that the test runs on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <string_view>

#include "harness/helper.h"
#include "harness/process_facts.h"
#include "screen/display.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::Optional;

constexpr char kWhichToSet[] = "Which PID do you want to set band and limit of?";
// What the device says once it runs for five seconds.
constexpr char kBandNow[] = "Jetsam band of 40 (Hello), now 3:";
constexpr char kLimitNow[] = "Memory limit in MB of 40 (Hello), now 1400:";

// Sorted by PID, with the process selected that the tests are about.
void beginSelected(Display &display) {
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  ASSERT_THAT(display.highlightedPid(), Optional(kHello));
}

void answerBoth(Display &display, std::string_view band, std::string_view limit) {
  ASSERT_EQ(display.ask("J", kBandNow), "");
  display.terminal().press(std::string(band) + "\n");
  ASSERT_EQ(display.terminal().awaitText(kLimitNow), "");
  ASSERT_EQ(display.press(std::string(limit) + "\n"), "");
}

class JetsamKey : public testing::Test {
 protected:
  void SetUp() override { beginSelected(display); }
  // Of the record with PID 0, which counts as none.
  void selectNone() {
    ASSERT_EQ(display.press("r"), "");
    ASSERT_THAT(display.highlightedPid(), Optional(0));
  }
  void expectListed(std::string_view band, std::string_view limit) const {
    EXPECT_EQ(display.cellOf(kHello, Column::band), band);
    EXPECT_EQ(display.cellOf(kHello, Column::limit), limit);
  }

  Display display;
};

TEST_F(JetsamKey, SetsBandAndLimit) {
  expectListed("3", "1400");
  answerBoth(display, "12", "50");
  EXPECT_EQ(display.status(), "40 (Hello) is set: band 12, limit 50 MB");
  EXPECT_TRUE(display.hasStatusBar());
  expectListed("12", "50");
}

TEST_F(JetsamKey, LeavesWhatIsNotAnswered) {
  answerBoth(display, "12", "");
  EXPECT_EQ(display.status(), "40 (Hello) is set: band 12, limit 1400 MB");
  expectListed("12", "1400");
  ASSERT_EQ(display.ask("J", "Jetsam band of 40 (Hello), now 12:"), "");
  display.terminal().press("\n");
  ASSERT_EQ(display.terminal().awaitText(kLimitNow), "");
  ASSERT_EQ(display.press("0\n"), "");
  EXPECT_EQ(display.status(), "40 (Hello) is set: band 12, limit none");
  expectListed("12", "??");
}

TEST_F(JetsamKey, ChangesNothingWithoutAnAnswer) {
  answerBoth(display, "", "");
  EXPECT_EQ(display.status(), "Nothing changed: band 3, limit 1400 MB");
  expectListed("3", "1400");
}

TEST_F(JetsamKey, ChangesNothingForWhatIsNoNumber) {
  const std::string ending = " has to be a whole number of at most 32 bits";
  for (const char *answer : {"abc", "12x", "1.5", "2147483648"}) {
    SCOPED_TRACE(answer);
    ASSERT_EQ(display.answer("J", kBandNow, answer), "");
    EXPECT_EQ(display.status(), "Nothing changed: the band" + ending);
    answerBoth(display, "12", answer);
    EXPECT_EQ(display.status(), "Nothing changed: the limit" + ending);
    expectListed("3", "1400");
  }
}

TEST_F(JetsamKey, SaysWhatTheKernelRefuses) {
  answerBoth(display, "22", "50");
  EXPECT_EQ(display.status(), "Band refused: Invalid argument; band 3, limit 50 MB");
  expectListed("3", "50");
}

TEST_F(JetsamKey, TakesTheBandsThatStandForOthers) {
  for (const auto &[answer, band] :
       {std::pair{"-1", "18"}, std::pair{"-2", "0"}, std::pair{"2", "0"}, std::pair{"21", "21"}}) {
    ASSERT_EQ(display.ask("J", "Jetsam band of 40 (Hello), now "), "");
    display.terminal().press(std::string(answer) + "\n");
    ASSERT_EQ(display.terminal().awaitText(kLimitNow), "");
    ASSERT_EQ(display.press("\n"), "");
    expectListed(band, "1400");
  }
}

TEST_F(JetsamKey, AsksForAPidWhenNoneIsSelected) {
  selectNone();
  ASSERT_EQ(display.ask("J", kWhichToSet), "");
  display.terminal().press("40\n");
  ASSERT_EQ(display.terminal().awaitText(kBandNow), "");
  display.terminal().press("12\n");
  ASSERT_EQ(display.terminal().awaitText(kLimitNow), "");
  ASSERT_EQ(display.press("50\n"), "");
  EXPECT_EQ(display.status(), "40 (Hello) is set: band 12, limit 50 MB");
  expectListed("12", "50");
}

TEST_F(JetsamKey, RefusesWhatIsNoPid) {
  selectNone();
  for (const char *answer : {"abc", "", "0"}) {
    SCOPED_TRACE(answer);
    ASSERT_EQ(display.answer("J", kWhichToSet, answer), "");
    EXPECT_EQ(display.status(), "Not a valid PID.. Try again?");
    ASSERT_EQ(display.press(kIdleKey), "");
    EXPECT_EQ(display.status(), "Not a valid PID.. Try again?");
    ASSERT_EQ(display.press(kIdleKey), "");
    EXPECT_EQ(display.status(), "");
  }
}

TEST_F(JetsamKey, AsksNothingOfAProcessThatIsNotInTheList) {
  selectNone();
  ASSERT_EQ(display.answer("J", kWhichToSet, "4242"), "");
  EXPECT_EQ(display.status(), "4242 is not in the jetsam list");
}

TEST_F(JetsamKey, OfTheOtherCaseDoesNothing) {
  ASSERT_EQ(display.press("j"), "");
  EXPECT_EQ(display.status(), "");
}

TEST_F(JetsamKey, IsLeftByCtrlC) {
  ASSERT_EQ(display.ask("J", kBandNow), "");
  display.terminal().press("12");
  display.terminal().press(kCtrlC);
  EXPECT_EQ(display.complaintAboutEnd(), "");
}

TEST(JetsamKeyAtEightyColumns, QuestionsAndAnswersFitIntoTheirRow) {
  Display display({"minimal", 80, 24});
  beginSelected(display);
  const int last = display.terminal().rows() - 1;
  ASSERT_EQ(display.ask("J", kBandNow), "");
  EXPECT_EQ(display.terminal().findRow(kBandNow), last);
  display.terminal().press("22\n");
  ASSERT_EQ(display.terminal().awaitText(kLimitNow), "");
  EXPECT_EQ(display.terminal().findRow(kLimitNow), last);
  display.terminal().press("2147483647");
  ASSERT_EQ(display.terminal().awaitText(std::string(kLimitNow) + " 2147483647"), "");
  ASSERT_EQ(display.press("\n"), "");
  EXPECT_EQ(display.status(), "Band refused: Invalid argument; band 3, limit 2147483647 MB");
}

// Whose calls fail with these events.
std::string deviceWith(const std::string &events) {
  return std::string(kSteppedClock) + events + R"(
[[process]]
pid = 1
name = "launchd"
[[process]]
pid = 40
name = "Hello"
user = 501
band = 3
limit = 1400
)";
}

std::string failing(const std::string &form, const std::string &error) {
  return "[[event]]\ndo = \"fail\"\ncall = \"memorystatus_control\"\nform = \"MEMORYSTATUS_CMD_" +
         form + "\"\nprocess = 40\nerror = \"" + error + "\"\n";
}

struct Failure {
  const char *name;
  std::string events;
  const char *status;
  const char *band;
  const char *limit;
};

class JetsamKeyRefused : public testing::TestWithParam<Failure> {};

TEST_P(JetsamKeyRefused, SaysWhatWasAndWhy) {
  Place place;
  place.deviceText = deviceWith(GetParam().events);
  Display display(place);
  beginSelected(display);
  answerBoth(display, "12", "50");
  EXPECT_EQ(display.status(), GetParam().status);
  EXPECT_EQ(display.cellOf(kHello, Column::band), GetParam().band);
  EXPECT_EQ(display.cellOf(kHello, Column::limit), GetParam().limit);
}

INSTANTIATE_TEST_SUITE_P(
    Call, JetsamKeyRefused,
    testing::Values(
        Failure{"Band", failing("SET_PRIORITY_PROPERTIES", "EBUSY"),
                "Band refused: Device or resource busy; band 3, limit 50 MB", "3", "50"},
        Failure{"Limit", failing("SET_MEMLIMIT_PROPERTIES", "EPERM"),
                "Limit refused: Operation not permitted; band 12, limit 1400 MB", "12", "1400"},
        Failure{"PresentLimit", failing("GET_MEMLIMIT_PROPERTIES", "ENOTSUP"),
                "Limit refused: Operation not supported; band 12, limit 1400 MB", "12", "1400"},
        Failure{"Both",
                failing("SET_PRIORITY_PROPERTIES", "EPERM") +
                    failing("SET_MEMLIMIT_PROPERTIES", "ENOTSUP"),
                "Band refused: Operation not permitted; limit refused: Operation not "
                "supported",
                "3", "1400"},
        Failure{"Gone", failing("SET_MEMLIMIT_PROPERTIES", "ESRCH"),
                "40 (Hello) has ended meanwhile", "12", "1400"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(JetsamKeyWithoutRights, AsksNothing) {
  Place place;
  place.deviceText = "caller = 501\n" + deviceWith("");
  Display display(place);
  beginSelected(display);
  ASSERT_EQ(display.press("J"), "");
  EXPECT_EQ(display.status(), "The jetsam list can't be read: Operation not permitted");
}

// A process of the test's own, alone in the list and selected.
class LiveJetsam : public testing::Test {
 protected:
  LiveJetsam() : name_(uniqueName("jet")), helper(Steps{"name", name_}) {}
  void SetUp() override {
    if (!isRoot()) GTEST_SKIP() << "needs root, to see the list";
    ASSERT_EQ(display.begin(), "");
    ASSERT_EQ(display.answer("/", "Enter a filter expression:", name_), "");
    // Frozen, as on a busy machine the places in the list change with each sample.
    ASSERT_EQ(display.press("F"), "");
    ASSERT_THAT(display.pids(), ElementsAre(helper.pid()));
    for (const std::string_view key : {kDownKey, kUpKey}) {
      if (display.highlightedPid() == helper.pid()) break;
      ASSERT_EQ(display.press(key), "");
    }
    ASSERT_THAT(display.highlightedPid(), Optional(helper.pid()));
  }
  std::string process() const { return std::to_string(helper.pid()) + " (" + name_ + ")"; }
  // The band is asked for, and then the limit.
  void answerBand(std::string_view band) {
    ASSERT_EQ(display.ask("J", "Jetsam band of " + process() + ", now "), "");
    display.terminal().press(std::string(band) + "\n");
    ASSERT_EQ(display.terminal().awaitText("Memory limit in MB of " + process() + ", now "), "");
  }
  int score() const {
    int score = 0;
    std::ifstream("/proc/" + std::to_string(helper.pid()) + "/oom_score_adj") >> score;
    return score;
  }

  const std::string name_;
  Helper helper;
  Display display{{"", 132, 50, false}};
};

TEST_F(LiveJetsam, TheBandIsThatOfTheScore) {
  answerBand("5");
  ASSERT_EQ(display.press("\n"), "");
  EXPECT_GT(score(), 428);
  EXPECT_LE(score(), 523);
  ASSERT_EQ(display.press("F"), "");
  EXPECT_EQ(display.cellOf(helper.pid(), Column::band), "5");
}

TEST_F(LiveJetsam, CtrlCInPlaceOfAnAnswerChangesNothing) {
  const int before = score();
  answerBand("5");
  display.terminal().press(kCtrlC);
  EXPECT_EQ(display.complaintAboutEnd(), "");
  EXPECT_EQ(score(), before);
}

}  // namespace
}  // namespace test
