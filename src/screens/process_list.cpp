#include "screens/process_list.h"

#include <curses.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "columns/perspective.h"
#include "nstat/accounting.h"
#include "proc/process_table.h"
#include "screens/cpu_summary.h"
#include "screens/system_summary.h"
#include "state/display.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "terminal/status_bar.h"
#include "text/safe_text.h"

namespace sondex {

constexpr int32_t kPlainRows = 1000;
constexpr int32_t kFixedHeaderRows = 7;
constexpr int32_t kMostProcessorRows = 1 << 16;  // beyond any screen; only keeps the sum in range
constexpr size_t kShownFilter = 240;
constexpr int32_t kUntilReplaced = -1;

static bool onScreen() {
  return load(wantCurses) != 0;
}

static void measureScreen() {
  if (onScreen()) {
    store(y, getmaxy(stdscr));
    store(x, getmaxx(stdscr));
  } else {
    store(y, kPlainRows);
  }
  const Perspective *perspective = getCurrentPerspective();
  const auto row = [](int32_t shown) { return shown != 0 ? 1 : 0; };
  store(banners, kFixedHeaderRows + row(load(g_Compression)) + row(load(g_Processors)) +
                     row(load(perspective->ShowPower)) + row(load(g_Swap)) +
                     row(load(perspective->ShowNetworks)) +
                     (load(g_EachCPU) != 0 ? std::clamp(g_num_cpus, 0, kMostProcessorRows) : 1));
}

static void showColumnHeaders(const Perspective *perspective) {
  // Asked for once: a key may switch colours in the middle of the row.
  const uint32_t plain = colorPair(kPairHeader);
  const uint32_t marked = colorPair(kPairSelected) | static_cast<uint32_t>(A_BOLD);
  switchOn(plain | static_cast<uint32_t>(A_UNDERLINE));
  int32_t width = 0;
  for (int32_t i = 0; const ColumnDescriptor *column = columnAt(perspective, i); i++) {
    if (!isColumnVisible(column) || width + column->width > load(x)) continue;
    if (column->needsNetStat != 0 && nstat_ok() == 0) continue;
    width += column->width;
    store(g_lastVisibleCol, i);
    // Kept: by the index, so a hidden first column still gives the first visible header a
    // separator.
    if (i != 0 && load(g_wantLines) != 0) output("|", 0);
    const bool selected = i == load(perspective->selectedColumn);
    if (selected) switchOn(marked);
    output(column->header, column->width);
    if (selected) {
      switchOff(static_cast<uint32_t>(A_BOLD));
      switchOn(plain);
    }
  }
  output("\n", 0);
  switchOff(plain | static_cast<uint32_t>(A_UNDERLINE));
}

static bool passes(const ProcessRecord *record, const char *filter) {
  const char *command = record->taskAllInfo.pbsd.pbi_comm;
  if (command[0] == '\0') return false;
  char name[sizeof record->taskAllInfo.pbsd.pbi_comm + 1] = "";
  memcpy(name, command, strnlen(command, sizeof record->taskAllInfo.pbsd.pbi_comm));
  if (filter != nullptr && filter[0] != '-' && strstr(name, filter) == nullptr) return false;
  return load(g_filterSockets) == 0 || getNTStatInfo(pidOf(record)) != nullptr;
}

static void showSeparator() {
  const uint32_t attribute = colorPair(kPairHeader);
  switchOn(attribute);
  outputSeparator();
  switchOff(attribute);
}

static void showRow(const Perspective *perspective, ProcessRecord *record, ProcessRecord *previous,
                    bool highlighted) {
  const int32_t selected = load(perspective->selectedColumn);
  int32_t width = 0;
  for (int32_t i = 0; const ColumnDescriptor *column = columnAt(perspective, i); i++) {
    if (!isColumnVisible(column) || width + column->width > load(x)) continue;
    width += column->width;
    if (i != 0 && load(g_wantLines) != 0) showSeparator();
    // A highlighted row is bold as a whole already.
    const bool marked = i == selected && !highlighted;
    const uint32_t pair = onScreen() ? colorPair(kPairSelected) : 0;
    if (marked) switchOn(static_cast<uint32_t>(A_BOLD) | pair);
    column->print(record, previous);
    if (marked) switchOff(static_cast<uint32_t>(A_BOLD) | pair);
  }
  output("\n", 0);
}

struct Rows {
  int32_t matched;
  int32_t drawn;
};

static Rows showRows(TableView current, TableView previous, const char *filter) {
  const Perspective *perspective = getCurrentPerspective();
  const int32_t first = load(g_firstProcToShow);
  const int32_t selected = load(g_selectedProcess);
  const int32_t cursor = load(g_Row) + first;
  const int32_t room = load(y) - load(banners);
  Rows rows = {0, 0};
  for (int32_t i = 0; i < current.count; i++) {
    ProcessRecord *record = &current.records[i];
    // For the keys, which act on what is seen. A display that stands still draws a table again.
    record->displayed = 0;
    if (!passes(record, filter)) continue;
    rows.matched++;
    if (rows.drawn > room || i < first) continue;
    record->displayed = 1;
    rows.drawn++;
    const bool highlighted = onScreen() && i == selected;
    if (highlighted)
      setAttributes(static_cast<uint32_t>(A_REVERSE) | static_cast<uint32_t>(A_BOLD));
    ProcessRecord *before = findProcessInformationByPid(previous, pidOf(record));
    showRow(perspective, record, before, highlighted);
    // Kept: bold ends at the cursor's row. Where that is not the highlighted one, as under a
    // filter, rows below the highlighted one are bold too.
    if (onScreen() && i == cursor) setAttributes(static_cast<uint32_t>(A_NORMAL));
    if (highlighted) switchOff(static_cast<uint32_t>(A_REVERSE));
  }
  return rows;
}

static void reportScrolling(int32_t matched, int32_t processes) {
  const int32_t first = load(g_firstProcToShow);
  if (first == 0) {
    if (strstr(getStatusBar(), "Showing") != nullptr) clearStatusBar();
    return;
  }
  if (!onScreen()) return;
  const int32_t room = load(y) - load(banners);
  char text[128];
  snprintf(text, sizeof text,
           "---- Showing processes %d-%d of %d%s(scroll up to see previous) ----", first + 1,
           first + (matched < room ? matched : room), matched,
           matched != processes ? " viewable " : "");
  offerStatus(text, kUntilReplaced);
}

static void reportFilter(const char *filter) {
  if (filter == nullptr || filter[0] == '\0') {
    if (strstr(getStatusBar(), "Filter") != nullptr) clearStatusBar();
    return;
  }
  char safe[kShownFilter + 1];
  makeSafe(safe, sizeof safe, filter, kShownFilter);
  char text[320];
  snprintf(text, sizeof text, "---- Filtering processes by : %s %s----", safe,
           load(g_Delta) != 0 ? "(Delta Mode)" : "");
  offerStatus(text, kUntilReplaced);
}

static void reportNoMatch(const char *filter) {
  char safe[kShownFilter + 1] = "";
  if (filter != nullptr) makeSafe(safe, sizeof safe, filter, kShownFilter);
  char text[320];
  snprintf(text, sizeof text,
           "---- No processes match %s(press / again and hit <enter> to remove filter) ----", safe);
  offerStatus(text, kUntilReplaced);
}

void showProcesses(TableView current, TableView previous, const char *filter) {
  if (current.records == nullptr) {
    printf("No processes\n");
    return;
  }
  measureScreen();
  showSystemSummary(current, previous);
  if (onScreen()) showColumnHeaders(getCurrentPerspective());
  const Rows rows = showRows(current, previous, filter);
  reportScrolling(rows.matched, current.count);
  reportFilter(filter);
  store(g_procs_viewable, rows.matched);
  const bool hasRoom = load(y) >= load(banners);
  if (rows.matched == 0 || (rows.drawn == 0 && hasRoom)) reportNoMatch(filter);
  printStatusBar();
}

}  // namespace sondex
