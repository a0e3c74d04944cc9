// The threads of the interactive display.
#pragma once

namespace sondex {

// Starts the network-statistics thread and the input thread.
void startInteractiveThreads();

// The input thread: once the full screen is open, reads standard input byte by byte, applies the
// keys and wakes the refresh loop after each. Returns null when standard input ends, when a key or
// signal asked for the program's end, or when there is to be no full screen.
void *interactiveThread(void *argument);

}  // namespace sondex
