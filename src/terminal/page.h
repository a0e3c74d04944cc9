// A page of text that takes the whole screen until a key leaves it, and that can be scrolled where
// it is longer. What stands on it is its caller's business. Whoever shows one holds the right to
// draw, and the list is drawn anew afterwards.
#pragma once

#include <stdint.h>

namespace sondex {

struct Page {
  int64_t first;     // the first line that is shown, or kEndOfText
  int64_t lines;     // of the whole page, as it was drawn last
  bool showsStatus;  // whether the status bar covers the last row while it has a passing text
};

// A page that is shown from its end, as a text that is too long leaves it.
Page openPage(bool showsStatus);

// In full-screen mode: begins the page anew on an empty screen of the terminal's present size.
void beginPage(const Page *page);

// In full-screen mode, once the text is written: says in the last row whether there is more above
// or below, and sends all to the terminal. False when the page has become shorter than what was to
// be shown of it: it has to be drawn again.
bool endPage(Page *page);

// Applies a key that moves the page by lines (Up, Down), by pages (Space, b, Page Up, Page Down),
// or to one of its ends (Home, End), or that has it sent anew (Ctrl-L). False for all other keys.
bool movePage(Page *page, int key);

// In full-screen mode: the next key, a byte or a curses key code, without waiting; ERR when there
// is none. The code by which curses tells of a new screen size is passed over: nobody typed it.
int readKey();

// Waits until there is a key to be read, at most for a second. Earlier, at the latest
// after a tenth of a second, when the terminal's size has changed, or the program was stopped and
// goes on. False when it is to end: the screen has to be left.
bool waitForKey();

// In full-screen mode: shows what `write(argument)` writes until Enter or Q is typed, the terminal
// is gone or the program is to end. Otherwise writes it once.
void showPage(void (*write)(int32_t), int32_t argument);

// Whether the keyboard's terminal is gone: no key will ever come again.
bool isKeyboardGone();

}  // namespace sondex
