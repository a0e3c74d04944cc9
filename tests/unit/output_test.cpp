#include "terminal/output.h"
#include "terminal/screen.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "state/display.h"
#include "terminal/status_bar.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/display_state.h"
#include "text/safe_text.h"

namespace {

using namespace sondex;

struct FieldCase {
  std::string text;
  int width;
  std::string field;
};

// One blank after a text shorter than the width; width - 1 bytes are the most.
const FieldCase kFieldCases[] = {
    {"", 0, ""},
    {"abc", 0, "abc"},
    {std::string(3000, 'x'), 0, std::string(3000, 'x')},
    {"", 1, ""},
    {"a", 1, ""},
    {"abc", 1, ""},
    {"", 2, " "},
    {"a", 2, "a"},
    {"ab", 2, "a"},
    {"abc", 2, "a"},
    {"", 5, " "},
    {"a", 5, "a "},
    {"ab", 5, "ab "},
    {"abc", 5, "abc "},
    {"abcd", 5, "abcd"},
    {"abcde", 5, "abcd"},
    {"abcdef", 5, "abcd"},
    {"a b ", 6, "a b  "},
    {"COMMAND        ", 16, "COMMAND        "},
    {"%d%s%n", 0, "%d%s%n"},
    {"%d%s%n", 10, "%d%s%n "},
    {"100%", 4, "100"},
    {std::string(78, 'x'), 80, std::string(78, 'x') + ' '},
    {std::string(79, 'x'), 80, std::string(79, 'x')},
    {std::string(80, 'x'), 80, std::string(79, 'x')},
    {std::string(254, 'x'), 256, std::string(254, 'x') + ' '},
    {std::string(255, 'x'), 256, std::string(255, 'x')},
    {std::string(300, 'x'), 256, std::string(255, 'x')},
    {"abc", INT_MAX, "abc "},
};

// Wider than any column: the rule is the same.
const FieldCase kWideFields[] = {
    {std::string(300, 'x'), 257, std::string(256, 'x')},
    {std::string(280, 'x'), 300, std::string(280, 'x') + ' '},
    {std::string(2000, 'x'), 1000, std::string(999, 'x')},
};

class PlainOutput : public testing::Test {
 protected:
  static void expectField(const FieldCase &row) {
    testing::internal::CaptureStdout();
    const int result = output(row.text.c_str(), row.width);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.field)
        << row.text << " in width " << row.width;
    EXPECT_GE(result, 0);
  }

  DisplayStateGuard guard;
};

TEST_F(PlainOutput, FieldsOfEveryWidth) {
  for (const FieldCase &row : kFieldCases) expectField(row);
}

TEST_F(PlainOutput, WideFields) {
  for (const FieldCase &row : kWideFields) expectField(row);
}

TEST_F(PlainOutput, FieldsFollowEachOther) {
  testing::internal::CaptureStdout();
  output("PID", 6);
  output("123456", 5);
  output("\n", 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "PID 1234\n");
}

TEST_F(PlainOutput, AttributesLeaveNoTrace) {
  ASSERT_EQ(stdscr, nullptr);
  testing::internal::CaptureStdout();
  switchOn(A_UNDERLINE);
  output("name", 0);
  switchOff(A_UNDERLINE);
  setAttributes(A_REVERSE);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "name");
}

TEST_F(PlainOutput, FailureIsANegativeResult) {
  const auto writeToFullDevice = [] {
    if (freopen("/dev/full", "w", stdout) == nullptr) _exit(2);
    setvbuf(stdout, nullptr, _IONBF, 0);
    _exit(output("text", 0) < 0 && output("text", 8) < 0 ? 0 : 1);
  };
  EXPECT_EXIT(writeToFullDevice(), testing::ExitedWithCode(0), "");
}

