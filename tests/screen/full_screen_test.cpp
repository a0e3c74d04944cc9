// The full screen, seen through a terminal: what is drawn at which size, on which kind of terminal
// and for whom, and how the terminal is left.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <memory>
#include <regex>

#include "harness/helper.h"
#include "harness/process_facts.h"
#include "harness/run.h"
#include "harness/stepped_device.h"
#include "harness/terminal.h"
#include "screen/list_screen.h"

namespace test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kFarewell[] = "Pressing 'Q' would have been just as efficient as CTRL-C, thank you.";
constexpr char kNoScreenNotice[] =
    "If you are reading this, curses full screen initialization failed. This is either because "
    "$TERM is not set properly,\r\nor because you are missing the terminfo files (which aren't "
    "present on iOS).\r\nYou can fix either easily if you read the README.\r\n";

// Of the columns that root sees at 132.
constexpr size_t kTimeCell = placeOf(Column::time);
constexpr size_t kNameCell = placeOf(Column::command);

struct Size {
  int columns;
  int rows;
};

TerminalOptions optionsOf(Size size, const std::string &kind = "xterm-256color") {
  TerminalOptions options;
  options.columns = size.columns;
  options.rows = size.rows;
  options.kind = kind;
  return options;
}

std::string awaitFrame(Terminal &terminal, bool forRoot = isRoot(), Abilities abilities = {}) {
  return terminal.await([&] { return complaintAboutFrame(terminal, forRoot, abilities); });
}

std::string awaitHeader(Terminal &terminal) {
  return terminal.await([&] { return complaintAboutHeader(terminal, isRoot()); });
}

// One frame more than there is now.
void refresh(Terminal &terminal) {
  ASSERT_TRUE(terminal.drawAgain()) << terminal.text();
}

void expectLeftWell(Terminal &terminal) {
  EXPECT_TRUE(sameModes(terminal.modes(), terminal.modesBefore()));
  EXPECT_FALSE(terminal.isOnAlternateScreen());
  EXPECT_TRUE(terminal.isCursorVisible());
}

void expectEndByCtrlC(Terminal &terminal) {
  terminal.press(kCtrlC);
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value()) << terminal.text();
  EXPECT_TRUE(ending->exitedWith(0)) << *ending << '\n' << terminal.text();
  expectLeftWell(terminal);
}

class Frame : public testing::TestWithParam<Size> {};

TEST_P(Frame, IsDrawn) {
  Terminal terminal(optionsOf(GetParam()));
  EXPECT_EQ(awaitFrame(terminal), "");
  expectEndByCtrlC(terminal);
}

TEST_P(Frame, IsDrawnForAnotherUser) {
  if (!isRoot()) GTEST_SKIP() << "needs root, to become someone else";
  TerminalOptions options = optionsOf(GetParam());
  options.user = kNobody;
  Terminal terminal(options);
  EXPECT_EQ(awaitFrame(terminal, false), "");
  EXPECT_THAT(terminal.text(), Not(HasSubstr("MEML")));
  expectEndByCtrlC(terminal);
}

std::string nameOf(const testing::TestParamInfo<Size> &info) {
  return std::to_string(info.param.columns) + "x" + std::to_string(info.param.rows);
}

INSTANTIATE_TEST_SUITE_P(Size, Frame, testing::Values(Size{80, 24}, Size{132, 50}, Size{300, 100}),
                         nameOf);

// Independent of how the layout is reckoned, and of which columns there are.
TEST(Header, HasTheColumnsThatFit) {
  const ListColumn kList[] = {
      {Column::user, " UID ", " UID ", "UID ", 6, 0, false},
      {Column::processor, " CPU  ", " CPU ", "CPU  ", 6, 0, false},
      {Column::coalition, "COAL", "COAL", "COAL", 5, 0, false},
      {Column::band, "MS ", "MS ", "MS ", 4, 0, true},
      {Column::sandbox, "SB", "SB", "SB", 3, 0, false},
      {Column::descriptors, " FDs ", " FDs", "FDs ", 5, 0, false},
  };
  EXPECT_EQ(headerLayout(11, true, kList).text, " UID |COAL");
  EXPECT_EQ(headerLayout(12, true, kList).text, " UID | CPU ");
  EXPECT_EQ(headerLayout(16, true, kList).text, " UID | CPU |MS ");
  EXPECT_EQ(headerLayout(16, false, kList).text, " UID | CPU |SB");
  EXPECT_EQ(headerLayout(20, true, kList).text, " UID | CPU |COAL|SB");
  EXPECT_EQ(headerLayout(300, false, kList).text, " UID | CPU |COAL|SB| FDs");
  EXPECT_EQ(headerLayout(300, true, kList).text, " UID | CPU |COAL|MS |SB| FDs");
  EXPECT_EQ(headerLayout(300, true, kList).selectedStart, 6);
  EXPECT_EQ(headerLayout(300, true, kList).selectedEnd, 11);
  EXPECT_EQ(headerLayout(11, true, kList).selectedStart, -1);
}

