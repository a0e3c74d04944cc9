// The keys of the process list, seen on its screen: how the highlight, the pages, the columns and
// the modes follow them, and which wake the display.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>

#include "harness/configuration_file.h"
#include "harness/list_columns.h"
#include "harness/screen_text.h"
#include "screen/display.h"
#include "screen/list_screen.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::Eq;
using testing::HasSubstr;
using testing::Not;
using testing::Optional;
using testing::StartsWith;

// The name of the column at a place, as it is when it is the selected one.
std::string nameAt(int place) {
  const std::string drawn = kListColumns[place].drawn;
  const size_t first = drawn.find_first_not_of(' ');
  return drawn.substr(first, drawn.find_last_not_of(' ') + 1 - first);
}

TEST(Highlight, FollowsDownAndUp) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  ASSERT_THAT(display.pids(), ElementsAre(kHello, 1, 0));
  EXPECT_THAT(display.highlightedPid(), Optional(kHello));
  for (const pid_t expected : {1, 0, 0}) {
    ASSERT_EQ(display.press(kDownKey), "");
    EXPECT_THAT(display.highlightedPid(), Optional(expected));
  }
  for (const pid_t expected : {1, 40, 40}) {
    ASSERT_EQ(display.press(kUpKey), "");
    EXPECT_THAT(display.highlightedPid(), Optional(expected));
  }
}

TEST(Highlight, FollowsTheOtherFormOfArrows) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  ASSERT_EQ(display.press("\x1bOB"), "");
  EXPECT_THAT(display.highlightedPid(), Optional(1));
  ASSERT_EQ(display.press("\x1bOA"), "");
  EXPECT_THAT(display.highlightedPid(), Optional(kHello));
  ASSERT_EQ(display.press("\x1bOC"), "");
  EXPECT_EQ(display.selectedHeader(), nameAt(placeOf(Column::pid) + 1));
  ASSERT_EQ(display.press("\x1bOD"), "");
  EXPECT_EQ(display.selectedHeader(), "PID");
}

TEST(Highlight, AboveTheListSelectsTheFirstStill) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  // To row -1, and no further.
  for (int i = 0; i < 3; i++) ASSERT_EQ(display.press(kUpKey), "");
  EXPECT_THAT(display.highlightedPid(), Optional(kHello));
  ASSERT_EQ(display.press("\n"), "");
  EXPECT_THAT(display.pids(), ElementsAre(kHello, 1, 0)) << "Enter opened something";
  // Back to row 0, but the selection goes on by one.
  ASSERT_EQ(display.press(kDownKey), "");
  EXPECT_THAT(display.highlightedPid(), Optional(1));
}

// Room for 13 rows below the lines of the header, and one more.
const Place kLowScreen{"kinds", 132, 24, false};
constexpr size_t kRoom = 13;

std::string showing(size_t first, size_t viewable) {
  return "---- Showing processes " + std::to_string(first + 1) + "-" +
         std::to_string(first + kRoom) + " of " + std::to_string(viewable) +
         " viewable (scroll up to see previous) ----";
}

// Descending: what has a place in the list without a name to be shown is at the end.
std::string sortByName(Display &display) {
  return display.select(Column::command);
}

// All that can be shown, from a screen with room for them.
std::vector<pid_t> allOfKinds() {
  Display display({"kinds", 132, 100, false});
  EXPECT_EQ(display.begin(), "");
  EXPECT_EQ(sortByName(display), "");
  return display.pids();
}

