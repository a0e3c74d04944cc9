#include "main/refresh_loop.h"

#include <curses.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "columns/column_table.h"
#include "columns/perspective.h"
#include "columns/sort.h"
#include "control/keys.h"
#include "control/signals.h"
#include "inspect/code_signing.h"
#include "main/monitor.h"
#include "proc/sampler.h"
#include "screens/process_list.h"
#include "state/display.h"
#include "state/system.h"
#include "terminal/drawing_lock.h"
#include "terminal/ending.h"
#include "terminal/held_stderr.h"
#include "terminal/lost_screen.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "terminal/status_bar.h"

namespace sondex {

// Kept: a second, though the prompt for the delay calls it a tenth of one.
constexpr int32_t kMillisecondsPerDelay = 1000;

// The least wait after a frame that was left out because another thread had the screen: with a
// delay of 0 the loop would spin until it gets it.
constexpr int32_t kAfterMissedFrame = 100;

static const char kFrozen[] = "Updates Frozen ('F' to toggle back)";

static void *watchPressure(void *) {
  doVMPressureMonitor(0);
  return nullptr;
}

// Whoever calls exit(): the screen is left first, and nobody opens it again.
static void leaveScreenForGood() {
  askForEnd(kEndByExit);
  closeScreen();
}

static void startDisplay() {
  atexit(cursesMessage);
  atexit(leaveScreenForGood);
  // Curses leaves alone what somebody handles already.
  handleSignals();
  // As soon as the screen is there, the input thread may ask for it.
  tryLockDrawing();
  openScreen();
  unlockDrawing();
  setStatusBar("Press ? for the keys", 3);
  pthread_t watcher;
  const int failure = pthread_create(&watcher, nullptr, watchPressure, nullptr);
  if (failure == 0) {
    pthread_detach(watcher);
  } else {
    setStatusBar("Memory pressure is not watched: no thread", 3);
  }
}

// What the current table was sorted by last.
struct Order {
  const ProcessRecord *table;
  Comparator comparator;
  int32_t reverse;
};
static Order order = {};

// The verdicts cost a call per process, so they are asked for only while a column shows them.
static void markCodeSigning(TableView table) {
  if (!hasColumn(getCurrentPerspective(), &col_codesign)) return;
  for (int32_t i = 0; i < table.count; i++) {
    ProcessRecord *record = &table.records[i];
    if (record->taskAllInfo.pbsd.pbi_comm[0] == '\0') continue;
    snprintf(record->csStatus, sizeof record->csStatus, "%s", isPidSigned(pidOf(record)));
  }
}

static void sortCurrent() {
  const Comparator comparator = sortOf(getCurrentPerspective());
  const int32_t reverse = load(g_reverse);
  doSort(comparator);
  order = {currentTable().records, comparator, reverse};
}

static void sample() {
  g_Prev_Total_Rusage = g_Total_Rusage;
  g_Total_Rusage = {};
  ProcessRecord *unshown = currentTable().records;
  setCurrentTable(getPIDList());
  // The table of start-up was never drawn and is nobody's previous one.
  if (unshown != previousTable().records) retireProcessTable(unshown);
  markCodeSigning(currentTable());
  sortCurrent();
}

// A key may ask for another order while the display is frozen. Only while this thread draws: the
// table may be the one that the input thread looks into.
static void sortAgain() {
  const TableView table = currentTable();
  if (order.table == table.records && order.comparator == sortOf(getCurrentPerspective()) &&
      order.reverse == load(g_reverse)) {
    return;
  }
  sortCurrent();
  if (table.records == previousTable().records) indexProcessTable(table);
}

static void keepAsPrevious() {
  ProcessRecord *retired = previousTable().records;
  const TableView current = currentTable();
  indexProcessTable(current);
  setPreviousTable(current);
  if (retired != drawnTable().records) retireProcessTable(retired);
}

static void keepAsDrawn() {
  ProcessRecord *retired = drawnTable().records;
  const TableView current = currentTable();
  setDrawnTable(current);
  if (retired != current.records && retired != previousTable().records) {
    retireProcessTable(retired);
  }
}

// Waits for the next refresh, for `milliseconds` (-1: without end). A byte on the pipe or the
// terminal's end cuts it short.
static void waitForRefresh(int32_t milliseconds) {
  // poll passes over a negative descriptor: without a pipe the wait just can't be cut short.
  pollfd waited[2] = {{g_pipe[0] != 0 ? g_pipe[0] : -1, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
  const int result = poll(waited, 2, milliseconds);
  if (result == 0) return;
  if (result > 0 && (waited[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
    askForEnd(SIGHUP);
    return;
  }
  // Also after a signal, whose handler left a byte. Where there is none, this does not block.
  char byte = 0;
  [[maybe_unused]] const ssize_t taken = read(waited[0].fd, &byte, 1);
}

int32_t refreshWait() {
  const int32_t delay = load(g_Delay);
  if (delay < 0) return -1;
  return std::min(delay, INT_MAX / kMillisecondsPerDelay) * kMillisecondsPerDelay;
}

static int32_t waitAfterMissedFrame() {
  const int32_t wait = refreshWait();
  return wait < 0 ? wait : std::max(wait, kAfterMissedFrame);
}

static void showList() {
  showProcesses(currentTable(), previousTable(), getFilter());
}

// Whether there is room for one more table. When there is not, retired ones whose readers have left
// meanwhile are released first: as long as no sample is taken, nothing else does that.
static bool makeRoom() {
  if (!hasRoomForTable()) retireProcessTable(nullptr);
  return hasRoomForTable();
}

static int showPlainList() {
  const bool updating = load(g_updates) != 0 && makeRoom();
  if (updating) sample();
  releaseStandardError();
  showList();
  if (updating) keepAsPrevious();
  if (load(g_updates) == 0) offerStatus(kFrozen, 3);
  flushOutput();
  return 0;
}

static void drawFrame(bool sampled, bool frozen) {
  noteKeysAreSeen();
  takeScreenBack();
  // A key that switches colours in the middle of a frame may leave an attribute on.
  setAttributes(A_NORMAL);
  beginList();
  if (!sampled) sortAgain();
  showList();
  if (frozen) offerStatus(kFrozen, 3);
  sendFrame();
}

static void endIfAsked() {
  // Not on every system does the end of the terminal end a poll that asks for nothing else.
  if (isTerminalGone()) askForEnd(SIGHUP);
  endIfInterrupted();
}

// Samples go on while another thread has the screen, and only the frame is left out: growth since
// the sample before stays that of one refresh, and that thread sees new figures of other processes.
static void refreshScreen() {
  // Read once: a key that freezes the display in the middle of a cycle must not tear sampling from
  // retiring.
  const bool frozen = load(g_updates) == 0;
  const bool updating = !frozen && makeRoom();
  if (updating) sample();
  endIfAsked();
  const bool drawing = tryLockDrawing();
  if (drawing) {
    stopIfAsked();
    drawFrame(updating, frozen);
  }
  if (updating) keepAsPrevious();
  if (drawing) {
    keepAsDrawn();
    unlockDrawing();
  }
  collectStandardError();
  waitForRefresh(drawing ? refreshWait() : waitAfterMissedFrame());
  endIfAsked();
}

int runDisplay() {
  if (load(wantCurses) == 0) return showPlainList();
  startDisplay();
  while (load(wantCurses) != 0) refreshScreen();
  return 0;
}

}  // namespace sondex
