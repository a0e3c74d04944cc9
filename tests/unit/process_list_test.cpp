#include "screens/process_list.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "columns/column_table.h"
#include "screens/cpu_summary.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "terminal/status_bar.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/list_screen.h"

namespace {

using namespace sondex;
using sampled::ListScreenTest;
using sampled::outputOf;

struct Drawn {
  const ProcessRecord *current;
  const ProcessRecord *previous;
};
std::vector<Drawn> g_drawn;

int printName(ProcessRecord *current, ProcessRecord *previous) {
  g_drawn.push_back({current, previous});
  return output(current->taskAllInfo.pbsd.pbi_comm, 0);
}
int printX(ProcessRecord *, ProcessRecord *) {
  return output("x", 0);
}
int printY(ProcessRecord *, ProcessRecord *) {
  return output("y", 0);
}

class ProcessList : public ListScreenTest {
 protected:
  ProcessList() {
    g_drawn.clear();
    addColumn("NAME", 10, printName);
  }

  ColumnDescriptor &addColumn(const char *header, int32_t width, Renderer print) {
    ColumnDescriptor column = {};
    std::strncpy(column.header, header, sizeof column.header - 1);
    column.width = width;
    column.print = print;
    return *appendColumn(&perspective, &column);
  }

  std::string show(const char *filter = nullptr, TableView previous = {}) {
    return outputOf([&] { showProcesses(currentTable(), previous, filter); });
  }

  // The rows of a plain frame: what follows the blank line of the summary.
  std::string rows(const char *filter = nullptr, TableView previous = {}) {
    const std::string shown = show(filter, previous);
    const size_t end = shown.find("\n\n");
    EXPECT_NE(end, std::string::npos);
    return shown.substr(end + 2);
  }