TEST(Highlight, ScrollsTheListAtItsEnds) {
  const std::vector<pid_t> all = allOfKinds();
  ASSERT_GT(all.size(), kRoom + 3);
  Display display(kLowScreen);
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(sortByName(display), "");
  ASSERT_EQ(display.pids().size(), kRoom + 1);
  for (size_t i = 0; i < kRoom; i++) ASSERT_EQ(display.press(kDownKey), "");
  EXPECT_THAT(display.highlightedPid(), Optional(all[kRoom]));
  EXPECT_EQ(display.pids()[0], all[0]);

  // What comes up at the bottom was not shown when the key was pressed.
  for (size_t i = 1; i <= 3; i++) {
    ASSERT_EQ(display.press(kDownKey), "");
    EXPECT_EQ(display.pids()[0], all[i]);
    EXPECT_THAT(display.highlightedPid(), Optional(all[kRoom + i - 1]));
    EXPECT_EQ(display.status(), showing(i, all.size()));
    EXPECT_TRUE(display.hasStatusBar());
  }

  // Row 13 down to -1, then the list.
  for (size_t i = 0; i <= kRoom; i++) ASSERT_EQ(display.press(kUpKey), "");
  EXPECT_EQ(display.pids()[0], all[3]);
  for (size_t first = 3; first-- > 0;) {
    ASSERT_EQ(display.press(kUpKey), "");
    EXPECT_EQ(display.pids()[0], all[first]);
  }
  EXPECT_EQ(display.status(), "");
  ASSERT_EQ(display.press(kUpKey), "");
  EXPECT_EQ(display.pids()[0], all[0]);
}

TEST(Pages, GoForwardsAndBackWithinTheList) {
  const std::vector<pid_t> all = allOfKinds();
  ASSERT_GT(all.size(), 2 * kRoom);
  Display display(kLowScreen);
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(sortByName(display), "");
  ASSERT_EQ(display.pids()[0], all[0]);

  size_t first = 0;
  for (; first + kRoom < all.size(); first += kRoom) {
    EXPECT_EQ(display.pids()[0], all[first]);
    ASSERT_EQ(display.press(" "), "");
  }
  EXPECT_EQ(display.pids()[0], all[first]);
  // A page beyond the end is taken back.
  ASSERT_EQ(display.press(" "), "");
  EXPECT_EQ(display.pids()[0], all[first]);

  for (; first > 0; first -= kRoom) {
    EXPECT_EQ(display.pids()[0], all[first]);
    ASSERT_EQ(display.press("b"), "");
  }
  EXPECT_EQ(display.pids()[0], all[0]);
  EXPECT_EQ(display.status(), "");
  ASSERT_EQ(display.press("b"), "");
  EXPECT_EQ(display.pids()[0], all[0]);
}

TEST(Pages, SayWhatIsShown) {
  const size_t viewable = allOfKinds().size();
  Display display(kLowScreen);
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press(" "), "");
  EXPECT_EQ(display.status(), showing(kRoom, viewable));
  EXPECT_TRUE(display.hasStatusBar());
  for (int i = 0; i < 5; i++) ASSERT_EQ(display.press(kIdleKey), "");
  EXPECT_EQ(display.status(), showing(kRoom, viewable));
  ASSERT_EQ(display.press("b"), "");
  EXPECT_EQ(display.status(), "");
  EXPECT_FALSE(display.hasStatusBar());
}

TEST(Pages, OneThatHoldsAllIsTheOnlyOne) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  ASSERT_EQ(display.press(" "), "");
  EXPECT_THAT(display.pids(), ElementsAre(kHello, 1, 0));
  EXPECT_EQ(display.status(), "");
}

TEST(Pages, BackFromWithinTheFirstPageEndsAtTheFirstProcess) {
  Display display(kLowScreen);
  ASSERT_EQ(display.begin(), "");
  const pid_t first = display.pids().at(0);
  for (size_t i = 0; i < kRoom + 2; i++) ASSERT_EQ(display.press(kDownKey), "");
  ASSERT_NE(display.status(), "");
  ASSERT_EQ(display.press("b"), "");
  EXPECT_EQ(display.pids().at(0), first);
  EXPECT_EQ(display.status(), "");
}

