// A page of text that takes the whole screen until a key leaves it. What stands on it is its
// caller's business. Whoever shows one holds the right to draw, and the list is drawn anew
// afterwards.
#pragma once

namespace sondex {

// In full-screen mode: an empty screen that scrolls when the text is longer, with the cursor in its
// first cell.
void beginPage();

// In full-screen mode: the next key, a byte or a curses key code, without waiting; ERR when there
// is none. The code by which curses tells of a new screen size is passed over: nobody typed it.
int readKey();

// In full-screen mode: reads keys until one leaves the page, until the terminal is gone or until
// the program is to end. Any other key is followed by a pause of a second.
void waitToLeavePage();

// Whether the keyboard's terminal is gone: no key will ever come again.
bool isKeyboardGone();

}  // namespace sondex
