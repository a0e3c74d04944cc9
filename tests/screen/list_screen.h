// What a screen with the process list should look like, as complaints about one that does not: ""
// when all is well. A frame comes in pieces, so that a complaint is only final at a deadline.
#pragma once

#include <sys/types.h>

#include <span>
#include <string>
#include <vector>

#include "harness/list_columns.h"
#include "harness/terminal.h"

namespace test {

// What the terminal can show.
struct Abilities {
  bool colours = true;
  bool underlinedColours = true;  // the Linux console has either the one or the other
};

// Without a colour of its own. On a terminal with colours curses writes that as white on black.
bool isPlain(const Cell &cell);

// The texts of the columns of `list` that fit into this width, with the separators between them.
// The selected one is the CPU column.
struct HeaderLayout {
  std::string text;
  std::vector<Column> columns;
  int selectedStart = -1;  // -1 when it does not fit
  int selectedEnd = -1;
};
HeaderLayout headerLayout(int columns, bool forRoot,
                          std::span<const ListColumn> list = kListColumns);

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
// The place of the PID among them.
inline constexpr size_t kPidCell = placeOf(Column::pid);
std::string textOf(const Terminal &terminal, int row, CellRange range);

std::string complaintAboutHeader(const Terminal &terminal, bool forRoot, Abilities abilities = {});
std::string complaintAboutSummary(const Terminal &terminal, bool forRoot);
// The number of rows, which follows from the screen's, and how the first and the others look.
std::string complaintAboutRows(const Terminal &terminal, bool forRoot, Abilities abilities = {});
// Whether the first row is highlighted from its beginning to its end.
std::string complaintAboutHighlight(const Terminal &terminal);
// All but that.
std::string complaintAboutFrame(const Terminal &terminal, bool forRoot, Abilities abilities = {});

}  // namespace test
