#include "columns/perspective.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "columns/column_table.h"
#include "state/system.h"

namespace sondex {

static std::atomic<Perspective *> defaultPerspective{nullptr};

// The code-signing column is left out on purpose.
static const ColumnDescriptor *const kDefaultColumns[] = {
    &col_uid,    &col_pid,       &col_ppid,     &col_command, &col_threads, &col_priority,
    &col_rsize,  &col_vsize,     &col_cpu,      &col_dsk_r,   &col_dsk_w,   &col_coalition,
    &col_status, &col_memstatus, &col_memlimit, &col_sandbox, &col_time,    &col_stime,
    &col_nfds,   &col_net_rx,    &col_net_tx,
};
constexpr int32_t kCPUColumn = 8;

ColumnDescriptor *appendColumn(Perspective *perspective, const ColumnDescriptor *column) {
  // The last entry stays null: a walk over the columns ends there.
  if (perspective->numColumns >= kPerspectiveColumns - 1) return nullptr;
  const int32_t index = perspective->numColumns++;
  ColumnDescriptor *copy = &perspective->descriptors[index];
  memcpy(copy->header, column->header, sizeof copy->header);
  copy->width = column->width;
  copy->print = column->print;
  copy->sort = column->sort;
  store(copy->hidden, load(column->hidden));
  copy->minOSVersion = column->minOSVersion;
  copy->needsNetStat = column->needsNetStat;
  copy->rootOnly = column->rootOnly;
  store(perspective->columns[index], copy);
  return copy;
}

static void buildDefault(Perspective *perspective) {
  snprintf(perspective->name, sizeof perspective->name, "Default");
  perspective->numColumns = 0;
  for (std::atomic<ColumnDescriptor *> &column : perspective->columns) store(column, nullptr);
  for (const ColumnDescriptor *column : kDefaultColumns) appendColumn(perspective, column);
  store(perspective->ShowWiFi, 1);
  store(perspective->ShowNetworks, 0);
  store(perspective->ShowPower, 0);
  store(perspective->ShowDisks, 1);
  store(perspective->selectedColumn, kCPUColumn);
}

Perspective *getDefaultPerspective() {
  static Perspective built = {};
  if (load(defaultPerspective) == nullptr) {
    buildDefault(&built);
    store(defaultPerspective, &built);
  }
  return load(defaultPerspective);
}

Perspective *getCurrentPerspective() {
  return getDefaultPerspective();
}

void setDefaultPerspective(Perspective *perspective) {
  store(defaultPerspective, perspective);
}

ColumnDescriptor *columnAt(const Perspective *perspective, int32_t index) {
  if (index >= kPerspectiveColumns) return nullptr;
  ColumnDescriptor *column = load(perspective->columns[index]);
  return column != nullptr && column->print != nullptr ? column : nullptr;
}

Comparator sortOf(const Perspective *perspective) {
  const int32_t last = std::max(perspective->numColumns - 1, 0);
  const ColumnDescriptor *column =
      load(perspective->columns[std::clamp(load(perspective->selectedColumn), 0, last)]);
  return column != nullptr ? column->sort : nullptr;
}

int moveCol(int32_t index, int32_t delta) {
  std::atomic<ColumnDescriptor *> *columns = getCurrentPerspective()->columns;
  ColumnDescriptor *moved = load(columns[index]);
  store(columns[index], load(columns[index + delta]));
  store(columns[index + delta], moved);
  return 0;
}

static bool isHidden(const Perspective *perspective, int32_t index) {
  const ColumnDescriptor *column = load(perspective->columns[index]);
  return column != nullptr && load(column->hidden) != 0;
}

void hideSelectedCol(Perspective *perspective) {
  int32_t selected = load(perspective->selectedColumn);
  ColumnDescriptor *column = load(perspective->columns[selected]);
  if (column != nullptr) store(column->hidden, 1);
  while (selected > 0 && isHidden(perspective, selected)) selected--;
  while (selected < perspective->numColumns - 1 && isHidden(perspective, selected)) selected++;
  store(perspective->selectedColumn, selected);
}

bool isColumnVisible(const ColumnDescriptor *column) {
  return load(column->hidden) == 0 && (g_r00t != 0 || column->rootOnly == 0) &&
         column->minOSVersion <= g_OsVer;
}

bool hasColumn(const Perspective *perspective, const ColumnDescriptor *column) {
  for (int32_t i = 0; i < perspective->numColumns; i++) {
    const ColumnDescriptor *present = load(perspective->columns[i]);
    if (strncmp(present->header, column->header, sizeof column->header) == 0) return true;
  }
  return false;
}

}  // namespace sondex