class CursesOutput : public testing::Test {
 protected:
  static void expectField(const FieldCase &row) {
    CursesScreen::empty();
    testing::internal::CaptureStdout();
    EXPECT_GE(output(row.text.c_str(), row.width), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(CursesScreen::textBeforeCursor(), row.field) << row.text << " in width " << row.width;
  }

  DisplayStateGuard guard;
};

TEST_F(CursesOutput, FieldsOfEveryWidth) {
  const CursesScreen screen(2, 4000);
  for (const FieldCase &row : kFieldCases) expectField(row);
}

TEST_F(CursesOutput, WideFields) {
  const CursesScreen screen(2, 4000);
  for (const FieldCase &row : kWideFields) expectField(row);
}

TEST_F(CursesOutput, GoesOnWhereItWasMovedTo) {
  const CursesScreen screen(5, 20);
  moveTo(2, 3);
  output("PID", 6);
  output("123456", 5);
  EXPECT_EQ(screen.text(2), "   PID 1234         ");
  output("\n", 0);
  output("next", 0);
  EXPECT_EQ(screen.text(3), "next                ");
  EXPECT_EQ(screen.text(1), std::string(20, ' '));
}

TEST_F(CursesOutput, LongTextsGoOnInTheNextRow) {
  const CursesScreen screen(3, 5);
  beginText(kEndOfText);
  EXPECT_GE(output("abcdefgh", 0), 0);
  EXPECT_EQ(screen.text(0), "abcde");
  EXPECT_EQ(screen.text(1), "fgh  ");
  EXPECT_EQ(linesWritten(), 2);
}

TEST_F(CursesOutput, LinesOfAListAreCut) {
  const CursesScreen screen(4, 5);
  output("abcdefgh", 0);
  output("ij", 0);
  output("\n", 0);
  output("ab\u4e2d\u4e2d\n", 0);  // two cells each: the second has but one
  output("ab\tcd", 0);
  EXPECT_EQ(screen.text(0), "abcde");
  EXPECT_EQ(screen.text(1, 0, 3), "ab\u4e2d");
  EXPECT_EQ(screen.text(1, 4), " ");
  EXPECT_EQ(screen.text(2), "ab   ");
}

TEST_F(CursesOutput, LinesThatFillTheirLastCellTakeOneRow) {
  const CursesScreen screen(4, 5);
  for (void (*begin)() : {beginList, +[] { beginText(kEndOfText); }}) {
    begin();
    output("abcde\nfghij", 0);
    output("\nk\n", 0);
    EXPECT_EQ(screen.text(0), "abcde");
    EXPECT_EQ(screen.text(1), "fghij");
    EXPECT_EQ(screen.text(2), "k    ");
    EXPECT_EQ(linesWritten(), 3);
  }
}

TEST_F(CursesOutput, TextGoesOnBetweenCharactersAndTabs) {
  const CursesScreen screen(9, 9);
  beginText(kEndOfText);
  output("abcdefgh\u4e2d!\n", 0);
  output("a\tb\tc\n", 0);
  output("e\u0301e\u0301\n", 0);
  EXPECT_EQ(screen.text(0), "abcdefgh ");
  EXPECT_EQ(screen.text(1, 0, 1), "\u4e2d");
  EXPECT_EQ(screen.text(1, 2), "!      ");
  EXPECT_EQ(screen.text(2), "a       b");
  EXPECT_EQ(screen.text(3), "c        ");
  EXPECT_EQ(screen.text(4), "e\u0301e\u0301       ");
}

TEST_F(CursesOutput, TextIsShownFromItsEndOrFromALineOn) {
  const CursesScreen screen(4, 5);
  const auto write = [] {
    for (const char *line : {"one\n", "two\n", "three is long\n", "four\n"}) output(line, 0);
  };
  const struct {
    int64_t first;
    const char *rows[4];
  } kViews[] = {
      {kEndOfText, {" is l", "ong  ", "four ", "     "}},
      {0, {"one  ", "two  ", "three", "     "}},
      {2, {"three", " is l", "ong  ", "     "}},
      {5, {"four ", "     ", "     ", "     "}},
      {int64_t{1} << 40, {"     ", "     ", "     ", "     "}},
  };
  for (const auto &view : kViews) {
    beginText(view.first);
    write();
    EXPECT_EQ(linesWritten(), 6) << view.first;
    for (int row = 0; row < 4; row++) EXPECT_EQ(screen.text(row), view.rows[row]) << view.first;
  }
}

TEST_F(CursesOutput, TheLastCellOfAllDoesNotScroll) {
  const CursesScreen screen(2, 5);
  output("first\n", 0);
  moveTo(1, 0);
  output("abcdefgh", 0);
  EXPECT_EQ(screen.text(0), "first");
  EXPECT_EQ(screen.text(1), "abcde");
}

TEST_F(CursesOutput, ScreensOfOneAndTwoColumns) {
  {
    const CursesScreen screen(1, 1);
    output("abc", 2);
    EXPECT_EQ(screen.text(0), "a");
    output("much more than fits", 0);
    EXPECT_EQ(screen.text(0).size(), 1u);
  }
  const CursesScreen screen(3, 2);
  beginText(kEndOfText);
  output("abc", 0);
  EXPECT_EQ(screen.text(0), "ab");
  EXPECT_EQ(screen.text(1), "c ");
}

TEST_F(CursesOutput, CharactersInUTF8) {
  const CursesScreen screen(2, 20);
  output("caf\xC3\xA9 \xE2\x82\xAC", 0);
  EXPECT_EQ(screen.textBeforeCursor(), "caf\xC3\xA9 \xE2\x82\xAC");
  EXPECT_EQ(getcurx(stdscr), 6);
}

TEST_F(CursesOutput, AttributesOfWhatComesNext) {
  const CursesScreen screen(2, 20);
  output("a", 0);
  switchOn(static_cast<uint32_t>(COLOR_PAIR(kPairGrown)) | A_BOLD);
  output("b", 0);
  switchOn(A_UNDERLINE);
  output("c", 0);
  switchOff(A_BOLD);
  output("d", 0);
  switchOff(static_cast<uint32_t>(COLOR_PAIR(kPairGrown)) | A_UNDERLINE);
  output("e", 0);
  setAttributes(static_cast<uint32_t>(COLOR_PAIR(kPairPrompt)) | A_REVERSE);
  output("f", 0);
  setAttributes(static_cast<uint32_t>(COLOR_PAIR(kPairShrunk)));
  output("g", 0);
  setAttributes(A_NORMAL);
  output("h", 0);

  const CursesScreen::Cell expected[] = {
      {"a", 0, 0},
      {"b", A_BOLD, kPairGrown},
      {"c", A_BOLD | A_UNDERLINE, kPairGrown},
      {"d", A_UNDERLINE, kPairGrown},
      {"e", 0, 0},
      {"f", A_REVERSE, kPairPrompt},
      {"g", 0, kPairShrunk},
      {"h", 0, 0},
  };
  for (int column = 0; column < 8; column++) {
    const CursesScreen::Cell cell = screen.cell(0, column);
    EXPECT_EQ(cell.text, expected[column].text);
    EXPECT_EQ(cell.attributes, expected[column].attributes) << cell.text;
    EXPECT_EQ(cell.pair, expected[column].pair) << cell.text;
  }
}

TEST_F(CursesOutput, NoAttributesBeforeTheScreenIsStarted) {
  const CursesScreen screen(2, 20);
  store(cursesFailed, 1);
  switchOn(A_BOLD);
  output("a", 0);
  setAttributes(A_REVERSE);
  output("b", 0);
  EXPECT_EQ(screen.cell(0, 0).attributes, 0u);
  EXPECT_EQ(screen.cell(0, 1).attributes, 0u);
}

TEST_F(CursesOutput, WithoutAScreenNothingIsWritten) {
  ASSERT_EQ(stdscr, nullptr);
  store(wantCurses, 1);
  testing::internal::CaptureStdout();
  EXPECT_LT(output("text", 0), 0);
  EXPECT_LT(output("text", 8), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

class StatusBar : public testing::Test {
 protected:
  DisplayStateGuard guard;

  // One redraw on an empty screen: what then stands in the bottom row.
  static std::string redraw() {
    werase(stdscr);
    printStatusBar();
    return CursesScreen::text(CursesScreen::rows() - 1);
  }

  // How many columns at the start of the bottom row are drawn as the bar.
  static int highlighted(attr_t attributes, int pair) {
    const int row = CursesScreen::rows() - 1;
    int column = 0;
    for (; column < CursesScreen::columns(); column++) {
      const CursesScreen::Cell cell = CursesScreen::cell(row, column);
      if (cell.attributes != attributes || cell.pair != pair) break;
    }
    return column;
  }
};

std::string blanks(int count) {
  return std::string(static_cast<size_t>(count), ' ');
}

TEST_F(StatusBar, KeepsItsText) {
  EXPECT_STREQ(getStatusBar(), "");
  setStatusBar("Saved", 3);
  EXPECT_STREQ(getStatusBar(), "Saved");
  setStatusBar("", 3);
  EXPECT_STREQ(getStatusBar(), "");
  setStatusBar("longer text", 3);
  setStatusBar("short", 3);
  EXPECT_STREQ(getStatusBar(), "short");
  clearStatusBar();
  EXPECT_STREQ(getStatusBar(), "");
}

TEST_F(StatusBar, LongTextsAreCut) {
  for (const size_t length : {258u, 259u, 260u, 261u, 5000u}) {
    setStatusBar(std::string(length, 'x').c_str(), 3);
    EXPECT_EQ(getStatusBar(), std::string(length < 259 ? length : 259, 'x')) << length;
  }
  const CursesScreen screen(2, 400);
  EXPECT_EQ(redraw(), blanks(200 - 129) + std::string(259, 'x') + blanks(400 - 259 - 71));
}

struct PlaceCase {
  int columns;
  std::string text;
  std::string line;
};

TEST_F(StatusBar, StandsInTheMiddleOfTheBottomRow) {
  const PlaceCase cases[] = {
      {20, "a", "          a         "},
      {20, "abc", "         abc        "},
      {20, "abcd", "        abcd        "},
      {21, "a", "          a          "},
      {21, "abc", "         abc         "},
      {21, "abcd", "        abcd         "},
      {20, "0123456789", "     0123456789     "},
      // Up to the last but one column, which is the end of the line.
      {20, "0123456789abcdefg", "  0123456789abcdefg "},
      {20, "0123456789abcdefgh", " 0123456789abcdefgh "},
      {20, "0123456789abcdefghi", " 0123456789abcdefgh "},
      {21, "0123456789abcdefghi", " 0123456789abcdefghi "},
      {21, "0123456789abcdefghij", "0123456789abcdefghij "},
      // As wide as the screen or wider: an empty bar.
      {20, "0123456789abcdefghij", "                    "},
      {20, "0123456789abcdefghijk", "                    "},
      {21, "0123456789abcdefghijk", "                     "},
      {20, std::string(259, 'x'), "                    "},
      // Narrow screens.
      {5, "abc", " abc "},
      {5, "abcd", "abcd "},
      {4, "abc", " ab "},
      {3, "a", " a "},
      {3, "ab", "ab "},
      {2, "a", "  "},
      {2, "ab", "  "},
      {1, "a", " "},
      {1, "abc", " "},
  };
  for (const PlaceCase &row : cases) {
    SCOPED_TRACE(testing::Message() << row.text << " on " << row.columns << " columns");
    const CursesScreen screen(3, row.columns);
    setStatusBar(row.text.c_str(), 1);
    EXPECT_EQ(redraw(), row.line);
    EXPECT_EQ(highlighted(0, kPairStatus), row.columns - 1);
    EXPECT_EQ(screen.text(0), blanks(row.columns));
    EXPECT_EQ(screen.text(1), blanks(row.columns));
  }
}

TEST_F(StatusBar, LineFeedIsNotDrawnButCounts) {
  const CursesScreen screen(3, 20);
  setStatusBar("abc\n", 1);
  EXPECT_EQ(redraw(), "        abc         ");
  EXPECT_EQ(highlighted(0, kPairStatus), 19);
  setStatusBar("0123456789abcdefghi\n", 1);
  EXPECT_EQ(redraw(), blanks(20)) << "as wide as the screen";
  setStatusBar("abc\ndef", 1);
  EXPECT_EQ(redraw(), "       abc          ");
  EXPECT_EQ(screen.text(0) + screen.text(1), blanks(40)) << "the screen was scrolled";
}

TEST_F(StatusBar, ScreensOfOneRow) {
  const CursesScreen screen(1, 10);
  setStatusBar("abc", 1);
  EXPECT_EQ(redraw(), "    abc   ");
}

TEST_F(StatusBar, SmallestScreen) {
  const CursesScreen screen(1, 1);
  setStatusBar("abc", 2);
  EXPECT_EQ(redraw(), " ");
  EXPECT_EQ(highlighted(0, kPairStatus), 0);
}

TEST_F(StatusBar, VeryWideScreens) {
  for (const int columns : {1000, 1023, 1024, 1025, 3000}) {
    SCOPED_TRACE(columns);
    const CursesScreen screen(2, columns);
    setStatusBar("abcdefgh", 1);
    const int start = columns / 2 - 4;
    EXPECT_EQ(redraw(), blanks(start) + "abcdefgh" + blanks(columns - start - 8));
    EXPECT_EQ(highlighted(0, kPairStatus), columns - 1);
  }
}

TEST_F(StatusBar, ColourAndItsReplacement) {
  const CursesScreen screen(3, 20);
  setStatusBar("text", 2);
  redraw();
  EXPECT_EQ(highlighted(0, kPairStatus), 19);
  store(g_Color, 0);
  redraw();
  EXPECT_EQ(highlighted(A_REVERSE, 0), 19);
}

TEST_F(StatusBar, AttributeEndsWithTheBar) {
  const CursesScreen screen(3, 20);
  for (const int color : {1, 0}) {
    store(g_Color, color);
    setStatusBar("text", 1);
    redraw();
    wmove(stdscr, 0, 0);
    output("x", 0);
    EXPECT_EQ(screen.cell(0, 0).attributes, 0u);
    EXPECT_EQ(screen.cell(0, 0).pair, 0);
  }
}

TEST_F(StatusBar, IsDrawnAsOftenAsAskedThenCleared) {
  const CursesScreen screen(3, 20);
  for (const int count : {1, 2, 3, 10}) {
    SCOPED_TRACE(count);
    setStatusBar("abcd", count);
    for (int i = 0; i < count; i++) {
      ASSERT_EQ(redraw(), "        abcd        ") << i;
      ASSERT_STREQ(getStatusBar(), "abcd");
    }
    EXPECT_EQ(redraw(), blanks(20));
    EXPECT_EQ(highlighted(0, kPairStatus), 0);
    EXPECT_STREQ(getStatusBar(), "");
  }
}

TEST_F(StatusBar, SetAnewItStays) {
  const CursesScreen screen(3, 20);
  for (int i = 0; i < 50; i++) {
    setStatusBar("abcd", 3);
    ASSERT_EQ(redraw(), "        abcd        ");
  }
}

TEST_F(StatusBar, CountOfZeroIsNeverDrawn) {
  const CursesScreen screen(3, 20);
  setStatusBar("abcd", 0);
  EXPECT_STREQ(getStatusBar(), "abcd");
  EXPECT_EQ(redraw(), blanks(20));
  EXPECT_EQ(highlighted(0, kPairStatus), 0);
  EXPECT_STREQ(getStatusBar(), "");
}

TEST_F(StatusBar, NegativeCountStays) {
  const CursesScreen screen(3, 20);
  for (const int count : {-1, -3, INT_MIN, INT_MIN + 1}) {
    setStatusBar("abcd", count);
    for (int i = 0; i < 50; i++) ASSERT_EQ(redraw(), "        abcd        ") << count;
    EXPECT_STREQ(getStatusBar(), "abcd");
  }
}

TEST_F(StatusBar, WithoutATextNothingIsDrawnOrCounted) {
  const CursesScreen screen(3, 20);
  setStatusBar("", 1);
  redraw();
  EXPECT_EQ(highlighted(0, kPairStatus), 0);
  clearStatusBar();
  redraw();
  EXPECT_EQ(highlighted(0, kPairStatus), 0);
}

TEST_F(StatusBar, PlainModeDrawsNothing) {
  const CursesScreen screen(3, 20);
  store(wantCurses, 0);
  setStatusBar("abcd", 1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(redraw(), blanks(20));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(highlighted(0, kPairStatus), 0);
  // Nor does it count.
  EXPECT_STREQ(getStatusBar(), "abcd");
  store(wantCurses, 1);
  EXPECT_EQ(redraw(), "        abcd        ");
}

TEST_F(StatusBar, DoesNothingWithoutAScreen) {
  ASSERT_EQ(stdscr, nullptr);
  store(wantCurses, 1);
  setStatusBar("abcd", 1);
  testing::internal::CaptureStdout();
  printStatusBar();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_STREQ(getStatusBar(), "abcd");
}

const char kCursesNotice[] =
    "If you are reading this, curses full screen initialization failed. This is either because "
    "$TERM is not set properly,\nor because you are missing the terminfo files (which aren't "
    "present on iOS).\nYou can fix either easily if you read the README.\n";

// Sets and clears variables of the environment, in a child of the test's.
std::string noticeWith(std::initializer_list<std::pair<const char *, const char *>> environment) {
  testing::internal::CaptureStdout();
  const pid_t child = fork();
  if (child == 0) {
    for (const char *name : {"TERM", "TERMINFO", "TERMINFO_DIRS", "HOME"}) unsetenv(name);
    for (const auto &[name, value] : environment) setenv(name, value, 1);
    cursesMessage();
    fflush(nullptr);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  return testing::internal::GetCapturedStdout();
}

TEST(CursesMessage, ExplainsAScreenThatFailedAndWhatIsMissing) {
  const DisplayStateGuard guard;
  EXPECT_EQ(noticeWith({{"TERM", "odd\x1b[31m"}, {"HOME", "/home/me"}}),
            std::string(kCursesNotice) +
                "TERM is \"odd?[31m\".\n"
                "Its description was looked for in /home/me/.terminfo, and where this system keeps "
                "them, as a rule /usr/share/terminfo.\n");
  EXPECT_EQ(noticeWith({{"TERM", "odd"}, {"TERMINFO", "/mine"}, {"TERMINFO_DIRS", "/a:/b"}}),
            std::string(kCursesNotice) +
                "TERM is \"odd\".\n"
                "Its description was looked for in /mine (TERMINFO), /a:/b (TERMINFO_DIRS), and "
                "where this system keeps them, as a rule /usr/share/terminfo.\n");
  EXPECT_EQ(noticeWith({}),
            std::string(kCursesNotice) + "TERM is not set: it names the kind of the terminal.\n");
}

TEST(CursesMessage, IsSilentOnceTheScreenWasStarted) {
  const DisplayStateGuard guard;
  store(cursesFailed, 0);
  testing::internal::CaptureStdout();
  cursesMessage();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

struct ChildResult {
  std::string report;    // what the child wrote for the test
  std::string terminal;  // what came out at the terminal
  int status;            // as waitpid has it
};

// Runs `body` in a child whose standard input, output and error are the terminal. The C library's
// own full screen can be opened only once in a process. A child that hangs is ended by a signal.
ChildResult runOnTerminal(PseudoTerminal &terminal, const std::function<void(FILE *report)> &body) {
  int ends[2];
  if (pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGALRM, SIG_DFL);
    alarm(60);
    for (int standard = 0; standard <= 2; standard++) dup2(terminal.programEnd(), standard);
    terminal.closeProgramEnd();
    close(ends[0]);
    FILE *report = fdopen(ends[1], "w");
    body(report);
    fflush(nullptr);
    _exit(0);
  }
  close(ends[1]);
  terminal.closeProgramEnd();
  ChildResult result = {};
  std::thread reader([&] { result.terminal = terminal.readToEnd(); });
  char chunk[512];
  for (ssize_t length = 0; (length = read(ends[0], chunk, sizeof chunk)) > 0;) {
    result.report.append(chunk, static_cast<size_t>(length));
  }
  close(ends[0]);
  waitpid(child, &result.status, 0);
  reader.join();
  return result;
}

class OpenScreen : public testing::Test {
 protected:
  OpenScreen() : terminal(24, 80) { terminal.passOutputThrough(); }

  static void useTerminal(const char *name) {
    setenv("TERM", name, 1);
    unsetenv("LINES");
    unsetenv("COLUMNS");
  }

  static void reportPairs(FILE *report) {
    for (const int pair : {1, 2, 5, 6, 7, 13, 14}) {
      short foreground = -1;
      short background = -1;
      pair_content(static_cast<short>(pair), &foreground, &background);
      fprintf(report, "%d %d %d\n", pair, foreground, background);
    }
  }

  DisplayStateGuard guard;
  PseudoTerminal terminal;
};

TEST_F(OpenScreen, SetsTheTerminalsModes) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("xterm-256color");
    openScreen();
    termios modes = {};
    tcgetattr(STDIN_FILENO, &modes);
    fprintf(report, "failed %d lines %d keys %d echo %d signals %d keypad %d size %dx%d\n",
            load(cursesFailed), (modes.c_lflag & ICANON) != 0, (modes.c_cc[VMIN]),
            (modes.c_lflag & ECHO) != 0, (modes.c_lflag & ISIG) != 0, is_keypad(stdscr),
            getmaxx(stdscr), getmaxy(stdscr));
    // Nothing was typed: nothing is waited for.
    fprintf(report, "key %d\n", wgetch(stdscr));
    closeScreen();
    tcgetattr(STDIN_FILENO, &modes);
    fprintf(report, "closed %d lines %d echo %d\n", isendwin(), (modes.c_lflag & ICANON) != 0,
            (modes.c_lflag & ECHO) != 0);
    closeScreen();
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.report,
            "failed 0 lines 0 keys 1 echo 0 signals 1 keypad 1 size 80x24\n"
            "key -1\n"
            "closed 1 lines 1 echo 1\n");
}

TEST_F(OpenScreen, ClosedLeavesTheReasonOfAFailureToBeTold) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("xterm-256color");
    // It takes no modes: giving them back fails.
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
      dup2(open("/dev/null", O_WRONLY), stream);
    openScreen();
    errno = ENOENT;
    closeScreen();
    fprintf(report, "%d", errno == ENOENT);
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.report, "1");
}

TEST_F(OpenScreen, TypedKeysAreNotEchoed) {
  terminal.type("q");
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("xterm-256color");
    openScreen();
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    poll(&input, 1, 20000);
    const int key = wgetch(stdscr);
    fprintf(report, "key %d, then \"%s\" at %d", key, CursesScreen::text(0, 0, 1).c_str(),
            getcurx(stdscr));
    closeScreen();
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.report, "key 113, then \" \" at 0");
}

