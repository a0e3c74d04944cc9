// The output sink: every line of the display and of the reports goes through here, to the curses
// screen or to standard output.
#pragma once

#include <stdint.h>

namespace sondex {

// As the first line of a text that is shown from its end: as much of it as the screen has room for.
constexpr int64_t kEndOfText = -1;

// In full-screen mode: empties the screen for lines that are cut at its edge. When they are more
// than it has room for, the first ones are not shown. The last row stays free; a screen of one row
// has no such row.
void beginList();

// The same for text whose lines go on below, shown from its line `firstLine` (0 or more) or
// kEndOfText on.
void beginText(int64_t firstLine);

// How many lines were written since the text was begun, those that go on below counted as often as
// they do.
int64_t linesWritten();

// The rows that the screen has for a list or a text; at least 1.
int32_t textRows();

// In full-screen mode: has what is written next stand in any row, from this cell on, and cut at the
// edge.
void moveTo(int32_t row, int32_t column);

// Writes `text` (not null) in full-screen mode where the text before it ended, else to standard
// output. Width 0 writes it as it is; a width w above 0 cuts it to w - 1 cells, and puts one blank
// after a shorter text. Returns a negative number on failure.
int output(const char *text, int width);

// The same for a printf format and its arguments, cut to 511 bytes first.
__attribute__((format(printf, 2, 3))) int outputFormatted(int width, const char *format, ...);

// Hands over what standard output holds. Where that, or something before it, could not be written,
// says so on standard error and exits with status 1.
void flushOutput();

// Writes `count` blanks; none when it is not positive.
void outputBlanks(int count);

// Writes the separator between two columns: a line-drawing character on the screen, else "|".
void outputSeparator();

// Writes what joins a child to its parent's line in a tree: a line-drawing character on the screen,
// where the last child's turns the line, else "+-".
void outputBranch(bool isLast);

// Attributes for what is written next, as curses attribute bits. Nothing happens without a screen.
void switchOn(uint32_t attributes);
void switchOff(uint32_t attributes);
void setAttributes(uint32_t attributes);

}  // namespace sondex
