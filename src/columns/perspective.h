// The perspective: the user's view of the columns, in order, with the selected one, which is also
// the sort column.
#pragma once

#include "columns/column.h"

namespace sondex {

constexpr int kPerspectiveColumns = 32;

struct Perspective {
  char name[64];
  int32_t numColumns;
  int32_t selectedColumn;
  // Sections of the list screen's header.
  int32_t ShowWiFi;
  int32_t ShowDisks;
  int32_t ShowNetworks;
  int32_t ShowPower;
  // The entry after the last is all zero: its null `print` ends a walk.
  ColumnDescriptor columns[kPerspectiveColumns];
};

// The one perspective, built on first use and never freed.
Perspective *getDefaultPerspective();

// The perspective in use.
Perspective *getCurrentPerspective();

// Puts `perspective` in place of the stored one; null has it built anew on the next use. The caller
// keeps it alive.
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
