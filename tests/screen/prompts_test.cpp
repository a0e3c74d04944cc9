// The questions at the bottom of the screen: what they look like, what becomes of their answers,
// and how a program that waits for one ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "harness/screen_text.h"
#include "screen/display.h"
#include "screen/list_screen.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr char kFilter[] = "Enter a filter expression:";
constexpr char kDelay[] = "Enter value for update delay in deciseconds (10 = 1 second):";

std::string noMatch(const std::string &filter) {
  return "---- No processes match " + filter +
         "(press / again and hit <enter> to remove filter) ----";
}

TEST(Prompt, IsBoldBlackOnYellowInTheBottomRow) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.ask("/", kFilter), "");
  Terminal &terminal = display.terminal();
  const int row = terminal.findRow(kFilter);
  EXPECT_EQ(row, terminal.rows() - 1);
  EXPECT_TRUE(terminal.rowText(row).starts_with(kFilter));
  for (int column = 0; column < static_cast<int>(sizeof kFilter) - 1; column++) {
    const Cell cell = terminal.cell(row, column);
    EXPECT_EQ(cell.foreground, kBlack) << column;
    EXPECT_EQ(cell.background, kYellow) << column;
    EXPECT_TRUE(cell.bold) << column;
  }
  // What is typed is seen.
  terminal.press("Hel");
  EXPECT_EQ(terminal.awaitText(std::string(kFilter) + "Hel"), "");
}

TEST(Prompt, ShowsWhatItStores) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.ask("/", kFilter), "");
  Terminal &terminal = display.terminal();
  // A backspace and the four bytes of an arrow are characters like any other.
  terminal.press("a\x7f\x1b[Ab\xc3\x9c\xe6\x97\xa5z");
  EXPECT_EQ(terminal.awaitText(std::string(kFilter) + "a??[Ab\xc3\x9c\xe6\x97\xa5z"), "");
  EXPECT_EQ(display.press("\n"), "");
}

TEST(Prompt, ShowsTheEndOfWhatIsTooLong) {
  Display display({"minimal", 40, 24, false});
  ASSERT_EQ(awaitWholeFrame(display.terminal()), "");
  display.terminal().press("u");
  ASSERT_EQ(display.terminal().awaitText("Enter value for update delay in decisec"), "");
  display.terminal().press("1234");
  ASSERT_EQ(display.terminal().awaitText("(10 = 1 second):1234"), "");
  EXPECT_TRUE(display.terminal().rowText(23).ends_with(":1234"));
  EXPECT_EQ(display.press("\n"), "");
}

TEST(Prompt, IsSentAnewByCtrlLWhichIsNoCharacter) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.ask("/", kFilter), "");
  const size_t repaints = display.terminal().repaints();
  display.terminal().press("He\x0cllo");
  ASSERT_EQ(display.terminal().awaitText(std::string(kFilter) + "Hello"), "");
  EXPECT_EQ(display.terminal().repaints(), repaints + 1);
  ASSERT_EQ(display.press("\n"), "");
  EXPECT_THAT(display.pids(), ElementsAre(kHello));
}

TEST(Prompt, IsReverseWithoutColours) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("c"), "");
  ASSERT_EQ(display.ask("/", kFilter), "");
  for (int column = 0; column < static_cast<int>(sizeof kFilter) - 1; column++) {
    const Cell cell = display.terminal().cell(display.terminal().rows() - 1, column);
    EXPECT_TRUE(cell.reverse) << column;
    EXPECT_TRUE(isPlain(cell)) << column;
  }
}

TEST(Filter, ShowsThoseWithTheTextInTheirName) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.answer("/", kFilter, "ell"), "");
  EXPECT_THAT(display.pids(), ElementsAre(kHello));
  for (int frame = 0; frame < 4; frame++) {
    EXPECT_EQ(display.status(), "---- Filtering processes by : ell ----");
    EXPECT_TRUE(display.hasStatusBar());
    ASSERT_EQ(display.press(kIdleKey), "");
  }
  // The case counts.
  ASSERT_EQ(display.answer("/", kFilter, "hello"), "");
  EXPECT_THAT(display.pids(), IsEmpty());
  ASSERT_EQ(display.answer("/", kFilter, ""), "");
  EXPECT_THAT(display.pids(), SizeIs(3));
  EXPECT_EQ(display.status(), "");
}

TEST(Filter, IsInTheMiddleOfTheBar) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.answer("/", kFilter, "ell"), "");
  const std::string text = "---- Filtering processes by : ell ----";
  EXPECT_EQ(display.terminal().rowText(display.terminal().rows() - 1),
            std::string(132 / 2 - text.size() / 2, ' ') + text);
}

TEST(Filter, SaysThatDeltaModeIsOn) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("d"), "");
  ASSERT_EQ(display.answer("/", kFilter, "launch"), "");
  EXPECT_EQ(display.status(), "---- Filtering processes by : launch (Delta Mode)----");
  ASSERT_EQ(display.press("d"), "");
  EXPECT_EQ(display.status(), "---- Filtering processes by : launch ----");
}

TEST(Filter, ThatMatchesNothingSaysHowToBeRidOfIt) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.answer("/", kFilter, "nobody"), "");
  EXPECT_THAT(display.pids(), IsEmpty());
  EXPECT_EQ(display.status(), noMatch("nobody"));
  EXPECT_TRUE(display.hasStatusBar());
  ASSERT_EQ(display.answer("/", kFilter, ""), "");
  EXPECT_THAT(display.pids(), SizeIs(3));
}

