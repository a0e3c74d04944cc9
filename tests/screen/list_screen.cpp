#include "screen/list_screen.h"

#include <algorithm>
#include <regex>
#include <vector>

#include "harness/process_facts.h"

namespace test {

namespace {

constexpr char kSeparator[] = "\u2502";

// Lines above the list that the number of rows is reckoned with: seven, one each for the
// compressor, the processors' line and the swap, and one for the processors themselves.
constexpr int kBanners = 7 + 1 + 1 + 1 + 1;

std::string at(int row, int column, const std::string &what) {
  return what + " at row " + std::to_string(row) + ", column " + std::to_string(column);
}

std::string complaintAboutColour(const Cell &cell, int row, int column, bool isCyan) {
  if (isCyan && (cell.foreground != kCyan || cell.background != kBlack)) {
    return at(row, column, "not cyan on black");
  }
  if (!isCyan && !isPlain(cell)) return at(row, column, "a colour");
  return "";
}

}  // namespace

bool isPlain(const Cell &cell) {
  if (cell.foreground == kDefaultColour) return cell.background == kDefaultColour;
  return cell.foreground == kWhite && cell.background == kBlack;
}

HeaderLayout headerLayout(int columns, bool forRoot, std::span<const ListColumn> list) {
  HeaderLayout layout;
  int claimed = 0;
  for (const ListColumn &column : list) {
    if ((column.isForRoot && !forRoot) || claimed + column.width > columns) continue;
    claimed += column.width;
    layout.columns.push_back(column.column);
    // By the column's place in the view, not by what is drawn to the left of it.
    if (&column != &list.front()) layout.text += "|";
    const bool isSelected = column.column == Column::processor;
    if (isSelected) layout.selectedStart = static_cast<int>(layout.text.size());
    layout.text += column.drawn;
    if (isSelected) layout.selectedEnd = static_cast<int>(layout.text.size());
  }
  return layout;
}

static std::string withoutBlanksAtEnd(const std::string &text) {
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

int headerRow(const Terminal &terminal) {
  static const std::string start =
      withoutBlanksAtEnd(headerLayout(kListColumns[0].width + kListColumns[1].width, true).text);
  for (int row = 0; row < terminal.rows(); row++) {
    if (terminal.rowText(row).starts_with(start)) return row;
  }
  return -1;
}

std::string complaintAboutHeader(const Terminal &terminal, bool forRoot, Abilities abilities) {
  const HeaderLayout layout = headerLayout(terminal.columns(), forRoot);
  const int row = headerRow(terminal);
  if (row < 0) return "no header row";
  const std::string expected = withoutBlanksAtEnd(layout.text);
  if (terminal.rowText(row) != expected) return "the header is not \"" + expected + "\"";

  for (int column = 0; column < static_cast<int>(layout.text.size()); column++) {
    const Cell cell = terminal.cell(row, column);
    const bool isSelected = column >= layout.selectedStart && column < layout.selectedEnd;
    const bool isUnderlined = !abilities.colours || abilities.underlinedColours;
    if (cell.underline != isUnderlined) return at(row, column, "underline is wrong");
    if (cell.bold != isSelected) return at(row, column, isSelected ? "not bold" : "bold");
    if (cell.reverse) return at(row, column, "reverse");
    const std::string colour = complaintAboutColour(cell, row, column, abilities.colours);
    if (!colour.empty()) return colour;
  }
  return "";
}

// The lines above the header row.
static std::string summaryOf(const Terminal &terminal) {
  std::string text;
  for (int row = 0; row < headerRow(terminal); row++) text += terminal.rowText(row) + "\n";
  return text;
}

static int mostRows(const Terminal &terminal) {
  return terminal.rows() - kBanners + 1;
}

std::string complaintAboutSummary(const Terminal &terminal, bool forRoot) {
  struct Line {
    const char *what;
    const char *pattern;
    bool isFirst;
  };
  static constexpr Line kLines[] = {
      {"time and uptime", " [0-9]{2}:[0-9]{2}:[0-9]{2}  Up [0-9: daysmin.,]+ Load Avg:", true},
      {"load", "Load Avg:  [0-9]+\\.[0-9]{2} [0-9]+\\.[0-9]{2} [0-9]+\\.[0-9]{2} +[0-9]+ processes",
       true},
      {"memory", "RAM: +[0-9]+M Free \\+ +[0-9]+M Used \\(Active: +[0-9]+M \\+ Inactive: ", false},
      {"compressor", "Memstatus: +[0-9]+ +Comp: +[0-9]+M , Decomp: +[0-9]+M +File: ", false},
      {"disks", "Disks: Read:[ 0-9.]+[BKMG]/sec Written:[ 0-9.]+[BKMG]/sec", false},
  };
  // The first line is wider than most screens.
  constexpr int kWholeFirstLine = 120;
  const std::string text = summaryOf(terminal);
  // A frame higher than the screen scrolls its beginning away.
  const bool isWhole = headerRow(terminal) + 1 + mostRows(terminal) < terminal.rows() - 1;
  for (const Line &line : kLines) {
    if (line.isFirst && (!isWhole || terminal.columns() < kWholeFirstLine)) continue;
    if (!std::regex_search(text, std::regex(line.pattern))) {
      return std::string("no line on ") + line.what;
    }
  }
  static const std::regex forAll(
      "CPU:   [0-9]+/[0-9]+ active  \\(can't tell you more without being root\\)");
  static const std::regex shares(
      "CPU:   [0-9]+/[0-9]+ active +[0-9.]+% User, +[0-9.]+% System, +[0-9.]+% Idle");
  return std::regex_search(text, forRoot ? shares : forAll) ? "" : "no line on processors";
}

std::vector<CellRange> cellsOfRow(const Terminal &terminal, int row) {
  std::vector<CellRange> cells;
  int start = 0;
  for (int column = 0; column < terminal.columns(); column++) {
    if (terminal.cell(row, column).text != kSeparator) continue;
    cells.push_back({start, column});
    start = column + 1;
  }
  cells.push_back({start, terminal.columns()});
  return cells;
}

std::string textOf(const Terminal &terminal, int row, CellRange range) {
  std::string text;
  for (int column = range.start; column < range.end; column++) {
    text += terminal.cell(row, column).text;
  }
  return text;
}

int rowOfProcess(const Terminal &terminal, pid_t pid) {
  std::string wanted = std::to_string(pid);
  wanted.resize(std::max(wanted.size(), size_t{5}), ' ');
  for (int row = headerRow(terminal) + 1; row > 0 && row < terminal.rows(); row++) {
    const std::vector<CellRange> cells = cellsOfRow(terminal, row);
    if (cells.size() > kPidCell + 1 && textOf(terminal, row, cells[kPidCell]) == wanted) return row;
  }
  return -1;
}

// Figures that moved since the frame before may have another colour: these don't.
constexpr size_t kLastSteadyCell = placeOf(Column::command);

static std::vector<int> separatorsOf(const HeaderLayout &header) {
  std::vector<int> separators;
  for (size_t at = 0; (at = header.text.find('|', at)) != std::string::npos; at++) {
    separators.push_back(static_cast<int>(at));
  }
  return separators;
}

// Whether figures of more digits than their column is wide push the last columns off the screen.
static bool isPushedOut(const std::vector<CellRange> &cells, const std::vector<int> &separators) {
  const size_t drawn = cells.size() - 1;
  return drawn > 0 && drawn < separators.size() && cells.back().start - 1 > separators[drawn - 1];
}

static std::string complaintAboutRow(const Terminal &terminal, int row,
                                     const std::vector<int> &separators, bool isFirst,
                                     Abilities abilities) {
  static const std::regex number(" *-?[0-9]+ *");
  const std::vector<CellRange> cells = cellsOfRow(terminal, row);
  const bool isWhole = cells.size() == separators.size() + 1 || isPushedOut(cells, separators);
  if (!isWhole || cells.size() <= kLastSteadyCell) {
    return at(row, 0, "another number of separators");
  }
  for (const Column numbered : {Column::user, Column::pid, Column::parent}) {
    const CellRange cell = cells[placeOf(numbered)];
    if (!std::regex_match(textOf(terminal, row, cell), number)) {
      return at(row, cell.start, "no number");
    }
  }
  const int lastSeparator = cells.back().start - 1;
  for (int column = 0; column <= lastSeparator; column++) {
    const Cell cell = terminal.cell(row, column);
    const bool isSelected = cells.size() > kSelectedColumn + 1 &&
                            column >= cells[kSelectedColumn].start &&
                            column < cells[kSelectedColumn].end;
    if (cell.reverse != isFirst) return at(row, column, isFirst ? "not reverse" : "reverse");
    if (cell.bold != (isFirst || isSelected)) {
      return at(row, column, cell.bold ? "bold" : "not bold");
    }
    const bool isSeparator = cell.text == kSeparator;
    const bool isSteady = column < cells[kLastSteadyCell].end;
    if (!isSteady && !isSeparator && !isSelected) continue;
    const bool isCyan = abilities.colours && (isSeparator || (isSelected && !isFirst));
    const std::string colour = complaintAboutColour(cell, row, column, isCyan);
    if (!colour.empty()) return colour;
  }
  return "";
}

static bool startsRow(const Terminal &terminal, int row) {
  static const std::regex number(" *-?[0-9]+ *");
  const std::vector<CellRange> cells = cellsOfRow(terminal, row);
  return cells.size() > kPidCell &&
         std::regex_match(textOf(terminal, row, cells[kPidCell]), number);
}

std::string complaintAboutRows(const Terminal &terminal, bool forRoot, Abilities abilities) {
  const int header = headerRow(terminal);
  if (header < 0) return "no header row";
  const std::vector<int> separators = separatorsOf(headerLayout(terminal.columns(), forRoot));
  const int fitting = terminal.rows() - header - 1;
  // Others' processes come and go.
  const int processes = forRoot ? static_cast<int>(allProcesses().size()) / 2 : 1;
  const int certain = std::min({mostRows(terminal), fitting, processes});
  // The first record of the list is highlighted: one that is not shown, where all are as idle as
  // it.
  const bool isFirstHighlighted = certain > 0 && terminal.cell(header + 1, 0).reverse;
  for (int i = 0; i < certain; i++) {
    const std::string complaint = complaintAboutRow(terminal, header + 1 + i, separators,
                                                    i == 0 && isFirstHighlighted, abilities);
    if (!complaint.empty()) return complaint;
  }
  const int beyond = header + 1 + std::max(mostRows(terminal), 0);
  if (beyond < terminal.rows() - 1 && startsRow(terminal, beyond)) {
    return at(beyond, 0, "one row too many");
  }
  return "";
}

std::string complaintAboutHighlight(const Terminal &terminal) {
  const int row = headerRow(terminal) + 1;
  if (row < 1) return "no header row";
  const int end = cellsOfRow(terminal, row).back().start;
  if (end == 0) return "no row";
  for (int column = 0; column < end; column++) {
    const Cell cell = terminal.cell(row, column);
    if (!cell.reverse) return at(row, column, "not reverse");
    if (!cell.bold) return at(row, column, "not bold");
  }
  return "";
}

std::string complaintAboutFrame(const Terminal &terminal, bool forRoot, Abilities abilities) {
  std::string complaint = complaintAboutHeader(terminal, forRoot, abilities);
  if (complaint.empty()) complaint = complaintAboutSummary(terminal, forRoot);
  if (complaint.empty()) complaint = complaintAboutRows(terminal, forRoot, abilities);
  return complaint;
}

}  // namespace test