TEST(Columns, AreSelectedWithinThoseThatAreShown) {
  // That of coalitions does not fit, by one cell, but one after it does.
  int width = -1;
  for (int place = 0; place <= placeOf(Column::coalition); place++) {
    width += kListColumns[place].width;
  }
  const std::vector<Column> shown = headerLayout(width, true).columns;
  const int last = placeOf(shown.back());
  const auto expected = [&shown](int place) {
    const Column column = kListColumns[place].column;
    return std::count(shown.begin(), shown.end(), column) == 1 ? nameAt(place) : "";
  };
  ASSERT_EQ(expected(placeOf(Column::coalition)), "");
  ASSERT_GT(last, placeOf(Column::coalition));

  Display display({"minimal", width, 24, false});
  ASSERT_EQ(display.begin(), "");
  EXPECT_EQ(display.selectedHeader(), "CPU");
  for (int place = kSelectedColumn + 1; place <= last + 1; place++) {
    ASSERT_EQ(display.press(kRightKey), "");
    EXPECT_EQ(display.selectedHeader(), expected(std::min(place, last)));
  }
  for (int place = last - 1; place >= -1; place--) {
    ASSERT_EQ(display.press(kLeftKey), "");
    EXPECT_EQ(display.selectedHeader(), expected(std::max(place, 0)));
  }
}

TEST(Columns, SelectedOneIsTheOrder) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  EXPECT_EQ(display.selectedHeader(), "PID");
  EXPECT_THAT(display.pids(), ElementsAre(kHello, 1, 0));
  // COMMAND: descending in the alphabet, whatever the case.
  ASSERT_EQ(display.select(Column::command, Column::pid), "");
  EXPECT_EQ(display.selectedHeader(), "COMMAND");
  EXPECT_THAT(display.pids(), ElementsAre(1, 0, kHello));
}

TEST(Columns, OrderIsReversedByR) {
  Display display({"kinds", 132, 100, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  const std::vector<pid_t> descending = display.pids();
  ASSERT_TRUE(std::is_sorted(descending.rbegin(), descending.rend()));
  ASSERT_GT(descending.size(), 60u);
  ASSERT_EQ(display.press("r"), "");
  EXPECT_EQ(display.pids(), std::vector<pid_t>(descending.rbegin(), descending.rend()));
  ASSERT_EQ(display.press("r"), "");
  EXPECT_EQ(display.pids(), descending);
}

TEST(Columns, HiddenOneIsGoneAndItsLeftNeighbourSelected) {
  const std::string left = kListColumns[kSelectedColumn - 1].drawn;
  const std::string right = kListColumns[kSelectedColumn + 1].drawn;
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_THAT(display.header(), HasSubstr("|" + left + "| CPU |" + right + "|"));
  ASSERT_EQ(display.press("-"), "");
  EXPECT_THAT(display.header(), HasSubstr("|" + left + "|" + right + "|"));
  EXPECT_THAT(display.header(), Not(HasSubstr("CPU")));
  EXPECT_EQ(display.selectedHeader(), nameAt(kSelectedColumn - 1));
}

TEST(Columns, SelectionPassesOverHiddenOnes) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("--"), "");  // CPU and the one to its left
  EXPECT_EQ(display.selectedHeader(), nameAt(kSelectedColumn - 2));
  ASSERT_EQ(display.press(kRightKey), "");
  EXPECT_EQ(display.selectedHeader(), nameAt(kSelectedColumn + 1));
  ASSERT_EQ(display.press(kLeftKey), "");
  EXPECT_EQ(display.selectedHeader(), nameAt(kSelectedColumn - 2));
}

TEST(Columns, FirstOneHiddenLeavesASeparatorInFront) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("F"), "");
  ASSERT_EQ(display.sortByPid(), "");
  ASSERT_EQ(display.select(kListColumns[0].column, Column::pid), "");
  const std::string before = display.rowOf(kHello);
  ASSERT_EQ(display.press("-"), "");
  EXPECT_THAT(display.header(), StartsWith(std::string("|") + kListColumns[1].drawn + "|"));
  EXPECT_EQ(display.selectedHeader(), nameAt(1));
  EXPECT_THAT(display.rowOf(kHello), StartsWith(before.substr(before.find("\u2502"))));
  EXPECT_EQ(display.cellOf(kHello, Column::pid), "40");
  EXPECT_EQ(display.cellOf(kHello, Column::parent), "1");
  EXPECT_EQ(display.cellOf(kHello, Column::command), "Hello");
}

