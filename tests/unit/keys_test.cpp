#include "control/keys.h"

// Curses first, with wide characters.
#include "tests/unit/curses_screen.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "columns/perspective.h"
#include "darwin/proc_info.h"
#include "darwin/signals.h"
#include "host/darwin/errors.h"
#include "main/refresh_loop.h"
#include "terminal/drawing_lock.h"
#include "terminal/ending.h"
#include "terminal/status_bar.h"
#include "tests/harness/configuration_file.h"
#include "tests/harness/list_columns.h"
#include "tests/unit/sampled_machine.h"
#include "tests/unit/typed_keys.h"
#include "tests/unit/wake_pipe.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::outputOf;
using sampled::SampledTest;
using test::kListColumns;
using test::kSelectedColumn;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr int kEnter = 10;
constexpr int kDown = 258;
constexpr int kUp = 259;
constexpr int kLeft = 260;
constexpr int kRight = 261;
constexpr int kShiftedLeft = 393;
constexpr int kShiftedRight = 402;

struct ListedProcess {
  int32_t pid;
  bool shown;
  uint32_t status = darwin::SRUN;
};

class Keys : public SampledTest {
 protected:
  ~Keys() override { applyFilter(nullptr); }

  // The table that the last refresh left.
  ProcessRecord *shown(const std::vector<ListedProcess> &processes) {
    releaseProcessTable(load(g_previous_process_information));
    ProcessRecord *table = allocateProcessTable(processes.size() + 1);
    for (size_t i = 0; i < processes.size(); i++) {
      table[i].taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(processes[i].pid);
      table[i].taskAllInfo.pbsd.pbi_status = processes[i].status;
      table[i].displayed = processes[i].shown ? 1 : 0;
    }
    const auto count = static_cast<int32_t>(processes.size());
    store(g_process_information, table);
    store(num_procs, count);
    store(g_previous_process_information, table);
    store(previous_num_procs, count);
    setDrawnTable({table, count});
    return table;
  }

  // Every word that keys may change.
  static std::vector<int32_t> allWords() {
    Perspective *perspective = getCurrentPerspective();
    std::vector<int32_t> all;
    const std::vector<const SharedInt *> words = {&g_Delay,
                                                  &g_updates,
                                                  &g_Color,
                                                  &g_wantLines,
                                                  &g_Delta,
                                                  &g_IrixMode,
                                                  &g_reverse,
                                                  &g_filterSockets,
                                                  &g_showArgs,
                                                  &g_Processors,
                                                  &g_EachCPU,
                                                  &g_showMemory,
                                                  &g_Compression,
                                                  &g_Swap,
                                                  &g_selectedProcess,
                                                  &g_firstProcToShow,
                                                  &g_Row,
                                                  &g_procs_viewable,
                                                  &banners,
                                                  &g_Max_Cols,
                                                  &g_lastVisibleCol,
                                                  &y,
                                                  &x,
                                                  &perspective->selectedColumn,
                                                  &perspective->ShowWiFi,
                                                  &perspective->ShowDisks,
                                                  &perspective->ShowNetworks,
                                                  &perspective->ShowPower};
    for (const SharedInt *word : words) all.push_back(load(*word));
    return all;
  }

  static std::string header(int32_t index) {
    return load(getCurrentPerspective()->columns[index])->header;
  }

  static void hide(int32_t index) {
    store(load(getCurrentPerspective()->columns[index])->hidden, 1);
  }
};

TEST_F(Keys, ToggleTheirWord) {
  Perspective *perspective = getCurrentPerspective();
  const struct {
    const char *keys;
    SharedInt *word;
  } kRows[] = {
      {"1", &g_EachCPU},        {"Dd", &g_Delta},      {"Ff", &g_updates},
      {"I", &g_IrixMode},       {"Mm", &g_showMemory}, {"Nn", &perspective->ShowNetworks},
      {"c", &g_Color},          {"r", &g_reverse},     {"Pp", &perspective->ShowPower},
      {"Ss", &g_filterSockets},
  };
  for (const auto &row : kRows) {
    for (const char *key = row.keys; *key != '\0'; key++) {
      SCOPED_TRACE(*key);
      std::vector<int32_t> before = allWords();
      const int32_t first = load(*row.word);
      handleKey(*key);
      EXPECT_EQ(load(*row.word), first == 0 ? 1 : 0);
      EXPECT_NE(allWords(), before);
      handleKey(*key);
      EXPECT_EQ(allWords(), before);
    }
  }
}

