// How the program ends while its screen may be open. Threads and signal handlers leave a note for
// the refresh loop, which ends the program: exit handlers must not run beside a refresh.
#pragma once

#include <stdint.h>
#include <stdio.h>

namespace sondex {

// What else than a signal's number may ask for the end.
constexpr int32_t kEndByKey = -1;
constexpr int32_t kEndByExit = -2;
constexpr int32_t kEndWithLastWords = -3;  // endProgram() was called on another thread

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

// Ends the program as signal `number` would by default, once the full screen is left. Never in a
// signal handler.
[[noreturn]] void endBySignal(int number);

// From now on the calling thread alone ends the program, for all: it looks at reasonToEnd().
void endOnThisThread();

// For that thread, where the reason is kEndWithLastWords: ends the program as the other thread
// would have.
[[noreturn]] void endWithLastWords();

// Ends the program: leaves the full screen, writes a printf format with its arguments to `stream`,
// and exits with `status`. The drawing lock is kept, so that no other thread opens the screen
// again; when another thread does not give it up in time, the exit handlers are passed over. On
// another thread than the one that ends the program, where there is one: leaves it a note, gives up
// the drawing lock, and waits for the end. Never in a signal handler.
[[noreturn]] __attribute__((format(printf, 3, 4))) void endProgram(int status, FILE *stream,
                                                                   const char *format, ...);

}  // namespace sondex
