// Who draws: curses does not bear two threads, so a thread enters it only while it holds the one
// word kept here. The refresh loop takes the word without waiting and leaves a frame out when it
// doesn't get it; the input thread waits, for a bounded time. The word also guards what only those
// who draw touch: the active filter, and the order of a table that is sorted again.
#pragma once

#include <stdint.h>

namespace sondex {

// Takes the word without waiting. False while another thread draws or waits to draw. A thread that
// has the word already must not ask.
bool startDrawing();

// Takes the word, if need be after waiting at most `milliseconds` (0 or more); whoever draws next
// lets this thread go first. True at once when this thread has the word already. False when the
// time is over.
bool waitToDraw(int32_t milliseconds);

// Whether the calling thread has the word.
bool isDrawing();

// Gives the word back. Only by the thread that has it.
void stopDrawing();

}  // namespace sondex