TEST_F(Keys, OthersDoNothing) {
  shown({{1, true}, {2, true}});
  const std::vector<int32_t> before = allWords();
  const std::string acting("\n !-/1?DdFfGIJKTtMmNnPpQqSsUubcr");
  for (int key = 0; key < 1000; key++) {
    if (key < 256 && acting.find(static_cast<char>(key)) != std::string::npos) continue;
    if ((key >= kDown && key <= kRight) || key == kShiftedLeft || key == kShiftedRight) continue;
    EXPECT_EQ(outputOf([&] { handleKey(key); }), "") << key;
  }
  EXPECT_EQ(allWords(), before);
  EXPECT_STREQ(getStatusBar(), "");
  EXPECT_EQ(getFilter(), nullptr);
  EXPECT_EQ(reasonToEnd(), 0);
}

TEST_F(Keys, SayWhichModeIsOn) {
  const struct {
    int key;
    const char *first;
    const char *second;
  } kRows[] = {
      {'D', "Delta mode on", "Delta mode off"},
      {'d', "Delta mode on", "Delta mode off"},
      {'I', "Irix mode on", "Irix mode off"},
      {'c', "Black & White? Oh well. Whatever makes you happy...", "Life is better in color"},
  };
  for (const auto &row : kRows) {
    handleKey(row.key);
    EXPECT_STREQ(getStatusBar(), row.first);
    handleKey(row.key);
    EXPECT_STREQ(getStatusBar(), row.second);
  }
}

TEST_F(Keys, OthersThatToggleSayNothing) {
  setStatusBar("kept", 3);
  for (const char key : std::string("1FfMmNnPpr")) {
    handleKey(key);
    EXPECT_STREQ(getStatusBar(), "kept") << key;
  }
}

TEST_F(Keys, MessagesStayForThreeRedraws) {
  const test::ConfigurationFile file;
  CursesScreen screen(10, 80);
  for (const int key : {'D', 'I', 'c', '!'}) {
    handleKey(key);
    for (int redraw = 0; redraw < 3; redraw++) printStatusBar();
    EXPECT_STRNE(getStatusBar(), "") << key;
    printStatusBar();
    EXPECT_STREQ(getStatusBar(), "") << key;
  }
}

TEST_F(Keys, SavingSaysSoWhateverCameOfIt) {
  const char *saved = "Saved config to /tmp/.sdrc - drop this in your directory for next time";
  const test::ConfigurationFile file;
  handleKey('!');
  EXPECT_STREQ(getStatusBar(), saved);
  // What is in its place can't be opened as a file, whoever tries.
  if (file.isOurs()) {
    std::remove(test::ConfigurationFile::kPath);
    ASSERT_EQ(mkdir(test::ConfigurationFile::kPath, 0700), 0);
  }
  clearStatusBar();
  handleKey('!');
  EXPECT_STREQ(getStatusBar(), saved);
}

TEST_F(Keys, HelpIsThatOfTheList) {
  const std::string text = outputOf([] { handleKey('?'); });
  EXPECT_THAT(text, HasSubstr("Scroll through process list"));
}

TEST_F(Keys, GestaltIsShownOnlyWhereThereIsOne) {
  EXPECT_EQ(outputOf([] { handleKey('G'); }), "");
}