// What the status bar says first, or is blank where that does not fit.
void expectStatusBar(Size size, const std::string &kind, int background) {
  SCOPED_TRACE(kind);
  Terminal terminal(optionsOf(size, kind));
  std::string text = "Press ? for the keys";
  const int length = static_cast<int>(text.size());
  if (length < size.columns) {
    text.insert(0, static_cast<size_t>(size.columns / 2 - length / 2), ' ');
  } else {
    text.clear();
  }
  const int row = size.rows - 1;
  const auto complaint = [&]() -> std::string {
    if (terminal.rowText(row) != text) return "another text in the status bar";
    for (int column = 0; column < size.columns - 1; column++) {
      const Cell cell = terminal.cell(row, column);
      const std::string place = " at column " + std::to_string(column);
      if (cell.background != background) return "not on red" + place;
      if (cell.foreground != kBlack) return "not black" + place;
    }
    const Cell last = terminal.cell(row, size.columns - 1);
    return isPlain(last) && last.text == " " ? "" : "the bar is too long";
  };
  EXPECT_EQ(terminal.await(complaint), "");
  expectEndByCtrlC(terminal);
}

TEST(StatusBar, SaysFirstWhichKeyShowsTheKeys) {
  expectStatusBar({132, 8}, "xterm-256color", kBrightRed);
  expectStatusBar({79, 9}, "xterm-256color", kBrightRed);
}

TEST(StatusBar, IsBlankWhereItsTextDoesNotFit) {
  expectStatusBar({20, 5}, "xterm-256color", kBrightRed);
}

TEST(StatusBar, SaysNothingAfterThreeFrames) {
  // Too low for any process: that is not for want of one.
  Terminal terminal(optionsOf({132, 8}));
  ASSERT_EQ(awaitWholeFrame(terminal), "");
  EXPECT_THAT(terminal.rowText(7), HasSubstr("Press ? for the keys"));
  for (int i = 0; i < 2; i++) refresh(terminal);
  EXPECT_THAT(terminal.rowText(7), HasSubstr("Press ? for the keys"));
  refresh(terminal);
  ASSERT_EQ(awaitWholeFrame(terminal), "");
  EXPECT_EQ(terminal.rowText(7), "");
  expectEndByCtrlC(terminal);
}

TEST(StatusBar, IsPlainRedWhereThereAreEightColours) {
  expectStatusBar({100, 9}, "linux", kRed);
}

TEST(SmallScreen, HasAHeaderRow) {
  Terminal terminal(optionsOf({20, 5}));
  EXPECT_EQ(awaitHeader(terminal), "");
  EXPECT_EQ(headerRow(terminal), 3);
  expectEndByCtrlC(terminal);
}

TEST(SmallScreen, OfOneCellDoesNoHarm) {
  Terminal terminal(optionsOf({1, 1}));
  ASSERT_TRUE(terminal.waitForWork([&] { return terminal.repaints() > 0 || terminal.hasEnded(); }));
  for (int i = 0; i < 3; i++) refresh(terminal);
  terminal.resize(132, 50);
  refresh(terminal);
  EXPECT_EQ(awaitFrame(terminal), "");
  expectEndByCtrlC(terminal);
}

class Shape : public testing::TestWithParam<Size> {};

TEST_P(Shape, IsSurvived) {
  Terminal terminal(optionsOf(GetParam()));
  ASSERT_TRUE(terminal.waitForWork([&] { return terminal.repaints() > 0 || terminal.hasEnded(); }));
  refresh(terminal);
  expectEndByCtrlC(terminal);
}

