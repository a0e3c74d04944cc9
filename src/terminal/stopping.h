// How the full screen is left while the program is stopped by its terminal (Ctrl-Z): only whoever
// draws may leave it, so the signal's handler leaves a note.
#pragma once

namespace sondex {

// Asks for a stop and wakes the refresh loop. Safe in a signal handler.
void askForStop();

// Where a stop was asked for: leaves the full screen, stops the program, and returns when it goes
// on; the screen comes back with the next frame. The calling thread is the one that draws.
void stopIfAsked();

}  // namespace sondex