TEST_F(Keys, EnterOpensTheDetailsOfTheSelected) {
  shown({{76, true}, {77, true}});
  store(g_selectedProcess, 1);
  std::string text;
  errorOutputOf([&text] { text = outputOf([] { handleKey(kEnter); }); });
  EXPECT_THAT(text, HasSubstr("Process: 77\t"));
  EXPECT_THAT(text, Not(HasSubstr("Process: 76\t")));
}

TEST_F(Keys, EnterOpensNothingWithoutARow) {
  shown({{1, true}});
  store(g_Row, -1);
  EXPECT_EQ(outputOf([] { handleKey(kEnter); }), "");
}

TEST_F(Keys, EnterOpensNothingWithoutARecord) {
  EXPECT_EQ(outputOf([] { handleKey(kEnter); }), "") << "no table";
  shown({{1, true}});
  for (const int32_t selected : {-1, 1, INT32_MAX, INT32_MIN}) {
    store(g_selectedProcess, selected);
    EXPECT_EQ(outputOf([] { handleKey(kEnter); }), "") << selected;
  }
}

// Paging.

TEST_F(Keys, SpaceGoesOnePageDown) {
  store(y, 24);
  store(banners, 10);
  store(g_procs_viewable, 29);
  handleKey(' ');
  EXPECT_EQ(load(g_firstProcToShow), 14);
  handleKey(' ');
  EXPECT_EQ(load(g_firstProcToShow), 28);
  handleKey(' ');
  EXPECT_EQ(load(g_firstProcToShow), 28) << "past the end is undone";
}

TEST_F(Keys, SpaceNeverReachesTheCountOfTheViewable) {
  store(y, 24);
  store(banners, 10);
  store(g_procs_viewable, 14);
  handleKey(' ');
  EXPECT_EQ(load(g_firstProcToShow), 0);
}

TEST_F(Keys, BGoesOnePageUp) {
  store(y, 24);
  store(banners, 10);
  store(g_firstProcToShow, 20);
  handleKey('b');
  EXPECT_EQ(load(g_firstProcToShow), 6);
  handleKey('b');
  EXPECT_EQ(load(g_firstProcToShow), 0);
  handleKey('b');
  EXPECT_EQ(load(g_firstProcToShow), 0);
}

TEST_F(Keys, PageOfALowTerminalIsOneRow) {
  store(y, 5);
  store(banners, 10);
  store(g_procs_viewable, 3);
  handleKey(' ');
  EXPECT_EQ(load(g_firstProcToShow), 1);
  handleKey('b');
  EXPECT_EQ(load(g_firstProcToShow), 0);
}

// The highlight.

TEST_F(Keys, DownGoesToTheNextShownProcess) {
  shown({{1, true}, {2, false}, {3, true}, {4, false}});
  store(y, 24);
  handleKey(kDown);
  EXPECT_EQ(load(g_Row), 1);
  EXPECT_EQ(load(g_selectedProcess), 2);
  handleKey(kDown);
  EXPECT_EQ(load(g_Row), 2) << "the row moves, kept";
  EXPECT_EQ(load(g_selectedProcess), 2) << "none further is shown";
  EXPECT_EQ(load(g_firstProcToShow), 0);
}

TEST_F(Keys, DownInTheLastRowScrolls) {
  shown({{1, true}, {2, true}, {3, true}});
  store(y, 12);
  store(banners, 10);
  store(g_Row, 2);
  handleKey(kDown);
  EXPECT_EQ(load(g_Row), 2);
  EXPECT_EQ(load(g_firstProcToShow), 1);
  EXPECT_EQ(load(g_selectedProcess), 1);
  handleKey(kDown);
  EXPECT_EQ(load(g_firstProcToShow), 1) << "the end of the table";
  EXPECT_EQ(load(g_selectedProcess), 1);
}

TEST_F(Keys, UpGoesToThePreviousShownProcess) {
  shown({{1, true}, {2, false}, {3, true}});
  store(g_selectedProcess, 2);
  store(g_Row, 1);
  handleKey(kUp);
  EXPECT_EQ(load(g_Row), 0);
  EXPECT_EQ(load(g_selectedProcess), 0);
}