TEST(Columns, MayAllBeHidden) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press(std::string(kColumnCount + 9, '-')), "");
  EXPECT_EQ(display.headerRow(), -1);
  EXPECT_EQ(display.terminal().findRow("Hello"), -1) << display.terminal().text();
  EXPECT_GE(display.terminal().findRow("Disks: "), 0) << display.terminal().text();
  for (const std::string_view key : {kLeftKey, kRightKey, std::string_view("-"), kDownKey, kUpKey,
                                     std::string_view("r"), std::string_view(" ")}) {
    ASSERT_EQ(display.press(key), "");
  }
  EXPECT_EQ(display.headerRow(), -1);
  display.terminal().press("q");
  EXPECT_EQ(display.complaintAboutEnd(), "");
}

struct Mode {
  const char *name;
  char on;
  char off;
  const char *whenOn;
  const char *whenOff;
};

class Announcement : public testing::TestWithParam<Mode> {};

TEST_P(Announcement, IsThereForThreeFrames) {
  const Mode &mode = GetParam();
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press(std::string(1, mode.on)), "");
  EXPECT_EQ(display.status(), mode.whenOn);
  ASSERT_EQ(display.press(std::string(1, mode.off)), "");
  for (int frame = 0; frame < 3; frame++) {
    EXPECT_EQ(display.status(), mode.whenOff);
    ASSERT_EQ(display.press(kIdleKey), "");
  }
  EXPECT_EQ(display.status(), "");
}

constexpr char kColour[] = "Life is better in color";
constexpr char kNoColour[] = "Black & White? Oh well. Whatever makes you happy...";

INSTANTIATE_TEST_SUITE_P(
    Key, Announcement,
    // A capital D is taken for the end of an arrow's sequence, wherever it stands.
    testing::Values(Mode{"Delta", 'd', 'd', "Delta mode on", "Delta mode off"},
                    Mode{"Irix", 'I', 'I', "Irix mode on", "Irix mode off"},
                    Mode{"Colour", 'c', 'c', kNoColour, kColour}),
    [](const auto &row) { return std::string(row.param.name); });

// Whether any cell has a colour of its own, or stands in a status bar.
bool hasColours(const Terminal &terminal) {
  for (int row = 0; row < terminal.rows(); row++) {
    for (int column = 0; column < terminal.columns(); column++) {
      const Cell cell = terminal.cell(row, column);
      if (cell.foreground == kCyan || cell.background == 9 || cell.background == 3) return true;
    }
  }
  return false;
}

TEST(Colour, IsLeftOutEverywhere) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  EXPECT_TRUE(hasColours(display.terminal()));
  ASSERT_EQ(display.press("c"), "");
  EXPECT_FALSE(hasColours(display.terminal())) << asText(screenOf(display.terminal()));
  EXPECT_FALSE(display.hasStatusBar());
  EXPECT_TRUE(display.terminal().cell(display.terminal().rows() - 1, 0).reverse);
  EXPECT_TRUE(display.terminal().cell(display.headerRow(), 0).underline);
  EXPECT_EQ(display.selectedHeader(), "CPU");
  ASSERT_EQ(display.press("c"), "");
  EXPECT_TRUE(hasColours(display.terminal()));
  EXPECT_TRUE(display.hasStatusBar());
}

