#include "screens/help.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "columns/perspective.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/display_state.h"
#include "tests/unit/typed_keys.h"

namespace {

using namespace sondex;

const std::string kTitle =
    "\nThis is Z's Sondex v2 (TLV)\n\n"
    "inverse indicates currently selected configuration options\n\n"
    "   Key       \tFunction\n";

const std::string kListKeys =
    "   Up/Down   \tScroll through process list, highlighting process for selection\n"
    "   <enter>   \tSelect highlighted process for more detailed information\n"
    "   <space>/b \tAdvance/Retreat process list by one full screen\n"
    "   Left/Right\tSelect column for sorting or move column (with <shift>)\n"
    "   -         \tRemove selected column\n"
    "   +         \tAdd column(s) - (well, not yet)\n"
    "\n\tDisplay modifiers\n"
    "   1         \tToggle display of logical CPUs (CPUs/cores/hyperthreads)\n"
    "   C         \tToggle color output\n"
    "   D         \tToggle delta mode (per-sample, rather than cumulative statistics)\n"
    "   M         \tToggle Memory (RAM + Compression) details\n"
    "   N         \tToggle Network details\n"
    "   S         \tToggle display of processes with network sockets only\n"
    "   P         \tToggle Power (battery) details\n"
    "   r         \tReverse sort order\n"
    "   /         \tSet process name filter (type name and hit <enter>)\n"
    "\n\tProcess Control\n"
    "   J         \tJetsam Control\n"
    "   K/T       \tSend KILL/(STOP/CONT) to highlighted process\n"
    "   Q         \tQuit sondex (can also CTRL-C)\n"
    "   U \t   \tChange update delay\n"
    "\n\tAlternate Views\n";

const std::string kGestaltKey =
    "   G         \tShow Gestalt Details screen (try sondex gestalt from command line)\n";

const std::string kOtherViews =
    "   F\t      \tFreeze/Thaw updates\n"
    "   !         \tSave configuration (colors, columns) to /tmp/.sdrc\n"
    "   ?         \tHelp (but you knew this already)\n"
    "\nCLI usage: sondex [all|_pid_] [fds|ports|threads|net|all]\n";

const std::string kDetailsKeys =
    "   C        \tGenerate Core Dump (to /tmp/core.$pid)\n"
    "   F        \tShow all open file descriptors and sockets\n"
    "   H        \tShow process hierarchy (tree) if any\n"
    "   T        \tShow all threads in process\n";

std::string plainHelp(int mode) {
  testing::internal::CaptureStdout();
  showHelp(mode);
  return testing::internal::GetCapturedStdout();
}

TEST(PlainHelp, OfTheList) {
  const DisplayStateGuard state;
  EXPECT_EQ(plainHelp(1), kTitle + kListKeys + kOtherViews);
}

TEST(PlainHelp, OfTheListWithGestalt) {
  const DisplayStateGuard state;
  g_gotGestalt = 1;
  EXPECT_EQ(plainHelp(1), kTitle + kListKeys + kGestaltKey + kOtherViews);
}

TEST(PlainHelp, OfTheDetails) {
  const DisplayStateGuard state;
  EXPECT_EQ(plainHelp(2), kTitle + kDetailsKeys);
}

TEST(PlainHelp, OfAnyOtherMode) {
  const DisplayStateGuard state;
  for (const int mode : {0, 3, -1}) EXPECT_EQ(plainHelp(mode), kTitle);
}

std::vector<std::string> rowsOf(const std::string &text) {
  std::vector<std::string> rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::string row;
    for (const char letter : line) {
      row += letter == '\t' ? std::string(8 - row.size() % 8, ' ') : std::string(1, letter);
    }
    rows.push_back(row);
  }
  return rows;
}