TEST_F(Keys, UpMayLeaveTheList) {
  shown({{1, true}, {2, true}});
  store(g_firstProcToShow, 1);
  store(g_selectedProcess, 1);
  handleKey(kUp);
  EXPECT_EQ(load(g_Row), -1);
  EXPECT_EQ(load(g_firstProcToShow), 1);
  handleKey(kUp);
  EXPECT_EQ(load(g_Row), -1);
  EXPECT_EQ(load(g_firstProcToShow), 0) << "now it scrolls";
  const std::vector<int32_t> before = allWords();
  handleKey(kUp);
  EXPECT_EQ(allWords(), before) << "nothing above";
}

TEST_F(Keys, HighlightWithoutATableMovesNoSelection) {
  store(y, 24);
  handleKey(kDown);
  EXPECT_EQ(load(g_Row), 1);
  handleKey(kUp);
  EXPECT_EQ(load(g_Row), 0);
  EXPECT_EQ(load(g_selectedProcess), 0);
}

TEST_F(Keys, StaleSelectionStaysWithinTheTable) {
  shown({{1, true}, {2, true}});
  store(y, 24);
  store(g_selectedProcess, 1000);
  handleKey(kUp);
  EXPECT_EQ(load(g_selectedProcess), 1);
  store(g_selectedProcess, 1000);
  handleKey(kDown);
  EXPECT_EQ(load(g_selectedProcess), 1000);
  store(g_selectedProcess, -1000);
  handleKey(kDown);
  EXPECT_EQ(load(g_selectedProcess), 0);
}

TEST_F(Keys, NextVisibleIsLookedForInOneDirection) {
  ProcessRecord *table = shown({{1, true}, {2, false}, {3, true}, {4, false}, {5, true}});
  const struct {
    int32_t from;
    int32_t direction;
    int32_t found;
  } kRows[] = {{2, 1, 4},    {2, -1, 0},
               {4, 1, 4},    {0, -1, 0},
               {3, 1, 4},    {1, -1, 0},
               {-1, 1, 0},   {5, -1, 4},
               {2, 0, 2},    {2, 2, 2},
               {2, -2, 2},   {9, -1, 4},
               {-9, -1, -9}, {INT32_MAX, 1, INT32_MAX}};
  for (const auto &row : kRows) {
    EXPECT_EQ(findNextVisibleProcess({table, 5}, row.from, row.direction), row.found)
        << row.from << ' ' << row.direction;
  }
  EXPECT_EQ(findNextVisibleProcess({}, 3, 1), 3);
  EXPECT_EQ(findNextVisibleProcess({}, 3, -1), 3);
}

// Columns.

TEST_F(Keys, LeftAndRightSelectAColumn) {
  Perspective *perspective = getCurrentPerspective();
  handleKey(kLeft);
  EXPECT_EQ(load(perspective->selectedColumn), kSelectedColumn - 1);
  hide(kSelectedColumn - 2);
  hide(kSelectedColumn - 3);
  handleKey(kLeft);
  EXPECT_EQ(load(perspective->selectedColumn), kSelectedColumn - 4);
  handleKey(kRight);
  EXPECT_EQ(load(perspective->selectedColumn), kSelectedColumn - 1);
}

TEST_F(Keys, SelectionStopsAtTheEnds) {
  Perspective *perspective = getCurrentPerspective();
  store(g_lastVisibleCol, 10);
  store(perspective->selectedColumn, 10);
  handleKey(kRight);
  EXPECT_EQ(load(perspective->selectedColumn), 10);
  store(perspective->selectedColumn, 0);
  handleKey(kLeft);
  EXPECT_EQ(load(perspective->selectedColumn), 0);
  // Kept: the search stops at the end, also on a hidden column.
  hide(10);
  store(perspective->selectedColumn, 9);
  handleKey(kRight);
  EXPECT_EQ(load(perspective->selectedColumn), 10);
  hide(0);
  store(perspective->selectedColumn, 1);
  handleKey(kLeft);
  EXPECT_EQ(load(perspective->selectedColumn), 0);
}

