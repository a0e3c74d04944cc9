#include "control/signals.h"

#include <signal.h>
#include <stdint.h>
#include <stdio.h>

#include "state/display.h"
#include "terminal/ending.h"
#include "terminal/lost_screen.h"

namespace sondex {

// What ends a program by default, but for faults of its own.
static const int kEndingSignals[] = {
    SIGHUP,  SIGQUIT, SIGABRT, SIGPIPE, SIGALRM,   SIGTERM,
    SIGUSR1, SIGUSR2, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF,
};

// Neither curses nor the exit handlers may be entered from a signal handler: it leaves a note and
// wakes the loop.
void sighandler(int signal) {
  if (load(wantCurses) != 0) askForEnd(signal);
}

static void resizehandler(int) {
  loseScreen(kLostSize);
}

static void stophandler(int) {
  askForStop();
}

static void continuehandler(int) {
  loseScreen(kLostToOthers);
}

// A signal that was ignored when the program started stays so: whoever started it wants that.
static void handleUnlessIgnored(int number, void (*handler)(int)) {
  if (signal(number, handler) == SIG_IGN) signal(number, SIG_IGN);
}

void handleSignals() {
  signal(SIGINT, sighandler);
  for (const int number : kEndingSignals) handleUnlessIgnored(number, sighandler);
  // Those of curses would draw.
  signal(SIGWINCH, resizehandler);
  signal(SIGCONT, continuehandler);
  handleUnlessIgnored(SIGTSTP, stophandler);
}

static void notehandler(int signal) {
  askForEnd(signal);
}

void noteEndingSignals() {
  handleUnlessIgnored(SIGINT, notehandler);
  for (const int number : kEndingSignals) handleUnlessIgnored(number, notehandler);
}

void endIfSignalled() {
  const int32_t reason = reasonToEnd();
  if (reason > 0) endBySignal(reason);
}

void endIfInterrupted() {
  const int32_t reason = reasonToEnd();
  if (reason == 0) return;
  if (reason == SIGINT) {
    endProgram(0, stderr, "Pressing 'Q' would have been just as efficient as CTRL-C, thank you.\n");
  }
  endIfSignalled();
  if (reason == kEndWithLastWords) endWithLastWords();
  endProgram(0, stderr, "%s", "");
}

}  // namespace sondex
