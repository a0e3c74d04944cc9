// What keys do to the display's state, and the filter that they set. All of it belongs to the input
// thread; the drawing thread asks for the filter only.
#pragma once

#include <stdint.h>

#include "proc/process_table.h"

namespace sondex {

// Applies one key: a byte (0 to 255) or a curses key code. Returns when what the key opened has
// been left. A key that needs the screen or a process is dropped, with a message in the status bar,
// when the screen isn't to be had for two seconds. One that acts on the highlighted process waits
// for as long for a frame that shows what the keys before it did.
void handleKey(int key);

// Called by the thread that draws, before it looks at what keys change: the frame shows it.
void noteKeysAreSeen();

// Asks for the refresh delay and sets g_Delay. What is no number leaves it as it is; numbers beyond
// its range saturate. The calling thread is the one that draws.
void toggleUpdateDelay();

// Releases the present filter; keeps a copy of `text` in its place, or none when `text` is null or
// memory is short. The calling thread is the one that draws.
void applyFilter(const char *text);

// The text of the active filter, null when there is none. Holds until the calling thread, which is
// the one that draws, stops drawing.
const char *getFilter();

// The index of the next record of `table` that the last frame showed, seen from `from` in
// `direction` (1 or -1); `from` itself when there is none.
int32_t findNextVisibleProcess(TableView table, int32_t from, int32_t direction);

}  // namespace sondex