TEST_F(Keys, ColumnsNeverLeaveThePerspective) {
  Perspective few = {};
  appendColumn(&few, load(getCurrentPerspective()->columns[0]));
  appendColumn(&few, load(getCurrentPerspective()->columns[1]));
  setDefaultPerspective(&few);
  for (int i = 0; i < 5; i++) handleKey(i % 2 == 0 ? kRight : kShiftedRight);
  EXPECT_EQ(load(few.selectedColumn), 1);
  EXPECT_EQ(load(few.columns[2]), nullptr);
  for (int i = 0; i < 5; i++) handleKey(i % 2 == 0 ? kLeft : kShiftedLeft);
  EXPECT_EQ(load(few.selectedColumn), 0);
  for (int i = 0; i < 5; i++) handleKey('-');
  EXPECT_LT(load(few.selectedColumn), 2);
}

TEST_F(Keys, ShiftedOnesTakeTheColumnAlong) {
  Perspective *perspective = getCurrentPerspective();
  const std::string neighbour = kListColumns[kSelectedColumn - 1].header;
  handleKey(kShiftedLeft);
  EXPECT_EQ(load(perspective->selectedColumn), kSelectedColumn - 1);
  EXPECT_EQ(header(kSelectedColumn - 1), " CPU  ");
  EXPECT_EQ(header(kSelectedColumn), neighbour);
  handleKey(kShiftedRight);
  EXPECT_EQ(load(perspective->selectedColumn), kSelectedColumn);
  EXPECT_EQ(header(kSelectedColumn), " CPU  ");
  EXPECT_EQ(header(kSelectedColumn - 1), neighbour);
}

TEST_F(Keys, ShiftedOnesStopAtTheEnds) {
  Perspective *perspective = getCurrentPerspective();
  store(g_lastVisibleCol, kSelectedColumn);
  handleKey(kShiftedRight);
  EXPECT_EQ(load(perspective->selectedColumn), kSelectedColumn);
  EXPECT_EQ(header(kSelectedColumn), " CPU  ");
  store(perspective->selectedColumn, 0);
  handleKey(kShiftedLeft);
  EXPECT_EQ(load(perspective->selectedColumn), 0);
  EXPECT_EQ(header(0), kListColumns[0].header);
}

TEST_F(Keys, MinusHidesTheSelectedColumn) {
  handleKey('-');
  EXPECT_EQ(load(load(getCurrentPerspective()->columns[kSelectedColumn])->hidden), 1);
  EXPECT_EQ(load(getCurrentPerspective()->selectedColumn), kSelectedColumn - 1);
  EXPECT_EQ(load(g_Max_Cols), 18);
}

// The filter.

TEST_F(Keys, FilterIsACopy) {
  char text[] = "abc";
  applyFilter(text);
  text[0] = 'x';
  EXPECT_STREQ(getFilter(), "abc");
  applyFilter("");
  EXPECT_STREQ(getFilter(), "");
  applyFilter(nullptr);
  EXPECT_EQ(getFilter(), nullptr);
}

TEST_F(Keys, SocketsFilterIsNoNameFilter) {
  setStatusBar("kept", 3);
  handleKey('S');
  EXPECT_STREQ(getFilter(), "- Active Sockets - ");
  EXPECT_STREQ(getStatusBar(), "kept");
  handleKey('s');
  EXPECT_STREQ(getFilter(), "");
  EXPECT_STREQ(getStatusBar(), "");
}

// Keys that ask.

class Asking : public Keys {
 protected:
  Asking() { nodelay(stdscr, TRUE); }

  // Presses a key whose prompts get these answers; what nobody asked for is the test's failure.
  void press(int key, const std::string &answers = "") {
    typeKeys(keysOf(answers));
    noteKeysAreSeen();
    handleKey(key);
    EXPECT_EQ(wgetch(stdscr), ERR) << "an answer too many";
  }

