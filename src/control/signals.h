// What signals do to the interactive display, and the program's end that a signal or a key asked
// for.
#pragma once

namespace sondex {

// Handler of the signals that end the program: in full-screen mode the refresh loop is told to do
// so; in plain mode nothing happens.
void sighandler(int signal);

// Has signals steer the full screen: those that end the program leave it first, the terminal's size
// is followed, and so are stops (Ctrl-Z). Called before it is
// opened.
void handleSignals();

// Has the signals that would end the program leave a note for that instead, where there is no full
// screen but something to be cleared away first. Whoever does so ends the program afterwards.
void noteEndingSignals();

// Ends the program when such a signal came, as it would have.
void endIfSignalled();

// Called by the refresh loop, and between the parts of a report. When a key or a signal asked for
// the end: leaves the screen, says so for Ctrl-C, and exits with status 0 for a key and for Ctrl-C,
// else as the signal has it, or as another thread does that has met with what ends the program.
void endIfInterrupted();

}  // namespace sondex