INSTANTIATE_TEST_SUITE_P(Odd, Shape,
                         testing::Values(Size{1, 1}, Size{2, 1}, Size{1, 24}, Size{2, 2},
                                         Size{80, 1}, Size{5, 40}, Size{1000, 3}, Size{500, 500}),
                         nameOf);

struct Kind {
  const char *name;
  Abilities abilities;
};

class TerminalKind : public testing::TestWithParam<Kind> {};

TEST_P(TerminalKind, ShowsTheFrame) {
  Terminal terminal(optionsOf({132, 50}, GetParam().name));
  EXPECT_EQ(awaitFrame(terminal, isRoot(), GetParam().abilities), "");
  expectEndByCtrlC(terminal);
}

INSTANTIATE_TEST_SUITE_P(Terminal, TerminalKind,
                         testing::Values(Kind{"xterm-256color", {true, true}},
                                         Kind{"linux", {true, false}},
                                         Kind{"vt100", {false, true}}),
                         [](const auto &row) {
                           std::string name = row.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

TEST(Row, OfTheSelectedProcessIsHighlightedAsAWhole) {
  const Helper busy({"busy", "1"});
  ASSERT_TRUE(waitUntil([&] { return readFacts(busy.pid())->processorTicks > 0; }));
  Terminal terminal(optionsOf({132, 50}));
  ASSERT_EQ(awaitFrame(terminal), "");
  EXPECT_EQ(complaintAboutHighlight(terminal), "") << terminal.text();
  expectEndByCtrlC(terminal);
}

TEST(Screen, IsTakenWithItsKeysWhenStandardOutputIsATerminal) {
  TerminalOptions options = optionsOf({132, 50});
  options.environment = {{"nc", "1"}};
  Terminal terminal(options);
  EXPECT_EQ(awaitFrame(terminal), "");
  ASSERT_GE(terminal.findRow("RAM:"), 0);
  terminal.press("m");
  EXPECT_TRUE(terminal.waitForWork([&] { return terminal.findRow("RAM:") < 0; }));
  expectEndByCtrlC(terminal);
}

TEST(Row, OfA32BitProcessHasItsNameUnderlined) {
#ifdef MAKE_PROCESS_32_PROGRAM
  std::unique_ptr<Helper> narrow;
  try {
    narrow = std::make_unique<Helper>(MAKE_PROCESS_32_PROGRAM, std::vector<std::string>{});
  } catch (const std::runtime_error &error) {
    GTEST_SKIP() << "this kernel runs no 32-bit programs: " << error.what();
  }
  const Helper wide({});
  // High enough for all processes.
  Terminal terminal(optionsOf({132, 900}));
  const auto complaint = [&]() -> std::string {
    const int narrowRow = rowOfProcess(terminal, narrow->pid());
    const int wideRow = rowOfProcess(terminal, wide.pid());
    if (narrowRow < 0 || wideRow < 0) return "a process is missing";
    const CellRange name = cellsOfRow(terminal, narrowRow)[kNameCell];
    for (int column = 0; column < name.end + 1; column++) {
      const bool isName = column >= name.start && column < name.end;
      if (terminal.cell(narrowRow, column).underline != isName) return "underline is wrong";
      if (terminal.cell(wideRow, column).underline) return "a 64-bit process is underlined";
    }
    return "";
  };
  EXPECT_EQ(terminal.await(complaint), "");
  expectEndByCtrlC(terminal);
#else
  GTEST_SKIP() << "the compiler makes no 32-bit programs";
#endif
}

TEST(Row, ShowsInRedThatTimeHasGrown) {
  if (!isRoot()) GTEST_SKIP() << "needs root: others have fewer columns";
  const Helper busy({"busy", "1"});
  const Helper asleep({});
  Terminal terminal(optionsOf({132, 900}));
  ASSERT_EQ(awaitHeader(terminal), "");
  const auto timeCell = [&terminal](pid_t pid) -> std::optional<Cell> {
    const int row = rowOfProcess(terminal, pid);
    if (row < 0) return std::nullopt;
    const std::vector<CellRange> cells = cellsOfRow(terminal, row);
    if (cells.size() <= kTimeCell) return std::nullopt;
    // The seconds: there are blanks before them.
    return terminal.cell(row, cells[kTimeCell].start + 4);
  };
  ASSERT_TRUE(terminal.waitForWork(
      [&] { return timeCell(busy.pid()).has_value() && timeCell(asleep.pid()).has_value(); }));
  EXPECT_NE(timeCell(busy.pid())->foreground, kRed) << "without a frame before it";

  const uint64_t before = readFacts(busy.pid())->processorTicks;
  ASSERT_TRUE(waitUntil([&] { return readFacts(busy.pid())->processorTicks > before; }));
  refresh(terminal);
  const auto complaint = [&]() -> std::string {
    const std::optional<Cell> grown = timeCell(busy.pid());
    const std::optional<Cell> same = timeCell(asleep.pid());
    if (!grown || !same) return "a process is missing";
    if (grown->foreground != kRed || grown->background != kBlack) return "not red on black";
    return isPlain(*same) ? "" : "a colour without a change";
  };
  EXPECT_EQ(terminal.await(complaint), "");
  expectEndByCtrlC(terminal);
}

TEST(Pressure, IsMarkedWithoutAWord) {
  const SteppedDevice device("kinds");
  TerminalOptions options = optionsOf({132, 50});
  options.environment = device.environment();
  Terminal terminal(options);
  ASSERT_TRUE(terminal.waitForWork([&] { return headerRow(terminal) >= 0; })) << terminal.text();
  // A thread of its own hears of it, sooner or later; the mark stays for two frames.
  const auto isMarked = [&] { return terminal.findRow(" <PRESSURE> ") >= 0; };
  constexpr Duration kOneFrame{500};
  for (int frame = 0; frame < 40 && !terminal.waitFor(isMarked, kOneFrame); frame++) {
    refresh(terminal);
  }
  EXPECT_TRUE(isMarked()) << terminal.text();
  EXPECT_THAT(terminal.written(), Not(HasSubstr("Wanted")));
  expectEndByCtrlC(terminal);
}

TEST(Resizing, DrawsEachSize) {
  Terminal terminal(optionsOf({80, 24}));
  ASSERT_EQ(awaitFrame(terminal), "");
  const Size sizes[] = {{132, 50}, {80, 24}, {1, 1},   {132, 50}, {20, 5},  {300, 100},
                        {2, 2},    {80, 50}, {40, 12}, {1, 100},  {100, 1}, {132, 50}};
  for (const Size size : sizes) {
    SCOPED_TRACE(std::to_string(size.columns) + "x" + std::to_string(size.rows));
    terminal.resize(size.columns, size.rows);
    refresh(terminal);
    const bool hasHeader = size.columns >= 20 && size.rows >= 5;
    if (size.columns >= 80 && size.rows >= 24) {
      ASSERT_EQ(awaitFrame(terminal), "");
    } else if (hasHeader) {
      ASSERT_EQ(awaitHeader(terminal), "");
    }
  }
  expectEndByCtrlC(terminal);
}

TEST(Resizing, InQuickSuccessionEndsWithTheLastSize) {
  Terminal terminal(optionsOf({80, 24}));
  ASSERT_EQ(awaitFrame(terminal), "");
  for (int i = 0; i < 60; i++) {
    terminal.resize(1 + i * 37 % 200, 1 + i * 23 % 90);
    if (i % 7 == 0) refresh(terminal);
  }
  terminal.resize(132, 50);
  refresh(terminal);
  EXPECT_EQ(awaitFrame(terminal), "");
  expectEndByCtrlC(terminal);
}

TEST(CtrlC, SaysGoodbyeOnStandardError) {
  TerminalOptions options = optionsOf({132, 50});
  options.separateError = true;
  Terminal terminal(options);
  ASSERT_EQ(awaitFrame(terminal), "");
  EXPECT_TRUE(terminal.isOnAlternateScreen());
  EXPECT_FALSE(sameModes(terminal.modes(), terminal.modesBefore()));
  expectEndByCtrlC(terminal);
  EXPECT_EQ(withoutSampling(terminal.standardError()), std::string(kFarewell) + "\n");
  EXPECT_THAT(terminal.written(), Not(HasSubstr(kFarewell)));
}

TEST(CtrlC, SaysGoodbyeBelowTheScreenThatWasLeft) {
  Terminal terminal(optionsOf({132, 50}));
  ASSERT_EQ(awaitFrame(terminal), "");
  expectEndByCtrlC(terminal);
  EXPECT_GE(terminal.findRow(kFarewell), 0) << terminal.text();
  EXPECT_EQ(headerRow(terminal), -1);
}

TEST(CtrlC, ThrowsNothingAwayThatWasDrawn) {
  Terminal terminal(optionsOf({132, 50}));
  ASSERT_EQ(awaitFrame(terminal), "");
  EXPECT_EQ(terminal.modesBefore().c_lflag & NOFLSH, 0U);
  EXPECT_NE(terminal.modes().c_lflag & NOFLSH, 0U);
  expectEndByCtrlC(terminal);
}

TEST(CtrlC, MayComeAsASignal) {
  Terminal terminal(optionsOf({132, 50}));
  ASSERT_EQ(awaitFrame(terminal), "");
  terminal.signal(SIGINT);
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_TRUE(ending->exitedWith(0)) << *ending;
  expectLeftWell(terminal);
  EXPECT_GE(terminal.findRow(kFarewell), 0) << terminal.text();
}

TEST(CtrlC, MayComeWhileAFrameIsDrawn) {
  Terminal terminal(optionsOf({300, 100}));
  ASSERT_EQ(awaitHeader(terminal), "");
  for (int i = 0; i < 20; i++) terminal.signal(SIGWINCH);
  expectEndByCtrlC(terminal);
  EXPECT_GE(terminal.findRow(kFarewell), 0) << terminal.text();
}

class DefaultSignal : public testing::TestWithParam<int> {};

TEST_P(DefaultSignal, EndsTheProgram) {
  Terminal terminal(optionsOf({80, 24}));
  ASSERT_EQ(awaitHeader(terminal), "");
  terminal.signal(GetParam());
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, GetParam()) << *ending;
}

INSTANTIATE_TEST_SUITE_P(Signal, DefaultSignal, testing::Values(SIGHUP, SIGALRM, SIGUSR1),
                         [](const auto &row) { return std::string(sigabbrev_np(row.param)); });

TEST(Termination, EndsTheProgramAndLeavesTheTerminalWell) {
  Terminal terminal(optionsOf({80, 24}));
  ASSERT_EQ(awaitHeader(terminal), "");
  terminal.signal(SIGTERM);
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  // Curses catches it, closes the screen and exits.
  EXPECT_TRUE(ending->signal == SIGTERM || ending->exitedWith(1)) << *ending;
  if (ending->signal == 0) expectLeftWell(terminal);
}

constexpr double kMuchProcessorTime = 20;

void expectEndByHangUp(const TerminalOptions &options) {
  Terminal terminal(options);
  ASSERT_EQ(awaitHeader(terminal), "");
  terminal.hangUp();
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value()) << "still running";
  EXPECT_TRUE(ending->signal == SIGHUP || ending->exitedWith(0)) << *ending;
  EXPECT_LT(ending->processorSeconds, kMuchProcessorTime);
}