  ProcessRecord *table() { return load(g_process_information); }
};

TEST_F(ProcessList, WithoutATableSaysSo) {
  setStatusBar("kept", 1);
  EXPECT_EQ(outputOf([] { showProcesses({}, {}, nullptr); }), "No processes\n");
  EXPECT_STREQ(getStatusBar(), "kept");
}

TEST_F(ProcessList, HasNoColumnHeadersInPlainMode) {
  current({"a", "b"});
  EXPECT_EQ(rows(), "a\nb\n");
}

TEST_F(ProcessList, SeparatesColumnsWithLines) {
  addColumn("X", 4, printX);
  addColumn("Y", 4, printY);
  current({"a", "b"});
  EXPECT_EQ(rows(), "a|x|y\nb|x|y\n");
  store(g_wantLines, 0);
  EXPECT_EQ(rows(), "axy\nbxy\n");
}

TEST_F(ProcessList, HiddenFirstColumnStillGivesTheNextALine) {
  addColumn("X", 4, printX);
  store(load(perspective.columns[0])->hidden, 1);
  current({"a"});
  EXPECT_EQ(rows(), "|x\n");
}

TEST_F(ProcessList, LeavesOutWhatRightsAndKernelForbid) {
  addColumn("X", 4, printX).rootOnly = 1;
  addColumn("Y", 4, printY).minOSVersion = 9;
  current({"a"});
  g_OsVer = 8;
  EXPECT_EQ(rows(), "a\n");
  g_r00t = 1;
  EXPECT_EQ(rows(), "a|x\n");
  g_OsVer = 9;
  EXPECT_EQ(rows(), "a|x|y\n");
}

TEST_F(ProcessList, RowsDoNotWaitForNetworkStatistics) {
  addColumn("X", 4, printX).needsNetStat = 1;
  current({"a"});
  EXPECT_EQ(rows(), "a|x\n");
}

TEST_F(ProcessList, ShowsTheColumnsThatFit) {
  addColumn("X", 5, printX);
  addColumn("Y", 4, printY);
  current({"a"});
  store(x, 19);
  EXPECT_EQ(rows(), "a|x|y\n");
  store(x, 18);
  EXPECT_EQ(rows(), "a|x\n");
  store(x, 14);
  EXPECT_EQ(rows(), "a|y\n") << "a narrower later one still fits";
  store(x, 13);
  EXPECT_EQ(rows(), "a\n");
  EXPECT_EQ(load(x), 13) << "the width of plain output is left as it is";
}

TEST_F(ProcessList, WalkEndsAtTheEntryWithoutARenderer) {
  addColumn("X", 4, nullptr);
  addColumn("Y", 4, printY);
  current({"a"});
  EXPECT_EQ(rows(), "a\n");
}

TEST_F(ProcessList, PassesOverEmptyNames) {
  current({"", "a", "", "b", ""});
  EXPECT_EQ(rows(), "a\nb\n");
  EXPECT_EQ(load(g_procs_viewable), 2);
  EXPECT_EQ(table()[0].displayed, 0);
  EXPECT_EQ(table()[1].displayed, 1);
}

TEST_F(ProcessList, FilterIsAPartOfTheName) {
  current({"networkd", "backboardd", "Network", "mynet"});
  EXPECT_EQ(rows("net"), "networkd\nmynet\n");
  EXPECT_EQ(load(g_procs_viewable), 2);
  EXPECT_EQ(table()[1].displayed, 0);
  EXPECT_EQ(table()[3].displayed, 1);
  EXPECT_EQ(rows("Net"), "Network\n");
  EXPECT_EQ(rows(""), "networkd\nbackboardd\nNetwork\nmynet\n");
}

TEST_F(ProcessList, FilterThatBeginsWithADashPassesEveryName) {
  current({"a", "", "b"});
  EXPECT_EQ(rows("-"), "a\nb\n");
  EXPECT_EQ(rows("-zzz"), "a\nb\n");
  EXPECT_STREQ(getStatusBar(), "---- Filtering processes by : -zzz ----");
}

TEST_F(ProcessList, FilterLooksNoFurtherThanTheShortName) {
  current({"a"});
  darwin::proc_bsdinfo &process = table()[0].taskAllInfo.pbsd;
  std::memset(process.pbi_comm, 'c', sizeof process.pbi_comm);
  std::strcpy(process.pbi_name, "longer");
  rows("longer");
  EXPECT_EQ(load(g_procs_viewable), 0);
}

TEST_F(ProcessList, SocketFilterPassesOwnersOfSources) {
  current({"a", "b", "c"});
  store(process_pid_info[5], 102);
  EXPECT_EQ(rows(), "a\nb\nc\n");
  store(g_filterSockets, 1);
  EXPECT_EQ(rows(), "b\n");
  EXPECT_EQ(load(g_procs_viewable), 1);
  EXPECT_EQ(rows("c"), "");
}

TEST_F(ProcessList, RenderersGetThePreviousRecordOfThePid) {
  current({"a", "b"});
  ProcessRecord *previous = allocateProcessTable(2);
  previous[0].taskAllInfo.pbsd.pbi_pid = 102;
  previous[1].taskAllInfo.pbsd.pbi_pid = 101;
  store(g_previous_process_information, previous);
  store(previous_num_procs, 1);
  rows(nullptr, previousTable());
  ASSERT_EQ(g_drawn.size(), 2u);
  EXPECT_EQ(g_drawn[0].current, &table()[0]);
  EXPECT_EQ(g_drawn[0].previous, nullptr) << "beyond the previous count";
  EXPECT_EQ(g_drawn[1].previous, &previous[0]);
  g_drawn.clear();
  rows();
  EXPECT_EQ(g_drawn[1].previous, nullptr);
}

TEST_F(ProcessList, CompressorGrowthIsThatOfTheTwoTables) {
  ProcessRecord *previous = allocateProcessTable(1);
  previous->compressionsStash = 5;
  store(g_previous_process_information, previous);
  current({"a"});
  store(g_showMemory, 1);
  store(g_Compression, 1);
  store(g_Delta, 1);
  machine.memory.compressions = 12 * 256;
  EXPECT_THAT(show(nullptr, {previous, 1}), testing::HasSubstr("Comp:    7M , Decomp:    0M"));
  EXPECT_EQ(table()->compressionsStash, 12u);
}

class Banners : public ProcessList {};

TEST_F(Banners, CountTheSections) {
  current({"a"});
  show();
  EXPECT_EQ(load(banners), 8);
  for (SharedInt *section : {&g_Compression, &g_Processors, &g_Swap}) {
    store(*section, 1);
    show();
    EXPECT_EQ(load(banners), 9);
    store(*section, 0);
  }
  for (SharedInt Perspective::*section : {&Perspective::ShowPower, &Perspective::ShowNetworks}) {
    perspective.*section = 1;
    show();
    EXPECT_EQ(load(banners), 9);
    perspective.*section = 0;
  }
  store(g_showMemory, 1);
  perspective.ShowDisks = 1;
  show();
  EXPECT_EQ(load(banners), 8) << "memory and disks are in the fixed ones";
}

TEST_F(Banners, OfEachProcessorAreAsManyAsThere) {
  current({"a"});
  store(g_EachCPU, 1);
  g_num_cpus = 6;
  show();
  EXPECT_EQ(load(banners), 13);
  g_num_cpus = INT32_MAX;
  show();
  EXPECT_EQ(load(banners), 7 + 65536);
  g_num_cpus = INT32_MIN;
  show();
  EXPECT_EQ(load(banners), 7);
  store(g_EachCPU, 0);
  show();
  EXPECT_EQ(load(banners), 8);
}

class LongList : public ProcessList {
 protected:
  void manyProcesses(size_t count) { current(std::vector<std::string>(count, "p")); }