TEST(Delta, ShowsTheGrowthOfOneSample) {
  constexpr pid_t kGrowing = 34;
  constexpr pid_t kShrinking = 35;
  constexpr pid_t kDisk = 65;
  Display display({"kinds", 132, 100, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("d"), "");
  // Ten seconds of 4 KiB up and down, of 1,024 and 2,048 bytes.
  EXPECT_EQ(display.cellOf(kGrowing, Column::resident), "40K");
  EXPECT_EQ(display.cellOf(kShrinking, Column::resident), "-40K");
  EXPECT_EQ(display.cellOf(kDisk, Column::read), "10K");
  EXPECT_EQ(display.cellOf(kDisk, Column::written), "20K");
  // Of the compressor: 256 and 128 pages a second.
  EXPECT_THAT(display.summary(), HasSubstr(" Comp:   10M , Decomp:    5M  File:"));

  ASSERT_EQ(display.press("d"), "");
  const int seconds = display.clock().value_or(0) - (14 * 3600 + 7 * 60 + 9);
  EXPECT_EQ(display.cellOf(kGrowing, Column::resident), std::to_string(1024 + 4 * seconds) + "K");
  EXPECT_EQ(display.cellOf(kShrinking, Column::resident), std::to_string(1024 - 4 * seconds) + "K");
}

TEST(Frozen, DisplayStandsStillUntilItIsThawed) {
  constexpr char kNotice[] = "Updates Frozen ('F' to toggle back)";
  for (const char *keys : {"Ff", "fF"}) {
    SCOPED_TRACE(keys);
    Display display;
    ASSERT_EQ(display.begin(), "");
    const std::optional<int> before = display.clock();
    ASSERT_TRUE(before.has_value());
    ASSERT_EQ(display.press(std::string(1, keys[0])), "");
    EXPECT_EQ(display.clock(), before);
    for (int frame = 0; frame < 5; frame++) {
      ASSERT_EQ(display.press(kIdleKey), "");
      EXPECT_EQ(display.clock(), before);
      EXPECT_EQ(display.status(), kNotice);
      EXPECT_TRUE(display.hasStatusBar());
    }
    // The last of them is shown for three frames more.
    ASSERT_EQ(display.press(std::string(1, keys[1])), "");
    EXPECT_EQ(display.clock(), *before + 2);
    for (int frame = 0; frame < 3; frame++) {
      EXPECT_EQ(display.status(), kNotice);
      ASSERT_EQ(display.press(kIdleKey), "");
    }
    EXPECT_EQ(display.status(), "");
  }
}

TEST(Frozen, DisplayIsStillSteered) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("F"), "");
  ASSERT_EQ(display.sortByPid(), "");
  EXPECT_THAT(display.pids(), ElementsAre(kHello, 1, 0));
  ASSERT_EQ(display.press("r"), "");
  EXPECT_THAT(display.pids(), ElementsAre(0, 1, kHello));
  ASSERT_EQ(display.press(kDownKey), "");
  EXPECT_THAT(display.highlightedPid(), Optional(1));
  ASSERT_EQ(display.answer("/", "Enter a filter expression:", "launchd"), "");
  EXPECT_THAT(display.pids(), ElementsAre(1));
}

TEST(OtherKeys, DrawTheSameAgain) {
  Place place;
  // Counts of traffic arrive while the display is frozen, too.
  place.background = SteppedDevice::Background::silent;
  Display display(place);
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("F"), "");
  ASSERT_EQ(display.press(kIdleKey), "");
  const std::string before = asText(screenOf(display.terminal()));
  // 4, 5, 14 and 16 first; then capitals and small letters whose other case does something, and
  // all other printable ones. A to D, O, [ and ESC are no keys of their own. G is one, but there is
  // no such screen on this device.
  const std::string keys =
      "\x04\x05\x0e\x10"
      "RgikjaehlovwxyzEHLVWXYZ0235678 9+=_\\]{}|;:'\",.<>@#$%^&*()`~\t\x01"
      "\x7f\x80\xff"
      "G";
  for (const char key : keys) {
    if (key == ' ') continue;
    ASSERT_EQ(display.press(std::string(1, key)), "") << static_cast<int>(key);
    ASSERT_EQ(asText(screenOf(display.terminal())), before) << static_cast<int>(key);
  }
}

TEST(OtherKeys, LettersOfArrowsAloneDoNotEvenWake) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  const std::optional<int> before = display.clock();
  ASSERT_EQ(display.press(std::string("ABCDABCD") + std::string(kIdleKey)), "");
  EXPECT_EQ(display.clock(), *before + 2) << "more than one sample";
  EXPECT_THAT(display.highlightedPid(), Optional(kHello));
  EXPECT_EQ(display.selectedHeader(), "PID");
}