  // Whether the status bar's text stands for exactly two redraws.
  static bool isShownTwice() {
    printStatusBar();
    printStatusBar();
    const bool still = getStatusBar()[0] != '\0';
    printStatusBar();
    return still && getStatusBar()[0] == '\0';
  }

  TypedInput input{""};
  CursesScreen screen{24, 100};
};

TEST_F(Asking, SlashSetsTheFilter) {
  store(g_filterSockets, 1);
  press('/', "launch\n");
  EXPECT_STREQ(getFilter(), "launch");
  EXPECT_EQ(load(g_filterSockets), 0);
  press('/', "\n");
  EXPECT_STREQ(getFilter(), "");
}

TEST_F(Asking, SlashNamesItsQuestion) {
  typeKeys(keysOf("x"));
  handleKey('/');
  EXPECT_EQ(CursesScreen::text(23, 0, 26), "Enter a filter expression:");
}

TEST_F(Asking, DelayIsInTenths) {
  const struct {
    const char *answer;
    int32_t delay;
    const char *status;
  } kRows[] = {
      {"5\n", 5, "Setting delay to 0.5 seconds..."},
      {" 20x\n", 20, "Setting delay to 2.0 seconds..."},
      {"abc\n", 20, "Setting delay to 2.0 seconds..."},
      {"\n", 20, "Setting delay to 2.0 seconds..."},
      {"0\n", 0, "Setting delay to 0.0 seconds..."},
      {"99999999999999999999\n", INT32_MAX, "Setting delay to 214748364.7 seconds..."},
      {"-99999999999999999999\n", INT32_MIN, "Setting delay to -214748364.8 seconds..."},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.answer);
    press('U', row.answer);
    EXPECT_EQ(load(g_Delay), row.delay);
    EXPECT_STREQ(getStatusBar(), row.status);
    EXPECT_TRUE(isShownTwice());
  }
  press('u', "10\n");
  EXPECT_EQ(load(g_Delay), 10);
}

TEST_F(Asking, DelayNamesItsQuestion) {
  typeKeys(keysOf("x"));
  handleKey('u');
  EXPECT_EQ(CursesScreen::text(23, 0, 60),
            "Enter value for update delay in deciseconds (10 = 1 second):");
}

TEST_F(Asking, KillIsConfirmedByALowerCaseY) {
  shown({{1, true}, {77, true}});
  store(g_selectedProcess, 1);
  for (const char *answer : {"Y\n", "n\n", "\n", " y\n"}) {
    press('K', answer);
    EXPECT_THAT(machine.sent, IsEmpty()) << answer;
  }
  press('K', "yes\n");
  EXPECT_THAT(machine.sent, ElementsAre(std::pair{77, darwin::DARWIN_SIGKILL}));
}

TEST_F(Asking, KillNamesItsQuestions) {
  typeKeys(keysOf("x"));
  handleKey('K');
  EXPECT_EQ(CursesScreen::text(23, 0, 36), "Which PID do you want to kill today?");
  shown({{77, true}});
  noteKeysAreSeen();
  typeKeys(keysOf("x"));
  handleKey('K');
  EXPECT_EQ(CursesScreen::text(23, 0, 14), "Are you sure? ");
}

// Hidden by a filter, or on another page.
TEST_F(Asking, ASelectedOneThatIsNotShownIsNone) {
  shown({{76, true}, {77, false}});
  store(g_selectedProcess, 1);
  press('t', "4711\n");
  EXPECT_THAT(machine.sent, ElementsAre(std::pair{4711, darwin::DARWIN_SIGSTOP}));
  press('K', "4712\ny\n");
  EXPECT_THAT(machine.sent, testing::Contains(std::pair{4712, darwin::DARWIN_SIGKILL}));
  noteKeysAreSeen();
  handleKey(kEnter);
  EXPECT_EQ(machine.timesAsked("arguments"), 0u);
}

