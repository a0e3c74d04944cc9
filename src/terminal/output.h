// The output sink: every line of the display and of the reports goes through here, to the curses
// screen or to standard output.
#pragma once

#include <stdint.h>

namespace sondex {

// Writes `text` (not null) at the cursor in full-screen mode, else to standard output. Width 0
// writes it as it is; a width w above 0 cuts it to w - 1 bytes, and puts one blank after a shorter
// text. Returns a negative number on failure.
int output(const char *text, int width);

// The same for a printf format and its arguments, cut to 511 bytes first.
__attribute__((format(printf, 2, 3))) int outputFormatted(int width, const char *format, ...);

// Writes `count` blanks; none when it is not positive.
void outputBlanks(int count);

// Writes the separator between two columns: a line-drawing character on the screen, else "|".
void outputSeparator();

// Writes what joins a child to its parent's line in a tree: a line-drawing character on the screen,
// where the last child's turns the line, else "+-".
void outputBranch(bool isLast);

// Until endLine, what is written on the screen is cut at the end of its line instead of going on
// below.
void confineToLine();

// Goes to the start of the next line, also from one that is filled to its last cell, and ends the
// confinement.
void endLine();

// Attributes for what is written next, as curses attribute bits. Nothing happens without a screen.
void switchOn(uint32_t attributes);
void switchOff(uint32_t attributes);
void setAttributes(uint32_t attributes);

}  // namespace sondex
