// The threads of the interactive display, and its end by a key or a signal.
#pragma once

namespace sondex {

// Starts the network-statistics thread and the input thread.
void startInteractiveThreads();

// The input thread: once the full screen is open, reads standard input byte by byte, applies the
// keys and wakes the refresh loop after each. Returns null when standard input ends, when a key or
// signal asked for the program's end, or when there is to be no full screen.
void *interactiveThread(void *argument);

// Handler of SIGINT: in full-screen mode the refresh loop is told to end the program; in plain mode
// nothing happens.
void sighandler(int signal);

// Handler of SIGWINCH: wakes the refresh loop, which then fits the screen to its new size.
void resizehandler(int signal);

// Called by the refresh loop. When a key or a signal asked for the end: leaves the screen, says so
// for Ctrl-C, and exits with status 0.
void endIfInterrupted();

}  // namespace sondex