TEST(HangUp, EndsTheProgram) {
  expectEndByHangUp(optionsOf({80, 24}));
}

TEST(HangUp, EndsTheProgramThatIgnoresItsSignal) {
  TerminalOptions options = optionsOf({80, 24});
  options.ignoredSignals = {SIGHUP};
  expectEndByHangUp(options);
}

TEST(UnknownTerminal, IsExplainedOnStandardOutput) {
  TerminalOptions options = optionsOf({200, 50}, "dumb-unknown");
  options.environment = withoutLeakDetection();
  options.separateError = true;
  Terminal terminal(options);
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, 0);
  EXPECT_NE(ending->status, 0);
  EXPECT_THAT(terminal.written(), testing::StartsWith(std::string(kNoScreenNotice) +
                                                      "TERM is \"dumb-unknown\".\r\n"
                                                      "Its description was looked for in "));
  expectLeftWell(terminal);
}

TEST(UnknownTerminal, IsExplainedOnTheOneTerminal) {
  TerminalOptions options = optionsOf({200, 50}, "dumb-unknown");
  options.environment = withoutLeakDetection();
  Terminal terminal(options);
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, 0);
  EXPECT_NE(ending->status, 0);
  EXPECT_THAT(terminal.written(), HasSubstr(kNoScreenNotice));
  // What curses says itself is not lost either.
  EXPECT_THAT(terminal.written(), HasSubstr("dumb-unknown"));
  expectLeftWell(terminal);
}

