// The columns that the process list has unless keys change them, in their order: the one place of
// the tests that says which there are. Nothing here comes from the program.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <string>

namespace test {

enum class Column {
  user,
  pid,
  parent,
  command,
  threads,
  priority,
  resident,
  virtualSize,
  processor,
  read,
  written,
  coalition,
  status,
  band,
  limit,
  sandbox,
  time,
  startTime,
  descriptors,
  received,
  sent,
};

struct ListColumn {
  Column column;
  const char *header;
  const char *drawn;    // the header cut to its field, or with a blank behind it
  const char *saved;    // the header in the configuration file
  int width;            // that it claims
  int firstGeneration;  // of the kernels that it is shown on
  bool isForRoot;
};

// clang-format off
inline constexpr ListColumn kListColumns[] = {
    {Column::user,        " UID ",           " UID ",           "UID ",            6,  0,  false},
    {Column::pid,         "PID  ",           "PID  ",           "PID  ",           6,  0,  false},
    {Column::parent,      "PPID  ",          "PPID ",           "PPID  ",          6,  0,  false},
    {Column::command,     "COMMAND        ", "COMMAND        ", "COMMAND        ", 16, 0,  false},
    {Column::threads,     "#THR",            "#THR",            "#THR",            5,  0,  false},
    {Column::priority,    "PRI  ",           "PRI ",            "PRI  ",           5,  0,  false},
    {Column::resident,    " RSS ",           " RSS ",           "RSS ",            6,  0,  false},
    {Column::virtualSize, " VSS ",           " VSS ",           "VSS ",            6,  0,  false},
    {Column::processor,   " CPU  ",          " CPU ",           "CPU  ",           6,  0,  false},
    {Column::read,        " READ ",          " READ ",          "READ ",           7,  9,  false},
    {Column::written,     "WRITE ",          "WRITE ",          "WRITE ",          7,  9,  false},
    {Column::coalition,   "COAL",            "COAL",            "COAL",            5,  10, false},
    {Column::status,      " S ",             " S ",             "S ",              4,  0,  false},
    {Column::band,        "MS ",             "MS ",             "MS ",             4,  0,  true},
    {Column::limit,       "MEML",            "MEML",            "MEML",            5,  0,  true},
    {Column::sandbox,     "SB",              "SB",              "SB",              3,  0,  false},
    {Column::time,        "   TIME ",        "   TIME  ",       "TIME ",           11, 0,  false},
    {Column::startTime,   "   STIME   ",     "   STIME   ",     "STIME   ",        12, 0,  false},
    {Column::descriptors, " FDs ",           " FDs",            "FDs ",            5,  0,  false},
    {Column::received,    "Net RX",          "Net RX",          "Net RX",          7,  0,  false},
    {Column::sent,        "Net TX",          "Net TX",          "Net TX",          7,  0,  false},
};
// clang-format on
inline constexpr int kColumnCount = std::size(kListColumns);
inline constexpr int kLastColumn = kColumnCount - 1;

// Its place in the list.
constexpr int placeOf(Column column) {
  const auto *found =
      std::find_if(std::begin(kListColumns), std::end(kListColumns),
                   [column](const ListColumn &row) { return row.column == column; });
  return static_cast<int>(found - kListColumns);
}

// What is selected at the start.
inline constexpr int kSelectedColumn = placeOf(Column::processor);

// The lines of the configuration file.
inline std::string savedColumns(std::initializer_list<int> hidden = {}) {
  std::string text = "\tColumns\n";
  for (int place = 0; place < kColumnCount; place++) {
    if (std::find(hidden.begin(), hidden.end(), place) != hidden.end()) continue;
    text += std::string("\t\tColumn\t") + kListColumns[place].saved + "\n";
  }
  return text;
}

}  // namespace test
