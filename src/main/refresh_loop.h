// The interactive display: samples, sorts and draws until the program is ended; in plain mode once.
#pragma once

namespace sondex {

// Opens the screen if there is to be one and runs the loop. Returns 0 after the plain list.
int runDisplay();

}  // namespace sondex