TEST_F(OpenScreen, SetsTheColourPairs) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("xterm-256color");
    openScreen();
    reportPairs(report);
    closeScreen();
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.report, "1 6 0\n2 6 0\n5 0 9\n6 9 0\n7 0 3\n13 1 0\n14 2 0\n");
}

TEST_F(OpenScreen, PlainRedWhereThereIsNoBrightOne) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("linux");
    openScreen();
    fprintf(report, "%d colours\n", COLORS);
    reportPairs(report);
    closeScreen();
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.report, "8 colours\n1 6 0\n2 6 0\n5 0 1\n6 1 0\n7 0 3\n13 1 0\n14 2 0\n");
}

TEST_F(OpenScreen, WorksWithoutColours) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("vt100");
    openScreen();
    store(wantCurses, 1);
    beginList();
    output("abc", 0);
    fprintf(report, "%s", CursesScreen::textBeforeCursor().c_str());
    closeScreen();
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.report, "abc");
}

TEST_F(OpenScreen, AnUnknownTerminalEndsTheProgramWithTheNotice) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("no-such-terminal");
    atexit(cursesMessage);
    atexit(closeScreen);
    openScreen();
    fputs("came back", report);
  });
  EXPECT_TRUE(WIFEXITED(child.status));
  EXPECT_NE(WEXITSTATUS(child.status), 0);
  EXPECT_EQ(child.report, "");
  EXPECT_NE(child.terminal.find(kCursesNotice), std::string::npos) << child.terminal;
  EXPECT_NE(child.terminal.find("no-such-terminal"), std::string::npos) << child.terminal;
}