// The lines of a text that begin like this.
std::vector<std::string> linesWith(const std::string &text, const std::string &start) {
  std::vector<std::string> found;
  for (const std::string &line : splitLines(text)) {
    if (line.starts_with(start)) found.push_back(line.substr(0, line.find('\r')));
  }
  return found;
}

TEST(StandardError, IsHeldBackWhileTheScreenIsOpen) {
  constexpr std::string_view kOpened = "\x1b[?1049h";
  constexpr std::string_view kClosed = "\x1b[?1049l";
  const Helper crowd({"threads", "513"});
  Terminal terminal(optionsOf({132, 50}));
  ASSERT_EQ(awaitFrame(terminal), "");
  for (int i = 0; i < 4; i++) refresh(terminal);
  ASSERT_EQ(awaitFrame(terminal), "");
  expectEndByCtrlC(terminal);

  const std::string &written = terminal.written();
  const size_t opened = written.rfind(kOpened);
  const size_t closed = written.rfind(kClosed);
  ASSERT_NE(opened, std::string::npos);
  ASSERT_NE(closed, std::string::npos);
  const std::string onScreen = written.substr(opened, closed - opened);
  EXPECT_THAT(onScreen, Not(HasSubstr("proc_pidinfo")));
  EXPECT_THAT(onScreen, Not(HasSubstr("Crazzzzy")));

  static const std::regex sequence("\x1b(\\[[0-9;?]*[A-Za-z]|[>=])|\r");
  const std::string after =
      std::regex_replace(written.substr(closed + kClosed.size()), sequence, "");
  const auto times = [](const std::string &line) {
    const size_t open = line.rfind(" (");
    return open == std::string::npos ? 1 : std::stoi(line.substr(open + 2));
  };
  // The list's spare entry, which a process that starts meanwhile may take. Five frames at least.
  const std::vector<std::string> gone = linesWith(after, kNoSuchProcess);
  ASSERT_EQ(gone.size(), 1u) << after;
  EXPECT_EQ(gone[0],
            std::string(kNoSuchProcess) + " (" + std::to_string(times(gone[0])) + " times)");
  const std::string tooMany =
      "PID " + std::to_string(crowd.pid()) + " has more 513 threads. Crazzzzy";
  const std::vector<std::string> crowded = linesWith(after, tooMany);
  ASSERT_EQ(crowded.size(), 1u) << after;
  EXPECT_GE(times(crowded[0]), 5);
  EXPECT_EQ(linesWith(after, kFarewell).size(), 1u) << after;
}