  static size_t rowsIn(const std::string &text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
  }
};

TEST_F(LongList, HasOneRowMoreThanThereIsRoomFor) {
  manyProcesses(1200);
  // 1000 lines less 8 of the header, and one.
  EXPECT_EQ(rowsIn(rows()), 993u);
  EXPECT_EQ(load(y), 1000);
  EXPECT_EQ(load(g_procs_viewable), 1200);
  EXPECT_EQ(table()[992].displayed, 1);
  EXPECT_EQ(table()[993].displayed, 0);
}

TEST_F(LongList, BeginsWithTheFirstToShow) {
  current({"a", "b", "c", "d"});
  store(g_firstProcToShow, 2);
  EXPECT_EQ(rows(), "c\nd\n");
  EXPECT_EQ(load(g_procs_viewable), 4);
  EXPECT_EQ(table()[1].displayed, 0);
}

TEST_F(LongList, FirstToShowCountsRecordsNotMatches) {
  current({"a1", "b", "a2", "b", "a3"});
  store(g_firstProcToShow, 2);
  EXPECT_EQ(rows("a"), "a2\na3\n");
  EXPECT_EQ(load(g_procs_viewable), 3);
}

class ListMessages : public ProcessList {};

TEST_F(ListMessages, NoneMeansNone) {
  current({"a"});
  show();
  EXPECT_STREQ(getStatusBar(), "");
}

TEST_F(ListMessages, FilterIsNamed) {
  current({"net"});
  show("ne");
  EXPECT_STREQ(getStatusBar(), "---- Filtering processes by : ne ----");
}

TEST_F(ListMessages, FilterInDeltaModeSaysSo) {
  current({"net"});
  store(g_Delta, 1);
  show("net");
  EXPECT_STREQ(getStatusBar(), "---- Filtering processes by : net (Delta Mode)----");
}

TEST_F(ListMessages, FilterThatIsGoneIsCleared) {
  current({"net"});
  for (const char *none : {static_cast<const char *>(nullptr), ""}) {
    show("net");
    show(none);
    EXPECT_STREQ(getStatusBar(), "");
  }
}

TEST_F(ListMessages, OthersStay) {
  current({"net"});
  setStatusBar("Updates Frozen ('F' to toggle back)", 3);
  show();
  EXPECT_STREQ(getStatusBar(), "Updates Frozen ('F' to toggle back)");
}

TEST_F(ListMessages, NothingMatchesIsSaidWithTheFilter) {
  current({"a", "b"});
  EXPECT_EQ(rows("zzz"), "");
  EXPECT_STREQ(getStatusBar(),
               "---- No processes match zzz(press / again and hit <enter> to remove filter) ----");
  EXPECT_EQ(load(g_procs_viewable), 0);
}

TEST_F(ListMessages, NothingMatchesWithoutAFilter) {
  current({"", ""});
  show();
  EXPECT_STREQ(getStatusBar(),
               "---- No processes match (press / again and hit <enter> to remove filter) ----");
}

TEST_F(ListMessages, NothingMatchesAlsoWhenAllIsScrolledAway) {
  current({"a", "b"});
  store(g_firstProcToShow, 2);
  show();
  EXPECT_STREQ(getStatusBar(),
               "---- No processes match (press / again and hit <enter> to remove filter) ----");
  EXPECT_EQ(load(g_procs_viewable), 2);
}

TEST_F(ListMessages, LongFilterIsCutToTheBar) {
  current({"a"});
  const std::string filter(300, 'f');
  show(filter.c_str());
  EXPECT_EQ(getStatusBar(), ("---- No processes match " + filter).substr(0, 259));
}

TEST_F(ListMessages, FilterCannotDriveTheTerminal) {
  current({"a\x1b]b"});
  show("\x1b]");
  EXPECT_STREQ(getStatusBar(), "---- Filtering processes by : ?] ----");
}

TEST_F(ListMessages, ScrollingIsNotSaidInPlainMode) {
  current({"a", "b", "c"});
  store(g_firstProcToShow, 1);
  show();
  EXPECT_STREQ(getStatusBar(), "");
}

TEST_F(ListMessages, ScrollingMessageIsClearedAtTheTop) {
  current({"a"});
  setStatusBar("---- Showing processes 3-6 of 6(scroll up to see previous) ----", -1);
  show();
  EXPECT_STREQ(getStatusBar(), "");
}

// With every section off the header takes two screen rows, then come the column headers.
constexpr int kHeaderRow = 2;
constexpr int kFirstRow = 3;

class ListOnScreen : public ProcessList {
 protected:
  explicit ListOnScreen(int columns = 120) : screen(12, columns) {}

