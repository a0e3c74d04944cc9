// The perspective: the user's view of the columns, in order, with the selected one, which is also
// the sort column.
#pragma once

#include "columns/column.h"

namespace sondex {

constexpr int kPerspectiveColumns = 32;

// Keys change it on one thread while another draws and sorts by it. A column that moves changes its
// place, never its descriptor: in the middle of a move a column may be seen twice, never half of
// one and half of another.
struct Perspective {
  char name[64];
  int32_t numColumns;  // fixed once other threads know the perspective
  SharedInt selectedColumn;
  // Sections of the list screen's header.
  SharedInt ShowWiFi;
  SharedInt ShowDisks;
  SharedInt ShowNetworks;
  SharedInt ShowPower;
  // In display order; null after the last.
  std::atomic<ColumnDescriptor *> columns[kPerspectiveColumns];
  ColumnDescriptor descriptors[kPerspectiveColumns];  // what `columns` points to
};

// The one perspective, built on first use and never freed.
Perspective *getDefaultPerspective();

// The perspective in use.
Perspective *getCurrentPerspective();

// Adds a copy of `column` at the end and returns it; null when the perspective is full. Only while
// no other thread knows the perspective.
ColumnDescriptor *appendColumn(Perspective *perspective, const ColumnDescriptor *column);

// The column at `index` (0 or more) in display order; null from the end on, and where an entry has
// no renderer: there a walk ends.
ColumnDescriptor *columnAt(const Perspective *perspective, int32_t index);

// What the selected column sorts by; null when there is no column.
Comparator sortOf(const Perspective *perspective);

// Puts `perspective` in place of the stored one; null has it built anew on the next use. The caller
// keeps it alive. Nothing calls it yet.
void setDefaultPerspective(Perspective *perspective);

// Swaps the columns at `index` and `index + delta` of the current perspective. The caller checks
// both. Returns 0.
int moveCol(int32_t index, int32_t delta);

// Hides the selected column and selects the nearest visible one: to the left first, else to the
// right. With none left the selection stays within the columns.
void hideSelectedCol(Perspective *perspective);

// Whether a column is drawn, as far as rights, kernel generation and hiding go.
bool isColumnVisible(const ColumnDescriptor *column);

// Whether a column of that header is in the perspective, hidden or not.
bool hasColumn(const Perspective *perspective, const ColumnDescriptor *column);

}  // namespace sondex
