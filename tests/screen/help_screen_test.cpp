// The help screen of the list: what it marks as switched on, and how it is left.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "harness/screen_text.h"
#include "screen/display.h"
#include "screen/list_screen.h"

namespace test {
namespace {

using testing::HasSubstr;

constexpr char kFirstLine[] = "This is Z's Sondex v2 (TLV)";
constexpr char kLastLine[] = "CLI usage: sondex [all|_pid_] [fds|ports|threads|net|all]";

std::string openHelp(Display &display) {
  display.terminal().press("?");
  return display.terminal().awaitText(kLastLine);
}

struct Marks {
  const char *keys;  // pressed before
  const char *name;
};

KeptFile keptOf(const std::string &device, const Marks &marks) {
  return KeptFile("screen/" + device + "-help-" + marks.name + ".txt");
}

constexpr Marks kAtStart{"", "at-start"};
constexpr Marks kAllOn{"1nspr", "all-on"};
constexpr Marks kAllOff{"cm", "all-off"};
const KeptFile kKeptHelp[] = {keptOf("minimal", kAtStart), keptOf("minimal", kAllOn),
                              keptOf("minimal", kAllOff), keptOf("kinds", kAtStart)};

std::string complaintAboutHelp(const std::string &device, const Marks &marks) {
  Display display({device, 132, 50, false});
  std::string complaint = display.begin();
  for (const char *key = marks.keys; complaint.empty() && *key != '\0'; key++) {
    complaint = display.press(std::string(1, *key));
  }
  if (complaint.empty()) complaint = openHelp(display);
  if (!complaint.empty()) return complaint;
  return keptOf(device, marks).complaintAbout(asText(screenOf(display.terminal())));
}

TEST(KeptHelpScreen, MarksWhatIsOn) {
  for (const Marks &marks : {kAtStart, kAllOn, kAllOff}) {
    SCOPED_TRACE(marks.name);
    EXPECT_EQ(complaintAboutHelp("minimal", marks), "");
  }
}

TEST(KeptHelpScreen, NamesTheGestaltScreenWhereThereIsOne) {
  EXPECT_EQ(complaintAboutHelp("kinds", kAtStart), "");
}

TEST(HelpScreen, ThatIsTooLongScrollsToItsEnd) {
  Display display({"minimal", 80, 24, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(openHelp(display), "");
  EXPECT_EQ(display.terminal().findRow(kFirstLine), -1);
  EXPECT_EQ(display.terminal().findRow(kLastLine), 22) << display.terminal().text();
}

class LeavingKey : public testing::TestWithParam<const char *> {};

TEST_P(LeavingKey, ShowsTheListAgain) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(openHelp(display), "");
  ASSERT_EQ(display.press(GetParam()), "");
  EXPECT_EQ(complaintAboutHeader(display.terminal(), true), "");
  EXPECT_EQ(display.terminal().findRow(kFirstLine), -1);
  EXPECT_FALSE(display.terminal().hasEnded());
}

INSTANTIATE_TEST_SUITE_P(Key, LeavingKey, testing::Values("\n", "\r", "q", "Q"),
                         [](const auto &row) {
                           return std::string(*row.param == '\n'   ? "Enter"
                                              : *row.param == '\r' ? "Return"
                                              : *row.param == 'q'  ? "SmallQ"
                                                                   : "CapitalQ");
                         });

// None of them has to wait until a pause is over.
TEST(HelpScreen, LosesOtherKeys) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(openHelp(display), "");
  const Clock::time_point before = Clock::now();
  ASSERT_EQ(display.press("mc1mc1mc1mc1mc1mc1\n"), "");
  EXPECT_LT(Clock::now() - before, Duration{9'000});
  // They did nothing else.
  EXPECT_EQ(complaintAboutHeader(display.terminal(), true), "");
  EXPECT_THAT(display.summary(), HasSubstr("RAM:"));
}

TEST(HelpScreen, IsLeftByCtrlC) {
  Display display({"minimal", 132, 50, true});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(openHelp(display), "");
  display.terminal().press(kCtrlC);
  EXPECT_EQ(display.complaintAboutEnd(), "");
  EXPECT_THAT(display.terminal().standardError(),
              HasSubstr("Pressing 'Q' would have been just as efficient as CTRL-C, thank you.\n"));
}

TEST(HelpScreen, OutlivesAChangeOfSize) {
  Display display({"minimal", 80, 24, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(openHelp(display), "");
  display.terminal().resize(20, 5);
  display.terminal().resize(132, 50);
  display.terminal().press("\n");
  EXPECT_EQ(
      display.terminal().await([&] { return complaintAboutHeader(display.terminal(), true); }), "");
}

}  // namespace
}  // namespace test