// A frame was left out: what is on the screen is the table of the one before.
TEST_F(Asking, ActsOnWhatWasDrawnThoughSamplingWentOn) {
  ProcessRecord *drawn = shown({{76, true}, {77, true}});
  store(g_selectedProcess, 1);
  ProcessRecord *newer = allocateProcessTable(2);
  newer[1].taskAllInfo.pbsd.pbi_pid = 99;
  setCurrentTable({newer, 2});
  setPreviousTable({newer, 2});
  press('t');
  EXPECT_THAT(machine.sent, ElementsAre(std::pair{77, darwin::DARWIN_SIGSTOP}));
  handleKey(kUp);
  EXPECT_EQ(load(g_selectedProcess), 0);
  setDrawnTable({});
  releaseProcessTable(drawn);
}

// What a key did that was typed just before is on the screen first.
TEST_F(Asking, WaitsForTheFrameThatShowsTheSelection) {
  shown({{76, true}, {77, true}});
  const WakePipe pipe;
  handleKey(kDown);
  std::atomic<bool> drawn{false};
  std::thread loop([&] {
    while (pipe.taken().empty()) std::this_thread::yield();
    ASSERT_TRUE(tryLockDrawing());
    noteKeysAreSeen();
    drawn.store(true);
    unlockDrawing();
  });
  handleKey('t');
  EXPECT_TRUE(drawn.load());
  loop.join();
  EXPECT_THAT(machine.sent, ElementsAre(std::pair{77, darwin::DARWIN_SIGSTOP}));
}

TEST_F(Asking, IsDroppedWhereNoFrameShowsTheSelection) {
  shown({{76, true}, {77, true}});
  handleKey(kDown);
  handleKey('t');
  EXPECT_THAT(machine.sent, IsEmpty());
  EXPECT_STREQ(getStatusBar(), "The screen is busy: the last key was dropped");
}

TEST_F(Asking, CtrlLHasEverythingSentAgain) {
  wrefresh(stdscr);
  screen.dropSent();
  handleKey(12);
  EXPECT_TRUE(is_cleared(stdscr));
  EXPECT_STREQ(getStatusBar(), "");
}

TEST_F(Asking, WithoutASelectionTheTargetIsNamed) {
  press('K', "4711\ny\n");
  EXPECT_THAT(machine.sent, ElementsAre(std::pair{4711, darwin::DARWIN_SIGKILL}));
}

TEST_F(Asking, SelectionOutsideTheTableIsNone) {
  shown({{76, true}, {77, true}});
  for (const int32_t selected : {-1, 2, INT32_MAX, INT32_MIN}) {
    machine.sent.clear();
    store(g_selectedProcess, selected);
    press('t', "4711\n");
    EXPECT_THAT(machine.sent, ElementsAre(std::pair{4711, darwin::DARWIN_SIGSTOP})) << selected;
  }
}

TEST_F(Asking, SignalsThatFailAreNotSpokenOf) {
  machine.refusals["sendSignal"] = darwin::DARWIN_ESRCH;
  shown({{77, true}});
  setStatusBar("kept", 5);
  press('t');
  EXPECT_STREQ(getStatusBar(), "kept");
  EXPECT_THAT(machine.sent, SizeIs(1));
}

TEST_F(Asking, StatusOfTheSelectedDecidesForTheNamedToo) {
  shown({{0, true, darwin::SSTOP}});
  press('t', "4711\n");
  EXPECT_THAT(machine.sent, ElementsAre(std::pair{4711, darwin::DARWIN_SIGCONT}));
}

TEST_F(Asking, SelectedPIDZeroIsAskedForToo) {
  shown({{0, true}});
  press('K', "abc\n");
  EXPECT_STREQ(getStatusBar(), "Not a valid PID.. Try again?");
}

TEST_F(Asking, WhatIsNoPIDIsRefused) {
  for (const int key : {'K', 'T', 't'}) {
    for (const char *answer : {"abc\n", "\n", "0\n"}) {
      press(key, answer);
      EXPECT_STREQ(getStatusBar(), "Not a valid PID.. Try again?");
      EXPECT_TRUE(isShownTwice());
    }
  }
}