  void frame(const char *filter = nullptr) {
    CursesScreen::empty();
    showProcesses(currentTable(), {}, filter);
  }

  // A row without the blanks at its end; line-drawing bars as such.
  static std::string trimmed(int row) {
    const std::string bar(1, static_cast<char>(ACS_VLINE & A_CHARTEXT));
    std::string text;
    for (int column = 0; column < CursesScreen::columns(); column++) {
      const CursesScreen::Cell cell = CursesScreen::cell(row, column);
      const bool drawn = (cell.attributes & A_ALTCHARSET) != 0 && cell.text == bar;
      text += drawn ? "\u2502" : cell.text;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
  }

  // Eight lines are the header's, so four and one more are for processes.
  CursesScreen screen;
};

TEST_F(ListOnScreen, MeasuresTheScreen) {
  current({"a"});
  frame();
  EXPECT_EQ(load(y), 12);
  EXPECT_EQ(load(x), 120);
  EXPECT_TRUE(is_scrollok(stdscr));
  EXPECT_TRUE(is_idlok(stdscr));
}

TEST_F(ListOnScreen, HasColumnHeadersBetweenLines) {
  addColumn("X", 4, printX);
  current({"a", "b"});
  frame();
  // A header shorter than its width is followed by one blank.
  EXPECT_EQ(trimmed(kHeaderRow), "NAME |X");
  EXPECT_EQ(trimmed(kFirstRow), "a\u2502x");
  EXPECT_EQ(trimmed(kFirstRow + 1), "b\u2502x");
  EXPECT_EQ(load(g_lastVisibleCol), 1);
  store(g_wantLines, 0);
  frame();
  EXPECT_EQ(trimmed(kHeaderRow), "NAME X");
  EXPECT_EQ(trimmed(kFirstRow), "ax");
}

TEST_F(ListOnScreen, HiddenFirstColumnLeavesALineInFront) {
  addColumn("X", 4, printX);
  store(load(perspective.columns[0])->hidden, 1);
  current({"a"});
  frame();
  EXPECT_EQ(trimmed(kHeaderRow), "|X");
}

TEST_F(ListOnScreen, HeaderWaitsForNetworkStatistics) {
  addColumn("X", 4, printX).needsNetStat = 1;
  addColumn("Y", 4, printY);
  current({"a"});
  frame();
  EXPECT_EQ(trimmed(kHeaderRow), "NAME |Y");
  EXPECT_EQ(trimmed(kFirstRow), "a\u2502x\u2502y") << "the cell doesn't";
  EXPECT_EQ(load(g_lastVisibleCol), 2);
  store(g_nstat_ok, 1);
  frame();
  EXPECT_EQ(trimmed(kHeaderRow), "NAME |X |Y");
}

TEST_F(ListOnScreen, LastVisibleColumnIsTheLastThatFits) {
  addColumn("X", 111, printX);
  addColumn("Y", 110, printY);
  addColumn("Z", 1, printX);
  current({"a"});
  frame();
  EXPECT_EQ(load(g_lastVisibleCol), 2);
}

int printTooWide(ProcessRecord *, ProcessRecord *) {
  return output(std::string(150, 'w').c_str(), 0);
}

int printTooWideText(ProcessRecord *, ProcessRecord *) {
  // Up to the last cell but one, then a character of three bytes and one cell.
  return output((std::string(117, 'w') + "\u20ac" + "end").c_str(), 0);
}

TEST_F(ListOnScreen, AValueTooWideForTheScreenIsCutAtItsEdge) {
  addColumn("X", 5, printTooWide);
  addColumn("Y", 5, printX);
  current({"a", "b"});
  frame();
  EXPECT_EQ(trimmed(kFirstRow), "a\u2502" + std::string(118, 'w'));
  EXPECT_EQ(trimmed(kFirstRow + 1), "b\u2502" + std::string(118, 'w'));
  EXPECT_EQ(trimmed(kFirstRow + 2), "");
}

TEST_F(ListOnScreen, AValueIsCutByCells) {
  addColumn("X", 5, printTooWideText);
  current({"a"});
  frame();
  EXPECT_EQ(trimmed(kFirstRow), "a\u2502" + std::string(117, 'w') + "\u20ac");
  EXPECT_EQ(trimmed(kFirstRow + 1), "");
}

int printTooWideCharacter(ProcessRecord *, ProcessRecord *) {
  return output((std::string(117, 'w') + "\u4e2d" + "end").c_str(), 0);
}

TEST_F(ListOnScreen, ACharacterOfTwoCellsIsNotHalved) {
  addColumn("X", 5, printTooWideCharacter);
  current({"a"});
  frame();
  EXPECT_EQ(trimmed(kFirstRow), "a\u2502" + std::string(117, 'w'));
  EXPECT_EQ(trimmed(kFirstRow + 1), "");
}

class ListOnNarrowScreen : public ListOnScreen {
 protected:
  ListOnNarrowScreen() : ListOnScreen(20) {}

