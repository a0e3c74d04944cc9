#include "columns/perspective.h"

#include <stdio.h>
#include <string.h>

#include "columns/column_table.h"
#include "state/system.h"

namespace sondex {

static Perspective *defaultPerspective = nullptr;

// The code-signing column is left out on purpose.
static const ColumnDescriptor *const kDefaultColumns[] = {
    &col_uid,    &col_pid,       &col_ppid,     &col_command, &col_threads, &col_priority,
    &col_rsize,  &col_vsize,     &col_cpu,      &col_dsk_r,   &col_dsk_w,   &col_coalition,
    &col_status, &col_memstatus, &col_memlimit, &col_sandbox, &col_time,    &col_stime,
    &col_nfds,   &col_net_rx,    &col_net_tx,
};
constexpr int32_t kCPUColumn = 8;

static void appendColumn(Perspective *perspective, const ColumnDescriptor *column) {
  // The last entry stays zero, as the end of the walk.
  if (perspective->numColumns < kPerspectiveColumns - 1) {
    perspective->columns[perspective->numColumns++] = *column;
  }
}

Perspective *getDefaultPerspective() {
  static Perspective built;
  if (defaultPerspective == nullptr) {
    built = {};
    snprintf(built.name, sizeof built.name, "Default");
    for (const ColumnDescriptor *column : kDefaultColumns) appendColumn(&built, column);
    built.ShowWiFi = 1;
    built.ShowNetworks = 0;
    built.ShowPower = 0;
    built.ShowDisks = 1;
    built.selectedColumn = kCPUColumn;
    defaultPerspective = &built;
  }
  return defaultPerspective;
}

Perspective *getCurrentPerspective() {
  return getDefaultPerspective();
}

void setDefaultPerspective(Perspective *perspective) {
  defaultPerspective = perspective;
}

int moveCol(int32_t index, int32_t delta) {
  ColumnDescriptor *columns = getCurrentPerspective()->columns;
  const ColumnDescriptor moved = columns[index];
  columns[index] = columns[index + delta];
  columns[index + delta] = moved;
  return 0;
}

void hideSelectedCol(Perspective *perspective) {
  const ColumnDescriptor *columns = perspective->columns;
  int32_t selected = perspective->selectedColumn;
  perspective->columns[selected].hidden = 1;
  while (selected > 0 && columns[selected].hidden != 0) selected--;
  while (selected < perspective->numColumns - 1 && columns[selected].hidden != 0) selected++;
  perspective->selectedColumn = selected;
}

bool isColumnVisible(const ColumnDescriptor *column) {
  return column->hidden == 0 && (g_r00t != 0 || column->rootOnly == 0) &&
         column->minOSVersion <= g_OsVer;
}

bool hasColumn(const Perspective *perspective, const ColumnDescriptor *column) {
  for (int32_t i = 0; i < perspective->numColumns; i++) {
    if (strncmp(perspective->columns[i].header, column->header, sizeof column->header) == 0)
      return true;
  }
  return false;
}

}  // namespace sondex
