// The output sink: every line of the display and of the reports goes through here, to the curses
// screen or to standard output. Owns the life of the screen too: opening it, and leaving the
// terminal as it was.
#pragma once

#include <stdint.h>

namespace sondex {

// Colour pairs, set once when the screen is opened.
constexpr int kPairHeader = 1;    // column headers and separators
constexpr int kPairSelected = 2;  // the selected column
constexpr int kPairStatus = 5;    // status bar
constexpr int kPairWarning = 6;   // pressure mark, unsigned code
constexpr int kPairPrompt = 7;    // prompts
constexpr int kPairGrown = 13;    // a value that grew since the previous sample
constexpr int kPairShrunk = 14;   // a value that shrank

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

// The attribute of a colour pair; 0 while colours are off.
uint32_t colorPair(int pair);

// Opens the full screen: modes, colours, colour pairs. Ends the program when the terminal can't do
// it; what cursesMessage then prints says so.
void openScreen();

// Leaves the full screen if it is open, and gives back standard error; errno stays. Safe to call
// more than once and by a thread that doesn't draw: it waits for the one that does, up to two
// seconds.
void closeScreen();

// Follows a terminal whose size has changed. Called before a frame is drawn.
void fitScreen();

// Whether the terminal that the screen was opened on is gone. False when it was opened on something
// else.
bool isTerminalGone();

// Registered with atexit: explains a full screen that could not be started.
void cursesMessage();

}  // namespace sondex
