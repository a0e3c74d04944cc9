// The interactive display: samples, sorts and draws until the program is ended; in plain mode once.
#pragma once

#include <stdint.h>

namespace sondex {

// How long the loop waits between two refreshes, in milliseconds; -1 for a delay below 0: until
// something cuts the wait short.
int32_t refreshWait();

// Opens the screen if there is to be one and runs the loop. Returns 0 after the plain list.
int runDisplay();

}  // namespace sondex
