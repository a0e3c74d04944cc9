// How the full screen is lost to others, and taken back: another size of the terminal, a stop by
// Ctrl-Z or by a signal, a while in the background. Only whoever draws may leave or enter the
// screen, so the handlers of signals leave notes.
#pragma once

#include <stdint.h>

namespace sondex {

// What happened; more of it includes less.
enum Loss : int32_t {
  kLostSize = 1,      // another size: what is on the terminal may have moved
  kLostToOthers = 2,  // the program was stopped: others may have written there, and set modes
};

// Notes what happened, and wakes the refresh loop. Safe in a signal handler.
void loseScreen(Loss loss);

// Asks for a stop and wakes the refresh loop. Safe in a signal handler.
void askForStop();

// Whether something happened and the screen was not taken back yet.
bool hasLostScreen();

// Where a stop was asked for: leaves the full screen, stops the program, and returns when it goes
// on. The calling thread is the one that draws.
void stopIfAsked();

// Called by whoever draws, before a frame is drawn: makes the screen the program's again, whoever
// left it or had it meanwhile, in the terminal's present size, and has all of it sent anew where
// that is not known to be there. After a stop that may take long: a program in the background waits
// until it has the terminal again, or is to end.
void takeScreenBack();

// Sends the terminal what is new on the screen; nothing while another program has the terminal. The
// calling thread is the one that draws.
void sendFrame();

// Whether another program has the terminal that the keyboard is on.
bool isInBackground();

}  // namespace sondex