TEST_F(OpenScreen, HoldsStandardErrorUntilTheScreenIsClosed) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *) {
    useTerminal("xterm-256color");
    openScreen();
    for (int i = 0; i < 3; i++) fputs("task_for_pid: failed\n", stderr);
    wrefresh(stdscr);
    fputs("<closing>", stdout);
    fflush(stdout);
    closeScreen();
  });
  EXPECT_EQ(child.status, 0);
  const size_t closing = child.terminal.find("<closing>");
  const size_t message = child.terminal.find("task_for_pid: failed (3 times)\n");
  ASSERT_NE(closing, std::string::npos);
  ASSERT_NE(message, std::string::npos);
  EXPECT_LT(closing, message);
  EXPECT_EQ(child.terminal.find("task_for_pid"), message);
}

TEST_F(OpenScreen, LocaleDecidesOnUTF8) {
  for (const auto &[locale, expected] : {std::pair{"C.UTF-8", "caf\xC3\xA9"}, {"C", "caf??"}}) {
    PseudoTerminal own(24, 80);
    const ChildResult child = runOnTerminal(own, [name = locale](FILE *report) {
      useTerminal("xterm-256color");
      setlocale(LC_CTYPE, name);
      openScreen();
      char text[16];
      fputs(makeSafe(text, sizeof text, "caf\xC3\xA9", 5), report);
      closeScreen();
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.report, expected) << locale;
  }
}

TEST_F(OpenScreen, FollowsTheTerminalsSize) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("xterm-256color");
    openScreen();
    const winsize sizes[] = {{40, 132, 0, 0}, {0, 0, 0, 0}, {5, 0, 0, 0},  {0, 7, 0, 0},
                             {10, 2, 0, 0},   {1, 1, 0, 0}, {24, 80, 0, 0}};
    for (const winsize &size : sizes) {
      ioctl(STDOUT_FILENO, TIOCSWINSZ, &size);
      fitScreen();
      fprintf(report, "%dx%d\n", getmaxy(stdscr), getmaxx(stdscr));
    }
    closeScreen();
  });
  EXPECT_EQ(child.status, 0);
  // A size of nothing is not followed.
  EXPECT_EQ(child.report, "40x132\n40x132\n40x132\n40x132\n10x2\n1x1\n24x80\n");
}

TEST_F(OpenScreen, NoticesThatTheTerminalIsGone) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("xterm-256color");
    auto own = std::make_unique<PseudoTerminal>(24, 80);
    for (int standard = 0; standard <= 2; standard++) dup2(own->programEnd(), standard);
    openScreen();
    fprintf(report, "%d", isTerminalGone());
    own.reset();
    fprintf(report, "%d", isTerminalGone());
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.report, "01");
}

TEST_F(OpenScreen, MissesNoTerminalThatWasNeverThere) {
  const ChildResult child = runOnTerminal(terminal, [](FILE *report) {
    useTerminal("xterm-256color");
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    openScreen();
    fprintf(report, "%d", isTerminalGone());
    closeScreen();
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.report, "0");
}

}  // namespace
