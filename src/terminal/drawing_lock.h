// The lock on drawing: curses does not bear two threads, so a thread enters it only while it holds
// this lock, which knows its owner and can be waited for with a time limit. The refresh loop only
// tries it, and leaves a frame out when it doesn't get it; the input thread waits, for a bounded
// time. The lock also guards what only those who draw touch: the active filter, and the order of a
// table that is sorted again.
#pragma once

#include <stdint.h>

namespace sondex {

// Takes the lock without waiting. False while another thread has it or waits for it. A thread that
// has it already must not ask.
bool tryLockDrawing();

// Takes the lock, if need be after waiting at most `milliseconds` (0 or more); a thread that waits
// goes before those that only try. True at once when this thread has it already, which does not
// count twice. False when the time is over.
bool lockDrawing(int32_t milliseconds);

// Whether the calling thread has the lock.
bool holdsDrawingLock();

// Gives the lock back. Only by the thread that has it.
void unlockDrawing();

}  // namespace sondex