TEST(OtherKeys, PlainBracketsAreSwallowed) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  ASSERT_EQ(display.press("O["), "");
  // They begin nothing.
  ASSERT_EQ(display.press("OB[BOA[A\x04"), "");
  EXPECT_THAT(display.highlightedPid(), Optional(kHello));
}

TEST(Escape, KeepsTheDisplayAsleepUntilABracket) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  ASSERT_THAT(display.summary(), HasSubstr("RAM:"));
  ASSERT_EQ(display.press("\x1bM[B"), "");
  EXPECT_THAT(display.summary(), Not(HasSubstr("RAM:"))) << "the key in between was lost";
  EXPECT_THAT(display.highlightedPid(), Optional(1));
}

TEST(Escape, DoesNotKeepQFromQuitting) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  display.terminal().press("\x1bq");
  EXPECT_EQ(display.complaintAboutEnd(), "");
}

class QuitKey : public testing::TestWithParam<char> {};

TEST_P(QuitKey, EndsTheProgramWithoutAWord) {
  Display display({"minimal", 132, 50, true});
  ASSERT_EQ(display.begin(), "");
  EXPECT_TRUE(display.terminal().isOnAlternateScreen());
  display.terminal().press(std::string(1, GetParam()));
  EXPECT_EQ(display.complaintAboutEnd(), "");
  EXPECT_THAT(display.terminal().standardError(), Not(HasSubstr("Pressing")));
}

INSTANTIATE_TEST_SUITE_P(Key, QuitKey, testing::Values('Q', 'q'),
                         [](const auto &row) { return row.param == 'Q' ? "Capital" : "Small"; });

TEST(CtrlCKey, EndsTheListWithAWord) {
  Display display({"minimal", 132, 50, true});
  ASSERT_EQ(display.begin(), "");
  display.terminal().press(kCtrlC);
  EXPECT_EQ(display.complaintAboutEnd(), "");
  EXPECT_THAT(display.terminal().standardError(),
              HasSubstr("Pressing 'Q' would have been just as efficient as CTRL-C, thank you.\n"));
}

class SavedConfiguration : public testing::Test {
 protected:
  ~SavedConfiguration() override { std::remove(target_.c_str()); }
  void SetUp() override {
    if (!file_.isOurs()) GTEST_SKIP() << ConfigurationFile::kPath << " is another user's";
  }

  static constexpr char kSaved[] =
      "Saved config to /tmp/.sdrc - drop this in your directory for next time";
  const ConfigurationFile file_;
  const std::string target_ = "/tmp/sondex_keys_test." + std::to_string(getpid());
};

TEST_F(SavedConfiguration, HoldsWhatTheKeysMadeOfTheView) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("!"), "");
  for (int frame = 0; frame < 3; frame++) {
    EXPECT_EQ(display.status(), kSaved);
    ASSERT_EQ(display.press(kIdleKey), "");
  }
  EXPECT_EQ(display.status(), "");
  const std::string before = ConfigurationFile::text();
  const size_t firstLine = before.find('\n') + 1;
  EXPECT_THAT(before, StartsWith("## Config File for Z's Sondex, https://"));
  EXPECT_EQ(before.substr(firstLine),
            "Perspective Default\n\tShowWiFi\n\tShowDisks\n" + savedColumns());

  // Without the column CPU and the one to its left, with two lines more.
  ASSERT_EQ(display.press("--NP!"), "");
  EXPECT_EQ(ConfigurationFile::text().substr(firstLine),
            "Perspective Default\n\tShowWiFi\n\tShowDisks\n\tShowNetworks\n\tShowPower\n" +
                savedColumns({kSelectedColumn, kSelectedColumn - 1}));
}

TEST_F(SavedConfiguration, IsNotWrittenThroughALinkThoughItIsSaidToBeSaved) {
  std::ofstream(target_) << "precious";
  ASSERT_EQ(symlink(target_.c_str(), ConfigurationFile::kPath), 0);
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("!"), "");
  EXPECT_EQ(display.status(), kSaved);
  EXPECT_EQ(ConfigurationFile::text(), "precious");
}

}  // namespace
}  // namespace test
