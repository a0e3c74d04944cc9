#include "screens/details.h"

#include <curses.h>
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "inspect/details_report.h"
#include "proc/sampler.h"
#include "screens/help.h"
#include "state/display.h"
#include "terminal/ending.h"
#include "terminal/lost_screen.h"
#include "terminal/page.h"
#include "terminal/status_bar.h"
#include "vm/core_dump.h"
#include "vm/task_memory.h"

namespace sondex {

constexpr int kDetailsHelp = 2;

static void toggle(int32_t *word) {
  *word = *word == 0 ? 1 : 0;
}

static void toggleArguments() {
  store(g_showArgs, load(g_showArgs) == 0 ? 1 : 0);
}

static void tellOutcome(int32_t pid, int result, int error) {
  char text[160];
  if (result == 0) {
    snprintf(text, sizeof text, "Core dumped to /tmp/core.%d", pid);
  } else {
    snprintf(text, sizeof text, "No core of process %d: %s", pid,
             result == kNoTaskPort ? "no task port" : strerror(error));
  }
  insistOnStatus(text, 3);
}

static void dumpProcess(int32_t pid) {
  setStatusBar("Dumping core... Please wait...\n", 3);
  printStatusBar();
  sendFrame();
  const int result = dumpCore(pid, 0, kFullCore);
  tellOutcome(pid, result, errno);
}

// Applies a key. When there is none, or one without a meaning here, waits for the next one a while.
// False when the screen is to be left.
static bool applyKey(DetailsReport *report, int key) {
  if (movePage(&report->page, key)) return true;
  switch (key) {
    case '?':
      showHelp(kDetailsHelp);
      return true;
    case 'A':
    case 'a':
      toggleArguments();
      return true;
    case 'C':
    case 'c':
      dumpProcess(pidOf(report->record));
      return true;
    case 'F':
    case 'f':
      toggle(&report->showsDescriptors);
      return true;
    case 'H':
    case 'h':
      toggle(&report->showsHierarchy);
      return true;
    case 'Q':
    case 'q':
      return false;
    case 'R':
    case 'r':
      toggle(&report->showsRegions);
      return true;
    case 'T':
    case 't':
      toggle(&report->showsThreads);
      return true;
    default:
      return waitForKey();
  }
}

static int drawReport(DetailsReport *report) {
  int result = 0;
  do {
    result = printDetails(report);
  } while (result == 0 && !endPage(&report->page));
  return result;
}

static int runScreen(DetailsReport *report) {
  for (;;) {
    const int result = drawReport(report);
    if (result != 0 || stdscr == nullptr || isKeyboardGone()) return result;
    if (!applyKey(report, readKey())) return 0;
    refreshProcInfo(report->record);
  }
}

int showProcessDetails(ProcessRecord *record, TableView table) {
  DetailsReport report = openDetailsReport(record, table);
  return load(wantCurses) == 0 ? printDetails(&report) : runScreen(&report);
}

}  // namespace sondex