std::string withoutBlanksAtEnd(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

// The keyboard is a terminal of the test's own; keys come from curses' own queue.
class HelpScreen : public testing::Test {
 protected:
  HelpScreen() : keyboard_(std::make_unique<PseudoTerminal>(24, 80)) {
    standardInput_ = dup(STDIN_FILENO);
    EXPECT_EQ(dup2(keyboard_->programEnd(), STDIN_FILENO), STDIN_FILENO);
    nodelay(stdscr, TRUE);
  }
  ~HelpScreen() override {
    dup2(standardInput_, STDIN_FILENO);
    close(standardInput_);
  }

  // The last one is read first.
  static void showAndLeave(int mode) {
    ungetch('q');
    showHelp(mode);
  }

  static int rowOf(const std::string &start) {
    for (int row = 0; row < CursesScreen::rows(); row++) {
      if (CursesScreen::text(row).find(start) == 0) return row;
    }
    ADD_FAILURE() << "no row begins with '" << start << "'";
    return 0;
  }

  // The cells of a row that have this attribute and are no blank after its text.
  static std::string marked(int row, attr_t attribute) {
    std::string text;
    for (int column = 0; column < CursesScreen::columns(); column++) {
      const CursesScreen::Cell cell = CursesScreen::cell(row, column);
      if ((cell.attributes & attribute) != 0) text += cell.text;
    }
    return text;
  }

  static std::vector<std::string> allMarked(attr_t attribute) {
    std::vector<std::string> texts;
    for (int row = 0; row < CursesScreen::rows(); row++) {
      const std::string text = marked(row, attribute);
      if (!text.empty()) texts.push_back(text);
    }
    return texts;
  }

  DisplayStateGuard state_;
  std::unique_ptr<PseudoTerminal> keyboard_;
  CursesScreen screen_{60, 100};
  int standardInput_ = -1;
};

using Texts = std::vector<std::string>;

TEST_F(HelpScreen, ShowsTheSameText) {
  g_gotGestalt = 1;
  mvwaddstr(stdscr, CursesScreen::rows() - 1, 7, "what was there before");
  showAndLeave(1);
  const std::vector<std::string> rows = rowsOf(kTitle + kListKeys + kGestaltKey + kOtherViews);
  for (size_t i = 0; i < rows.size(); i++) {
    EXPECT_EQ(withoutBlanksAtEnd(CursesScreen::text(static_cast<int>(i))), rows[i]) << "row " << i;
  }
  EXPECT_EQ(withoutBlanksAtEnd(CursesScreen::text(CursesScreen::rows() - 1)), "");
}

TEST_F(HelpScreen, OfTheDetails) {
  showAndLeave(2);
  const std::vector<std::string> rows = rowsOf(kTitle + kDetailsKeys);
  for (size_t i = 0; i < rows.size(); i++) {
    EXPECT_EQ(withoutBlanksAtEnd(CursesScreen::text(static_cast<int>(i))), rows[i]) << "row " << i;
  }
  EXPECT_EQ(allMarked(A_REVERSE), Texts{"inverse"});
  EXPECT_EQ(allMarked(A_UNDERLINE), Texts{"KeyFunction"});
}

TEST_F(HelpScreen, UnderlinesHeadings) {
  showAndLeave(1);
  EXPECT_EQ(allMarked(A_UNDERLINE), (Texts{"KeyFunction", "Display modifiers", "Process Control",
                                           "Alternate Views", "CLI usage:"}));
  EXPECT_EQ(allMarked(A_BOLD), Texts{"CLI usage:"});
}

TEST_F(HelpScreen, WithColourAloneOnlyThatLineIsInverse) {
  store(g_showMemory, 0);
  showAndLeave(1);
  EXPECT_EQ(allMarked(A_REVERSE), (Texts{"inverse", "C            Toggle color output"}));
}

TEST_F(HelpScreen, WithNothingOnNoLineIsInverse) {
  store(g_showMemory, 0);
  store(g_Color, 0);
  store(g_Delta, 1);
  showAndLeave(1);
  EXPECT_EQ(allMarked(A_REVERSE), Texts{"inverse"});
}

TEST_F(HelpScreen, WithAllOnTheLinesOfOptionsAreInverse) {
  store(g_EachCPU, 1);
  store(g_Delta, 1);
  store(g_filterSockets, 1);
  store(g_reverse, 1);
  store(getCurrentPerspective()->ShowNetworks, 1);
  store(getCurrentPerspective()->ShowPower, 1);
  showAndLeave(1);
  // A tab ends at a multiple of eight, which is sooner for a text that begins three cells on.
  EXPECT_EQ(
      allMarked(A_REVERSE),
      (Texts{"inverse", "1            Toggle display of logical CPUs (CPUs/cores/hyperthreads)",
             "   C            Toggle color output",
             "M            Toggle Memory (RAM + Compression) details",
             "N            Toggle Network details",
             "S            Toggle display of processes with network sockets only",
             "P            Toggle Power (battery) details", "r            Reverse sort order"}));
}

TEST_F(HelpScreen, LongHelpScrolls) {
  showAndLeave(1);
  EXPECT_TRUE(is_scrollok(stdscr));
  EXPECT_TRUE(is_idlok(stdscr));
  const int last = static_cast<int>(rowsOf(kTitle + kListKeys + kOtherViews).size());
  ASSERT_EQ(wresize(stdscr, last - 5, CursesScreen::columns()), OK);
  showAndLeave(1);
  EXPECT_EQ(rowOf("CLI usage: sondex [all|_pid_]"), CursesScreen::rows() - 2);
}

TEST_F(HelpScreen, IsLeftByThreeKeys) {
  for (const int key : {10, static_cast<int>('Q'), static_cast<int>('q')}) {
    ungetch('z');
    ungetch(key);
    showHelp(1);
    EXPECT_EQ(wgetch(stdscr), 'z') << key;
  }
}

TEST_F(HelpScreen, LosesOtherKeysAndPauses) {
  ungetch(10);
  ungetch('x');
  const auto start = std::chrono::steady_clock::now();
  showHelp(2);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(wgetch(stdscr), ERR);
}

TEST_F(HelpScreen, PausesNoLongerThanUntilTheNextKey) {
  std::vector<int> keys(10, 'x');
  keys.push_back('q');
  typeKeys(keys);
  keyboard_->type("k\n");
  const auto start = std::chrono::steady_clock::now();
  showHelp(2);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
}

// Below are 27 lines: 26 of the text and a blank first one.
class ScrolledHelp : public HelpScreen {
 protected:
  ScrolledHelp() { EXPECT_EQ(wresize(stdscr, 11, CursesScreen::columns()), OK); }

  // What stands in the first row, and in the last one, once the keys were typed.
  void expect(const std::vector<int> &keys, const std::string &first, const std::string &last) {
    std::vector<int> all = keys;
    all.push_back('q');
    typeKeys(all);
    showHelp(1);
    EXPECT_EQ(withoutBlanksAtEnd(CursesScreen::text(0)), first);
    EXPECT_EQ(withoutBlanksAtEnd(CursesScreen::text(10)), last);
  }

  const std::vector<std::string> rows_ = rowsOf(kTitle + kListKeys + kOtherViews);
  const size_t end_ = rows_.size() - 10;  // the first row of the last page
  std::string hint(const char *where, size_t first) const {
    return std::string(" more ") + where + ": lines " + std::to_string(first + 1) + "-" +
           std::to_string(first + 10) + " of " + std::to_string(rows_.size()) +
           " (Up, Down, Space, b, Home, End)";
  }
};

TEST_F(ScrolledHelp, MovesByLinesAndPages) {
  expect({}, rows_[end_], hint("above", end_));
  expect({KEY_UP}, rows_[end_ - 1], hint("above and below", end_ - 1));
  expect({KEY_UP, KEY_UP, KEY_DOWN}, rows_[end_ - 1], hint("above and below", end_ - 1));
  expect({KEY_UP, KEY_DOWN, KEY_DOWN}, rows_[end_], hint("above", end_));
  expect({'b'}, rows_[end_ - 10], hint("above and below", end_ - 10));
  expect({KEY_PPAGE, ' '}, rows_[end_], hint("above", end_));
  expect({KEY_HOME}, rows_[0], hint("below", 0));
  expect({KEY_HOME, KEY_UP, KEY_NPAGE}, rows_[10], hint("above and below", 10));
  expect({KEY_HOME, 'b', KEY_DOWN}, rows_[1], hint("above and below", 1));
  expect({KEY_HOME, KEY_END}, rows_[end_], hint("above", end_));
}

TEST_F(ScrolledHelp, OfOneRowHasNoHint) {
  ASSERT_EQ(wresize(stdscr, 1, CursesScreen::columns()), OK);
  typeKeys({KEY_HOME, KEY_DOWN, 'q'});
  showHelp(1);
  EXPECT_EQ(withoutBlanksAtEnd(CursesScreen::text(0)), rows_[1]);
}

// Each would cost a pause of a second otherwise.
TEST_F(HelpScreen, NotesOfNewSizesAreNoKeys) {
  std::vector<int> keys(10, KEY_RESIZE);
  keys.push_back('q');
  typeKeys(keys);
  const auto start = std::chrono::steady_clock::now();
  showHelp(2);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(HelpScreen, IsLeftWhenTheTerminalIsGone) {
  keyboard_.reset();
  showHelp(1);
  EXPECT_EQ(allMarked(A_BOLD), Texts{"CLI usage:"});
}

}  // namespace
