#include "control/signals.h"

#include <signal.h>
#include <stdint.h>
#include <stdio.h>

#include "state/display.h"
#include "terminal/ending.h"

namespace sondex {

// Neither curses nor the exit handlers may be entered from a signal handler: it leaves a note and
// wakes the loop.
void sighandler(int signal) {
  if (load(wantCurses) != 0) askForEnd(signal);
}

void resizehandler(int) {
  wakeLoop();
}

void endIfInterrupted() {
  const int32_t reason = reasonToEnd();
  if (reason == 0) return;
  endProgram(0, stderr, "%s",
             reason == SIGINT
                 ? "Pressing 'Q' would have been just as efficient as CTRL-C, thank you.\n"
                 : "");
}

}  // namespace sondex
