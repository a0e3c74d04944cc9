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
#include "inspect/code_signing.h"
#include "main/monitor.h"
#include "proc/sampler.h"
#include "screens/process_list.h"
#include "state/display.h"
#include "state/system.h"
#include "ui/held_stderr.h"
#include "ui/input_thread.h"
#include "ui/keys.h"
#include "ui/output.h"
#include "ui/status_bar.h"

namespace sondex {

constexpr int32_t kMillisecondsPerDelay =
    1000;  // kept: though the delay is called deciseconds elsewhere

static void *watchPressure(void *) {
  doVMPressureMonitor(0);
  return nullptr;
}

static void startDisplay() {
  atexit(cursesMessage);
  atexit(closeScreen);
  openScreen();
  signal(SIGINT, sighandler);
  // In place of curses' own: a size that changes just before the wait must not go unnoticed.
  signal(SIGWINCH, resizehandler);
  pthread_t watcher;
  const int failure = pthread_create(&watcher, nullptr, watchPressure, nullptr);
  if (failure == 0) {
    pthread_detach(watcher);
  } else {
    setStatusBar("Memory pressure is not watched: no thread", 3);
  }
}

// The verdicts cost a call per process, so they are asked for only while a column shows them.
static void markCodeSigning(ProcessRecord *table, int32_t count) {
  if (!hasColumn(getCurrentPerspective(), &col_codesign)) return;
  for (int32_t i = 0; i < count; i++) {
    if (table[i].taskAllInfo.pbsd.pbi_comm[0] == '\0') continue;
    snprintf(table[i].csStatus, sizeof table[i].csStatus, "%s", isPidSigned(pidOf(&table[i])));
  }
}

static void sample() {
  g_Prev_Total_Rusage = g_Total_Rusage;
  g_Total_Rusage = {};
  ProcessRecord *unshown = load(g_process_information);
  store(g_process_information, getPIDList());
  // The table of start-up was never drawn and is nobody's previous one.
  if (unshown != load(g_previous_process_information)) retireProcessTable(unshown);
  markCodeSigning(load(g_process_information), load(num_procs));
  const Perspective *perspective = getCurrentPerspective();
  doSort(perspective->columns[perspective->selectedColumn].sort);
}

static void keepAsPrevious() {
  ProcessRecord *retired = load(g_previous_process_information);
  ProcessRecord *current = load(g_process_information);
  const int32_t count = load(num_procs);
  indexProcessTable(current, count);
  store(previous_num_procs, count);
  store(g_previous_process_information, current);
  retireProcessTable(retired);
}

// Waits for the next refresh. A byte on the pipe or the terminal's end cuts it short.
static void waitForRefresh() {
  const int32_t delay = std::clamp(load(g_Delay), 0, INT_MAX / kMillisecondsPerDelay);
  // poll passes over a negative descriptor: without a pipe the wait just can't be cut short.
  pollfd waited[2] = {{g_pipe[0] != 0 ? g_pipe[0] : -1, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
  const int result = poll(waited, 2, delay * kMillisecondsPerDelay);
  if (result == 0) return;
  if (result > 0 && (waited[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) exit(0);
  // A signal that ended the wait left a byte too. Nothing there is nothing lost: this never blocks.
  char byte = 0;
  [[maybe_unused]] const ssize_t taken = read(waited[0].fd, &byte, 1);
}

int runDisplay() {
  if (load(wantCurses) != 0) startDisplay();
  do {
    // Read once: a key that freezes the display in the middle of a cycle must not tear sampling
    // from retiring.
    const bool frozen = load(g_updates) == 0;
    const bool updating = !frozen && hasRoomForTable();
    const bool onScreen = load(wantCurses) != 0;
    if (onScreen) {
      fitScreen();
      wclear(stdscr);
    }
    if (updating) sample();
    showProcesses(load(g_process_information), load(g_previous_process_information), getFilter());
    if (updating) keepAsPrevious();
    if (frozen) setStatusBar("Updates Frozen ('F' to toggle back)", 3);
    if (onScreen) {
      wrefresh(stdscr);
      collectStandardError();
      waitForRefresh();
      endIfInterrupted();
    }
  } while (load(wantCurses) != 0);
  return 0;
}

}  // namespace sondex