TEST_F(Asking, StopAndContinueGoByTheStatus) {
  for (const int key : {'T', 't'}) {
    machine.sent.clear();
    shown({{77, true, darwin::SRUN}});
    press(key);
    EXPECT_THAT(machine.sent, ElementsAre(std::pair{77, darwin::DARWIN_SIGSTOP}));
    machine.sent.clear();
    shown({{77, true, darwin::SSTOP}});
    press(key);
    EXPECT_THAT(machine.sent, ElementsAre(std::pair{77, darwin::DARWIN_SIGCONT}));
  }
}

// The two threads.

TEST_F(Keys, QuittingLeavesANote) {
  for (const int key : {'q', 'Q'}) {
    EXPECT_EXIT(
        {
          const WakePipe pipe;
          handleKey(key);
          _exit(reasonToEnd() == kEndByKey && pipe.taken() == "x" ? 7 : 1);
        },
        ExitedWithCode(7), "");
  }
}

TEST_F(Keys, TheScreenIsGivenBack) {
  shown({{0, true}});  // a PID that no signal goes to
  outputOf([] {
    for (const int key :
         {int{'?'}, int{'/'}, int{'U'}, int{'S'}, int{'J'}, int{'K'}, int{'T'}, kDown, kUp}) {
      handleKey(key);
      EXPECT_FALSE(holdsDrawingLock()) << key;
      EXPECT_TRUE(tryLockDrawing()) << key;
      unlockDrawing();
    }
  });
  EXPECT_TRUE(hasRoomForTable());
}

TEST_F(Keys, OnesThatNeedNoScreenDoNotWaitForIt) {
  std::atomic<bool> drawing{false};
  std::atomic<bool> done{false};
  std::thread other([&] {
    ASSERT_TRUE(tryLockDrawing());
    drawing.store(true);
    while (!done.load()) std::this_thread::yield();
    unlockDrawing();
  });
  while (!drawing.load()) std::this_thread::yield();
  const std::vector<int32_t> before = allWords();
  handleKey('d');
  EXPECT_STREQ(getStatusBar(), "Delta mode on");
  handleKey('d');
  // This one does: it is dropped in the end.
  handleKey('S');
  EXPECT_STREQ(getStatusBar(), "The screen is busy: the last key was dropped");
  EXPECT_EQ(allWords(), before);
  EXPECT_EQ(getFilter(), nullptr);
  done.store(true);
  other.join();
}

TEST_F(Keys, EndingProgramOpensNothingMore) {
  EXPECT_EXIT(
      {
        askForEnd(SIGINT);
        handleKey('S');
        _exit(load(g_filterSockets) == 0 && getFilter() == nullptr ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

// The main thread samples and draws while keys come: tables, columns and selection change under
// each other's hands.
TEST_F(Keys, AreSafeBesideTheRefreshes) {
  for (int32_t pid = 1; pid <= 40; pid++) machine.add(pid, "p");
  std::atomic<bool> done{false};
  std::thread typing([&done] {
    for (int i = 0; !done.load(); i++) {
      for (const int key : {kDown, kUp, kLeft, kRight, kShiftedLeft, kShiftedRight, int{' '},
                            int{'b'}, int{'n'}, int{'1'}, int{'d'}, int{'c'}, int{'r'}}) {
        handleKey(key);
      }
      if (i == 10) handleKey('-');
    }
  });
  int last = -1;
  outputOf([&] {
    errorOutputOf([&] {
      for (int32_t round = 0; round < 60; round++) {
        if (round % 3 == 0) machine.add(1000 + round, "q");
        last = runDisplay();
      }
    });
  });
  done.store(true);
  typing.join();
  EXPECT_EQ(last, 0);
  // What the keys kept from being released, the next refresh gives back.
  outputOf([] { errorOutputOf([] { runDisplay(); }); });
  EXPECT_TRUE(hasRoomForTable());
  EXPECT_EQ(load(g_previous_process_information), load(g_process_information));
}

}  // namespace