TEST(Filter, ThatBeginsWithADashShowsAll) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  for (const char *filter : {"-", "-nobody"}) {
    ASSERT_EQ(display.answer("/", kFilter, filter), "");
    EXPECT_THAT(display.pids(), SizeIs(3));
    EXPECT_EQ(display.status(), "---- Filtering processes by : " + std::string(filter) + " ----");
  }
}

TEST(Filter, OfAnotherEncodingOrControlCharactersDoesNoHarm) {
  Display display({"kinds", 132, 50, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.answer("/", kFilter,
                           "\xc3\x9c"
                           "bers"),
            "");
  EXPECT_THAT(display.pids(), ElementsAre(102));
  // No line editing: a backspace is a character of the filter.
  ASSERT_EQ(display.answer("/", kFilter, "forksx\x7f"), "");
  EXPECT_THAT(display.status(), HasSubstr("No processes match forksx"));
  ASSERT_EQ(display.answer("/", kFilter, "%s%n"), "");
  EXPECT_THAT(display.pids(), ElementsAre(109));
}

TEST(Filter, TooLongForTheBarLeavesItBlank) {
  Display display({"kinds", 50, 30, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.answer("/", kFilter, "a-name-longer-t"), "");
  EXPECT_THAT(display.pids(), ElementsAre(105));
  EXPECT_TRUE(display.hasStatusBar());
  EXPECT_EQ(display.status(), "");
}

TEST(Filter, OfEightyKeysNeedsNoEnterAndIsCut) {
  Display display({"minimal", 250, 50, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.ask("/", kFilter), "");
  ASSERT_THAT(display.summary(), HasSubstr("RAM:"));
  ASSERT_EQ(display.press(std::string(80, 'x')), "");
  EXPECT_EQ(display.status(), noMatch(std::string(79, 'x')));
  // What comes next is a key again.
  ASSERT_EQ(display.press("m"), "");
  EXPECT_THAT(display.summary(), Not(HasSubstr("RAM:")));
  EXPECT_EQ(display.status(), noMatch(std::string(79, 'x')));
}

TEST(Delay, IsShownInSecondsAndLeftAloneWithoutANumber) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  struct Row {
    const char *key;
    const char *answer;
    const char *status;
  };
  const Row rows[] = {
      {"u", "", "Setting delay to 100.0 seconds..."},
      {"U", "abc", "Setting delay to 100.0 seconds..."},
      {"u", "995 x", "Setting delay to 99.5 seconds..."},
      {"U", "  1001", "Setting delay to 100.1 seconds..."},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.answer);
    ASSERT_EQ(display.answer(row.key, kDelay, row.answer), "");
    EXPECT_EQ(display.status(), row.status);
    ASSERT_EQ(display.press(kIdleKey), "");
    EXPECT_EQ(display.status(), row.status);
    ASSERT_EQ(display.press(kIdleKey), "");
    EXPECT_EQ(display.status(), "");
  }
}

TEST(Delay, OfFiveIsHalfASecondButWaitsFive) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  const Clock::time_point before = Clock::now();
  ASSERT_EQ(display.answer("u", kDelay, "5"), "");
  EXPECT_EQ(display.status(), "Setting delay to 0.5 seconds...");
  const std::optional<int> last = display.clock();
  ASSERT_TRUE(display.terminal().waitFor([&] { return display.clock() != last; }));
  EXPECT_GE(Clock::now() - before, Duration{5'000});
}

TEST(Delay, BelowZeroWaitsForAKey) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  // Each wakes it for one frame, and no other is drawn.
  ASSERT_EQ(display.answer("u", kDelay, "-5"), "");
  EXPECT_EQ(display.status(), "Setting delay to -0.5 seconds...");
  for (int frame = 0; frame < 3; frame++) ASSERT_EQ(display.press(kIdleKey), "");
}

class PromptKey : public testing::TestWithParam<const char *> {};

TEST_P(PromptKey, IsLeftByCtrlC) {
  Display display({"minimal", 132, 50, true});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.ask(GetParam(), *GetParam() == '/'   ? kFilter
                                    : *GetParam() == 'u' ? kDelay
                                                         : "Are you sure?"),
            "");
  display.terminal().press("some");
  display.terminal().press(kCtrlC);
  EXPECT_EQ(display.complaintAboutEnd(), "");
  EXPECT_THAT(display.terminal().standardError(),
              HasSubstr("Pressing 'Q' would have been just as efficient as CTRL-C, thank you.\n"));
}

INSTANTIATE_TEST_SUITE_P(Key, PromptKey, testing::Values("/", "u", "K"), [](const auto &row) {
  return std::string(*row.param == '/' ? "Filter" : *row.param == 'u' ? "Delay" : "Kill");
});

TEST(Prompt, OutlivesAChangeOfSize) {
  Display display({"minimal", 80, 24, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.ask("/", kFilter), "");
  display.terminal().press("He");
  for (const auto &[columns, rows] : {std::pair{20, 5}, std::pair{132, 50}}) {
    display.terminal().resize(columns, rows);
  }
  display.terminal().press("llo\n");
  const std::string status = "---- Filtering processes by : Hello ----";
  EXPECT_EQ(display.terminal().await([&] {
    return display.status() == status ? complaintAboutHeader(display.terminal(), true)
                                      : "another status";
  }),
            "");
  EXPECT_THAT(display.pids(), ElementsAre(kHello));
}

}  // namespace
}  // namespace test
