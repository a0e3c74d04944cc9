#include "screens/details.h"

#include <curses.h>
#include <stdint.h>

#include "inspect/details_report.h"
#include "proc/sampler.h"
#include "screens/help.h"
#include "state/display.h"
#include "terminal/ending.h"
#include "terminal/page.h"
#include "terminal/status_bar.h"
#include "vm/core_dump.h"

namespace sondex {

constexpr int kDetailsHelp = 2;
constexpr int32_t kBetweenKeys = 1000;  // milliseconds

static void toggle(int32_t *word) {
  *word = *word == 0 ? 1 : 0;
}

static void toggleArguments() {
  store(g_showArgs, load(g_showArgs) == 0 ? 1 : 0);
}

static void dumpProcess(int32_t pid) {
  setStatusBar("Dumping core... Please wait...\n", 3);
  printStatusBar();
  wrefresh(stdscr);
  dumpCore(pid, 0, kFullCore);
}

// Applies a key. When there is none, or one without a meaning here, waits a while. False when the
// screen is to be left.
static bool applyKey(DetailsReport *report, int key) {
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
      return pauseUnlessEnding(kBetweenKeys);
  }
}

static int runScreen(DetailsReport *report) {
  for (;;) {
    const int result = printDetails(report);
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