  // The summary goes on in further rows here: where the column headers are is looked for.
  static int rowOf(const std::string &beginning) {
    int row = 0;
    while (row < CursesScreen::rows() && !trimmed(row).starts_with(beginning)) row++;
    return row;
  }
};

int printEleven(ProcessRecord *, ProcessRecord *) {
  return output("12345678901", 0);
}
int printSeven(ProcessRecord *, ProcessRecord *) {
  return output("1234567", 0);
}

// With the first column hidden there is a line in front of each: they fill the screen's width.
TEST_F(ListOnNarrowScreen, ColumnsThatFillALineToItsLastCellTakeNoOther) {
  store(load(perspective.columns[0])->hidden, 1);
  addColumn("ABCDEFGHIJK", 12, printEleven);
  addColumn("LAST...", 8, printSeven);
  current({"a", "b"});
  frame();
  const int header = rowOf("|ABCDEFGHIJK|LAST...");
  ASSERT_LT(header, 9);
  EXPECT_EQ(trimmed(header + 1), "\u250212345678901\u25021234567");
  EXPECT_EQ(trimmed(header + 2), "\u250212345678901\u25021234567");
  EXPECT_EQ(trimmed(header + 3), "");
}

int printAccent(ProcessRecord *, ProcessRecord *) {
  return output("\u0301", 0);
}

// Curses puts it over the last cell of the row above.
TEST_F(ListOnNarrowScreen, ACharacterWithoutACellFillsNoLine) {
  perspective.numColumns = 0;
  addColumn("MARK", 5, printAccent);
  addColumn("X", 4, printX);
  current({"a", "b"});
  frame();
  const int header = rowOf("MARK|X");
  ASSERT_LT(header, 9);
  EXPECT_THAT(trimmed(header + 1), testing::StartsWith("\u2502x"));
  EXPECT_THAT(trimmed(header + 2), testing::StartsWith("\u2502x"));
}

TEST_F(ListOnNarrowScreen, LosesItsFirstLinesWhereThereIsNoRoom) {
  current({"a"});
  frame();
  const int header = rowOf("NAME");
  ASSERT_GE(header, 2);
  ASSERT_EQ(wresize(stdscr, header + 1, 20), OK);
  frame();
  EXPECT_EQ(rowOf("NAME"), header - 1);
  EXPECT_EQ(trimmed(header), "") << "the last row is the status bar's";
}

TEST_F(ListOnScreen, HeaderIsUnderlinedAndTheSelectedColumnBold) {
  addColumn("X", 4, printX);
  perspective.selectedColumn = 1;
  current({"a", "b"});
  store(g_selectedProcess, 1);
  frame();
  const CursesScreen::Cell plain = CursesScreen::cell(kHeaderRow, 0);
  EXPECT_EQ(plain.attributes, static_cast<attr_t>(A_UNDERLINE));
  EXPECT_EQ(plain.pair, 1);
  const CursesScreen::Cell selected = CursesScreen::cell(kHeaderRow, 6);
  EXPECT_EQ(selected.text, "X");
  EXPECT_EQ(selected.attributes, static_cast<attr_t>(A_UNDERLINE | A_BOLD));
  EXPECT_EQ(selected.pair, 2);
  const CursesScreen::Cell cell = CursesScreen::cell(kFirstRow, 2);
  EXPECT_EQ(cell.text, "x");
  EXPECT_EQ(cell.attributes, static_cast<attr_t>(A_BOLD));
  EXPECT_EQ(cell.pair, 2);
}

TEST_F(ListOnScreen, SelectedProcessIsReversedAndBoldAndNoOther) {
  current({"a", "b", "c"});
  perspective.selectedColumn = 5;
  store(g_selectedProcess, 1);
  store(g_Row, 1);
  frame();
  EXPECT_EQ(CursesScreen::cell(kFirstRow, 0).attributes, static_cast<attr_t>(A_NORMAL));
  EXPECT_EQ(CursesScreen::cell(kFirstRow + 1, 0).text, "b");
  EXPECT_EQ(CursesScreen::cell(kFirstRow + 1, 0).attributes,
            static_cast<attr_t>(A_REVERSE | A_BOLD));
  EXPECT_EQ(CursesScreen::cell(kFirstRow + 2, 0).attributes, static_cast<attr_t>(A_NORMAL));
}

TEST_F(ListOnScreen, BoldGoesOnToTheCursorsRowWhereThatIsAnother) {
  current({"a", "b", "c", "d", "e"});
  perspective.selectedColumn = 5;
  store(g_selectedProcess, 1);
  store(g_firstProcToShow, 1);
  store(g_Row, 2);
  frame();
  const attr_t expected[] = {A_REVERSE | A_BOLD, A_BOLD, A_BOLD, A_NORMAL};
  for (int row = 0; row < 4; row++) {
    EXPECT_EQ(CursesScreen::cell(kFirstRow + row, 0).attributes, expected[row]) << row;
  }
}

TEST_F(ListOnScreen, WithoutColoursOnlyLinesAndBoldRemain) {
  addColumn("X", 4, printX);
  perspective.selectedColumn = 1;
  current({"a", "b"});
  store(g_Color, 0);
  frame();
  EXPECT_EQ(CursesScreen::cell(kHeaderRow, 6).attributes,
            static_cast<attr_t>(A_UNDERLINE | A_BOLD));
  EXPECT_EQ(CursesScreen::cell(kFirstRow + 1, 2).attributes, static_cast<attr_t>(A_BOLD));
  for (const int row : {kHeaderRow, kFirstRow, kFirstRow + 1}) {
    for (int column = 0; column < 7; column++) {
      EXPECT_EQ(CursesScreen::cell(row, column).pair, 0) << row << ", " << column;
    }
  }
}

TEST_F(ListOnScreen, SeparatorsHaveTheHeadersColourInEveryRow) {
  addColumn("X", 4, printX);
  current({"a", "b"});
  frame();
  for (const int row : {kHeaderRow, kFirstRow, kFirstRow + 1}) {
    const int separator = row == kHeaderRow ? 5 : 1;
    EXPECT_EQ(CursesScreen::cell(row, separator).pair, kPairHeader) << row;
  }
  EXPECT_EQ(CursesScreen::cell(kFirstRow, 2).pair, 0);
}

TEST_F(ListOnScreen, SelectedColumnOfTheSelectedProcessHasNoColour) {
  addColumn("X", 4, printX);
  perspective.selectedColumn = 1;
  current({"a", "b"});
  frame();
  EXPECT_EQ(CursesScreen::cell(kFirstRow, 2).pair, 0);
  EXPECT_EQ(CursesScreen::cell(kFirstRow, 2).attributes, static_cast<attr_t>(A_REVERSE | A_BOLD));
  EXPECT_EQ(CursesScreen::cell(kFirstRow + 1, 2).pair, kPairSelected);
}

TEST_F(ListOnScreen, HasOneRowMoreThanThereIsRoomFor) {
  current({"a", "b", "c", "d", "e", "f", "g"});
  frame();
  EXPECT_EQ(trimmed(kFirstRow + 4), "e");
  EXPECT_EQ(trimmed(kFirstRow + 5), "");
  EXPECT_EQ(load(g_procs_viewable), 7);
}

TEST_F(ListOnScreen, ScrollingIsSaid) {
  current({"a", "b", "c", "d", "e", "f"});
  store(g_firstProcToShow, 2);
  frame();
  EXPECT_EQ(trimmed(kFirstRow), "c");
  EXPECT_STREQ(getStatusBar(), "---- Showing processes 3-6 of 6(scroll up to see previous) ----");
  store(g_firstProcToShow, 0);
  frame();
  EXPECT_STREQ(getStatusBar(), "");
}

TEST_F(ListOnScreen, ScrollingSaysWhenNotAllAreViewable) {
  current({"a", "b", "", "d"});
  store(g_firstProcToShow, 1);
  frame();
  EXPECT_STREQ(getStatusBar(),
               "---- Showing processes 2-4 of 3 viewable (scroll up to see previous) ----");
}

TEST_F(ListOnScreen, FilterMessageTakesThePlaceOfTheScrollingMessage) {
  current({"a", "a", "a"});
  store(g_firstProcToShow, 1);
  frame("a");
  EXPECT_STREQ(getStatusBar(), "---- Filtering processes by : a ----");
}

TEST_F(ListOnScreen, MessagesStayUntilReplaced) {
  current({"a", "a", "a"});
  for (int redraws = 0; redraws < 5; redraws++) {
    frame("a");
    EXPECT_THAT(CursesScreen::text(11), testing::HasSubstr("---- Filtering processes by : a ----"));
  }
  for (int redraws = 0; redraws < 5; redraws++) printStatusBar();
  EXPECT_STREQ(getStatusBar(), "---- Filtering processes by : a ----");
  EXPECT_EQ(CursesScreen::cell(11, 0).pair, 5);
}

}  // namespace