TEST(StandardError, IsHeldBackOnAScreenThatOpensAgain) {
  constexpr std::string_view kOpened = "\x1b[?1049h";
  constexpr std::string_view kClosed = "\x1b[?1049l";
  const SteppedDevice device("minimal");
  TerminalOptions options = optionsOf({132, 50});
  options.environment = device.environment();
  // With it, what is wrong with a coalition is said below the closed screen: here with each sample.
  options.environment.emplace_back("ZDEBUG", "1");
  Terminal terminal(options);
  ASSERT_TRUE(terminal.waitForWork([&] { return headerRow(terminal) >= 0; })) << terminal.text();
  for (int i = 0; i < 3; i++) refresh(terminal);
  expectEndByCtrlC(terminal);

  const std::string &written = terminal.written();
  int screens = 0;
  for (size_t opened = 0; (opened = written.find(kOpened, opened)) != std::string::npos;
       screens++) {
    const size_t closed = written.find(kClosed, opened);
    EXPECT_THAT(written.substr(opened, closed - opened), Not(HasSubstr("proc_pidinfo")));
    opened += kOpened.size();
  }
  EXPECT_GE(screens, 4);
  EXPECT_THAT(written, HasSubstr("proc_pidinfo"));
}

TEST(StandardError, ThatGoesElsewhereIsLeftAlone) {
  const Helper zombie({"zombies", "1"});
  TerminalOptions options = optionsOf({132, 50});
  options.separateError = true;
  Terminal terminal(options);
  ASSERT_EQ(awaitFrame(terminal), "");
  for (int i = 0; i < 3; i++) refresh(terminal);
  const auto linesSoFar = [&] {
    return linesWith(terminal.standardError(), kNoSuchProcess).size();
  };
  // One at least for each sample: that of the start and those of four frames. They come at once.
  EXPECT_TRUE(terminal.waitFor([&] { return linesSoFar() >= 5; })) << terminal.standardError();
  EXPECT_THAT(terminal.standardError(), Not(HasSubstr("times)")));
  expectEndByCtrlC(terminal);
}

}  // namespace
}  // namespace test
