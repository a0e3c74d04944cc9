// A screen as text that can be kept and reviewed: its rows as they stand, and what they look like
// in a second picture of the same shape.
#pragma once

#include <string>
#include <vector>

#include "harness/kept.h"
#include "harness/terminal.h"

namespace test {

struct Screen {
  int columns = 0;
  int rows = 0;
  std::vector<Cell> cells;  // row by row

  const Cell &at(int row, int column) const {
    return cells[static_cast<size_t>(row) * static_cast<size_t>(columns) +
                 static_cast<size_t>(column)];
  }
};

Screen screenOf(const Terminal &terminal);

// First all rows, between bars, so that blanks at their ends are seen. Then what the letters of the
// second picture stand for, in the order in which they come up, and that picture: rows that look
// the same one after another are drawn once, plain ones not at all. Plain is the terminal's own
// colour, or white on black, which is how curses writes it, without any attribute. Rows count from
// 0.
std::string asText(const Screen &screen);

// Takes in what the program writes until it has drawn a whole frame and waits for the next one, and
// returns "". Otherwise returns what is wrong, and the screen.
std::string awaitWholeFrame(Terminal &terminal, Duration patience = kPatience);

// Waits for a whole frame. "" when it is the kept one.
std::string complaintAboutScreen(Terminal &terminal, const KeptFile &kept);

}  // namespace test
