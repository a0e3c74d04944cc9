// What signals do to the interactive display, and the program's end that a signal or a key asked
// for.
#pragma once

namespace sondex {

// Handler of SIGINT: in full-screen mode the refresh loop is told to end the program; in plain mode
// nothing happens.
void sighandler(int signal);

// Handler of SIGWINCH: wakes the refresh loop, which then fits the screen to its new size.
void resizehandler(int signal);

// Called by the refresh loop. When a key or a signal asked for the end: leaves the screen, says so
// for Ctrl-C, and exits with status 0.
void endIfInterrupted();

}  // namespace sondex
