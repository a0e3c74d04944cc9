// Notes that other threads and signal handlers leave for the refresh loop: to wake up, and to end
// the program. Every end of the full screen goes through the loop's thread: exit handlers must not
// run beside a refresh.
#pragma once

#include <stdint.h>

namespace sondex {

// What else than a signal's number may ask for the end.
constexpr int32_t kEndByKey = -1;
constexpr int32_t kEndByExit = -2;

// Wakes the loop from its wait. Never blocks; safe in a signal handler.
void wakeLoop();

// Asks for the end, for the reason given (a signal's number or one of the above, not 0), and wakes
// the loop. The first to ask counts. Safe in a signal handler.
void askForEnd(int32_t reason);

// Why the program is to end; 0 while it isn't.
int32_t reasonToEnd();

// For a screen that waits: sleeps for that long (0 or more). False, at once or at the latest a
// tenth of a second afterwards, when the program is to end and the screen has to be left.
bool pauseUnlessEnding(int32_t milliseconds);

}  // namespace sondex
