// The help screen.
#pragma once

namespace sondex {

// Lists the keys: mode 1 those of the process list, mode 2 those of the details screen, any other
// mode none. In full-screen mode it clears the screen and reads keys until one leaves it, or until
// the terminal is gone or the program is to end: the caller holds the right to draw, and draws anew
// afterwards. In plain mode it returns at once.
void showHelp(int mode);

}  // namespace sondex
