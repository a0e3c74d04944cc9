// The life of the full screen: opening it, fitting it to its terminal, and leaving the terminal as
// it was; and its colours.
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

// The attribute of a colour pair; 0 while colours are off.
uint32_t colorPair(int pair);

// Whether the full screen was opened. It still counts while it is left for a moment.
bool isScreenOpen();

// Whether what is written goes to the full screen.
bool isOnScreen();

// Opens the full screen: modes, colours, colour pairs. Ends the program when the terminal can't do
// it; what cursesMessage then prints says so.
void openScreen();

// Leaves the full screen if it is open, and gives back standard error; errno stays. Safe to call
// more than once and by a thread that doesn't draw: it waits for the one that does, up to two
// seconds.
void closeScreen();

// Whether characters beyond ASCII reach the terminal as such.
bool takesUTF8();

// Leaves the screen if it is open, for the next refresh to enter it again and to set its modes
// anew.
void suspendScreen();

// Follows a terminal whose size has changed. Standard error is held again where whoever left the
// screen let go of it. Called before a frame is drawn.
void fitScreen();

// Has the next refresh send the whole screen, not only what differs from the one before.
void repaintScreen();

// Whether the terminal that the screen was opened on is gone. False when it was opened on something
// else.
bool isTerminalGone();

// Registered with atexit: explains a full screen that could not be started, and tells what kind of
// terminal was asked for and where its description would have been.
void cursesMessage();

}  // namespace sondex
