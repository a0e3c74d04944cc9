// What a screen with the process list should look like, as complaints about one that does not: ""
// when all is well. A frame comes in pieces, so that a complaint is only final at a deadline.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "harness/terminal.h"

namespace test {

// What the terminal can show.
struct Abilities {
  bool colours = true;
};

// The texts of the columns that fit into this width, with the separators between them. The selected
// one is the CPU column.
struct HeaderLayout {
  std::string text;
  int selectedStart = -1;  // -1 when it does not fit
  int selectedEnd = -1;
};
HeaderLayout headerLayout(int columns, bool forRoot);

// -1 while there is none.
int headerRow(const Terminal &terminal);
int rowOfProcess(const Terminal &terminal, pid_t pid);

// Columns of the screen from `start` to before `end`.
struct CellRange {
  int start;
  int end;
};
// What stands between the separators of a row.
std::vector<CellRange> cellsOfRow(const Terminal &terminal, int row);
std::string textOf(const Terminal &terminal, int row, CellRange range);

std::string complaintAboutHeader(const Terminal &terminal, bool forRoot, Abilities abilities = {});
std::string complaintAboutSummary(const Terminal &terminal, bool forRoot);
// The number of rows, which follows from the screen's, and how the first and the others look.
std::string complaintAboutRows(const Terminal &terminal, bool forRoot, Abilities abilities = {});
// All three.
std::string complaintAboutFrame(const Terminal &terminal, bool forRoot, Abilities abilities = {});

}  // namespace test
