#include "control/keys.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>

#include "columns/configuration.h"
#include "columns/perspective.h"
#include "control/jetsam_control.h"
#include "darwin/proc_info.h"
#include "darwin/signals.h"
#include "proc/process_table.h"
#include "screens/details.h"
#include "screens/gestalt.h"
#include "screens/help.h"
#include "state/display.h"
#include "state/system.h"
#include "terminal/drawing_lock.h"
#include "terminal/ending.h"
#include "terminal/key_codes.h"
#include "terminal/prompt.h"
#include "terminal/screen.h"
#include "terminal/status_bar.h"
#include "text/typed_number.h"

namespace sondex {

constexpr int kListHelp = 1;
constexpr int32_t kScreenPatience = 2000;  // milliseconds
constexpr char kWhichToKill[] = "Which PID do you want to kill today? ";

static char *active_filter = nullptr;

// The record that is highlighted on the screen; null where none is. Once the keys before this one
// are seen there.
static ProcessRecord *selectedRecord() {
  const TableView table = drawnTable();
  const int32_t selected = load(g_selectedProcess);
  if (selected < 0 || selected >= table.count) return nullptr;
  ProcessRecord *record = &table.records[selected];
  return record->displayed != 0 ? record : nullptr;
}

int32_t findNextVisibleProcess(TableView table, int32_t from, int32_t direction) {
  const int32_t start = std::clamp(from, -1, table.count);  // a stale index may lie anywhere
  if (direction == -1) {
    for (int32_t i = start - 1; i >= 0; i--) {
      if (table.records[i].displayed != 0) return i;
    }
  }
  if (direction == 1) {
    for (int32_t i = start + 1; i < table.count; i++) {
      if (table.records[i].displayed != 0) return i;
    }
  }
  return from;
}

static void toggle(SharedInt *word) {
  store(*word, load(*word) == 0 ? 1 : 0);
}

static void reportMode(const char *mode, const SharedInt *word) {
  char text[64];
  snprintf(text, sizeof text, "%s mode %s", mode, load(*word) != 0 ? "on" : "off");
  setStatusBar(text, 3);
}

// The details stay open for as long as the user likes. They show a copy, so that no table has to
// wait for them. Null without a selection.
static ProcessRecord *copySelected() {
  ProcessRecord *copy = nullptr;
  const ProcessRecord *record = selectedRecord();
  if (record != nullptr) {
    copy = static_cast<ProcessRecord *>(malloc(sizeof *copy));
    if (copy != nullptr) {
      memcpy(copy, record, sizeof *copy);
      copy->fdDetails = nullptr;  // the table's own
    } else {
      setStatusBar("No memory for the details", 3);
    }
  }
  return copy;
}

static void openDetails() {
  if (load(g_Row) < 0) return;
  ProcessRecord *record = copySelected();
  if (record == nullptr) return;
  showProcessDetails(record, {});
  releaseRecord(record);
  free(record);
}

static int32_t pageStep() {
  return std::max(load(y) - load(banners), 1);
}

static void pageDown() {
  const int32_t first = load(g_firstProcToShow) + pageStep();
  if (first < load(g_procs_viewable)) store(g_firstProcToShow, first);
}

static void pageUp() {
  store(g_firstProcToShow, std::max(load(g_firstProcToShow) - pageStep(), 0));
}

static void select(int32_t direction) {
  store(g_selectedProcess,
        findNextVisibleProcess(drawnTable(), load(g_selectedProcess), direction));
}

static void moveDown() {
  const int32_t row = load(g_Row);
  const int32_t first = load(g_firstProcToShow);
  if (row < load(y) - load(banners)) {
    store(g_Row, row + 1);
    select(1);
  } else if (first + row < drawnTable().count) {
    store(g_firstProcToShow, first + 1);
    select(1);
  }
}

static void moveUp() {
  const int32_t row = load(g_Row);
  const int32_t first = load(g_firstProcToShow);
  if (row >= 0) {
    store(g_Row, row - 1);
    select(-1);
  } else if (first > 0) {
    store(g_firstProcToShow, first - 1);
    select(-1);
  }
}

static void saveConfiguration() {
  saveConfigToFile("~/.sdrc");
  // Kept: said whether or not it was saved.
  setStatusBar("Saved config to /tmp/.sdrc - drop this in your directory for next time", 3);
}

static void hideColumn() {
  hideSelectedCol(getCurrentPerspective());
  store(g_Max_Cols, load(g_Max_Cols) - 1);
}

// The last column that a key may go to.
static int32_t lastColumn(const Perspective *perspective) {
  return std::min(load(g_lastVisibleCol), perspective->numColumns - 1);
}

static void selectColumn(int32_t direction) {
  Perspective *perspective = getCurrentPerspective();
  const int32_t end = direction < 0 ? 0 : lastColumn(perspective);
  int32_t selected = load(perspective->selectedColumn);
  const ColumnDescriptor *column = nullptr;
  do {
    if (direction < 0 ? selected <= end : selected >= end) break;
    selected += direction;
    column = columnAt(perspective, selected);
  } while (column != nullptr && load(column->hidden) != 0);
  store(perspective->selectedColumn, selected);
}

static void selectLeft() {
  selectColumn(-1);
}

static void selectRight() {
  selectColumn(1);
}

static void moveColumnLeft() {
  Perspective *perspective = getCurrentPerspective();
  const int32_t selected = load(perspective->selectedColumn);
  if (selected <= 0) return;
  moveCol(selected, -1);
  store(perspective->selectedColumn, selected - 1);
}

static void moveColumnRight() {
  Perspective *perspective = getCurrentPerspective();
  const int32_t selected = load(perspective->selectedColumn);
  if (selected >= lastColumn(perspective)) return;
  moveCol(selected, 1);
  store(perspective->selectedColumn, selected + 1);
}

const char *getFilter() {
  return active_filter;
}

void applyFilter(const char *text) {
  free(active_filter);
  active_filter = text != nullptr ? strdup(text) : nullptr;
}

static void askForFilter() {
  applyFilter(promptForInput("Enter a filter expression:"));
  store(g_filterSockets, 0);
}

static void toggleSockets() {
  toggle(&g_filterSockets);
  if (load(g_filterSockets) != 0) {
    // Its first character keeps it from being applied to names.
    applyFilter("- Active Sockets - ");
  } else {
    applyFilter("");
    clearStatusBar();
  }
}

static void showListHelp() {
  showHelp(kListHelp);
}

static void openGestalt() {
  if (g_gotGestalt != 0) showGestalt();
}

static void toggleDelta() {
  toggle(&g_Delta);
  reportMode("Delta", &g_Delta);
}

static void toggleIrix() {
  toggle(&g_IrixMode);
  reportMode("Irix", &g_IrixMode);
}

static void toggleColor() {
  toggle(&g_Color);
  setStatusBar(load(g_Color) != 0 ? "Life is better in color"
                                  : "Black & White? Oh well. Whatever makes you happy...",
               3);
}

static void toggleProcessors() {
  toggle(&g_EachCPU);
}

static void toggleUpdates() {
  toggle(&g_updates);
}

static void toggleMemory() {
  toggle(&g_showMemory);
}

static void toggleNetworks() {
  toggle(&getCurrentPerspective()->ShowNetworks);
}

static void togglePower() {
  toggle(&getCurrentPerspective()->ShowPower);
}

static void toggleReverse() {
  toggle(&g_reverse);
}

void toggleUpdateDelay() {
  char *answer = promptForInput("Enter value for update delay in deciseconds (10 = 1 second):");
  int32_t delay = load(g_Delay);
  parseNumber(answer, &delay);
  store(g_Delay, delay);
  snprintf(answer, kPromptSize, "Setting delay to %0.1f seconds...", load(g_Delay) / 10.0);
  setStatusBar(answer, 2);
}

// The pid to act on: the selected process's, else one that the user names in answer to `question`;
// 0 when there is none. `isStopped` tells about the selected process.
static int32_t chooseTarget(const char *question, bool *isStopped) {
  const ProcessRecord *record = selectedRecord();
  int32_t pid = 0;
  *isStopped = false;
  if (record != nullptr) {
    pid = pidOf(record);
    *isStopped = record->taskAllInfo.pbsd.pbi_status == darwin::SSTOP;
  }
  if (pid == 0) parseNumber(promptForInput(question), &pid);
  if (pid == 0) setStatusBar("Not a valid PID.. Try again?", 2);
  return pid;
}

static void killProcess() {
  bool isStopped = false;
  const int32_t pid = chooseTarget(kWhichToKill, &isStopped);
  if (pid == 0) return;
  if (promptForInput("Are you sure? ")[0] == 'y') kill(pid, darwin::DARWIN_SIGKILL);
}

static void stopOrContinue() {
  bool isStopped = false;
  const int32_t pid = chooseTarget(kWhichToKill, &isStopped);
  if (pid == 0) return;
  kill(pid, isStopped ? darwin::DARWIN_SIGCONT : darwin::DARWIN_SIGSTOP);
}

static void controlSelectedJetsam() {
  bool isStopped = false;
  const int32_t pid = chooseTarget("Which PID do you want to set band and limit of? ", &isStopped);
  if (pid != 0) controlJetsam(pid);
}

static void quit() {
  askForEnd(kEndByKey);
}

enum Need : uint8_t {
  kNothing,
  kScreen,   // draws, changes the filter, or looks into a table
  kPicture,  // acts on what the screen shows
};

struct KeyRow {
  int key;
  Need need;
  void (*act)();
};

static const KeyRow kKeys[] = {
    {kEnter, kPicture, openDetails},
    {kRepaint, kScreen, repaintScreen},
    {' ', kNothing, pageDown},
    {'b', kNothing, pageUp},
    {'!', kNothing, saveConfiguration},
    {'-', kNothing, hideColumn},
    {'/', kScreen, askForFilter},
    {'1', kNothing, toggleProcessors},
    {'?', kScreen, showListHelp},
    {'D', kNothing, toggleDelta},
    {'d', kNothing, toggleDelta},
    {'F', kNothing, toggleUpdates},
    {'f', kNothing, toggleUpdates},
    {'G', kScreen, openGestalt},
    {'I', kNothing, toggleIrix},
    {'J', kPicture, controlSelectedJetsam},
    {'K', kPicture, killProcess},
    {'T', kPicture, stopOrContinue},
    {'t', kPicture, stopOrContinue},
    {'M', kNothing, toggleMemory},
    {'m', kNothing, toggleMemory},
    {'N', kNothing, toggleNetworks},
    {'n', kNothing, toggleNetworks},
    {'P', kNothing, togglePower},
    {'p', kNothing, togglePower},
    {'Q', kNothing, quit},
    {'q', kNothing, quit},
    {'S', kScreen, toggleSockets},
    {'s', kScreen, toggleSockets},
    {'U', kScreen, toggleUpdateDelay},
    {'u', kScreen, toggleUpdateDelay},
    {'c', kNothing, toggleColor},
    {'r', kNothing, toggleReverse},
    {kDown, kScreen, moveDown},
    {kUp, kScreen, moveUp},
    {kLeft, kNothing, selectLeft},
    {kRight, kNothing, selectRight},
    {kShiftedLeft, kNothing, moveColumnLeft},
    {kShiftedRight, kNothing, moveColumnRight},
};

// Whether a key has done something that no frame shows yet.
static SharedInt keysAreUnseen{0};

void noteKeysAreSeen() {
  keysAreUnseen.exchange(0, std::memory_order_acq_rel);
}

static void dropKey() {
  setStatusBar("The screen is busy: the last key was dropped", 3);
}

// Typed ahead, a key may come before the frame that shows what the one before it did.
static bool waitForPicture() {
  constexpr timespec kNap = {0, 1'000'000};
  wakeLoop();
  for (int32_t waited = 0; load(keysAreUnseen) != 0; waited++) {
    if (waited == kScreenPatience || reasonToEnd() != 0) return false;
    nanosleep(&kNap, nullptr);
  }
  return true;
}

static void actOnScreen(const KeyRow *row) {
  const bool drewAlready = holdsDrawingLock();
  if (row->need == kPicture && !drewAlready && load(keysAreUnseen) != 0 && !waitForPicture()) {
    dropKey();
    return;
  }
  if (!lockDrawing(kScreenPatience)) {
    dropKey();
    return;
  }
  // Who ends the program gives the screen up for good.
  if (reasonToEnd() == 0) row->act();
  if (!drewAlready) unlockDrawing();
}

void handleKey(int key) {
  for (const KeyRow &row : kKeys) {
    if (row.key != key) continue;
    if (row.need == kNothing) {
      row.act();
    } else {
      actOnScreen(&row);
    }
    // Behind what it did.
    keysAreUnseen.store(1, std::memory_order_release);
    return;
  }
}

}  // namespace sondex
