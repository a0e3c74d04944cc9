#include "ui/input_thread.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "state/display.h"
#include "state/system.h"
#include "ui/output.h"

namespace sondex {

// The signal that asked for the end, 0 while none did.
static SharedInt endingSignal{0};
static_assert(SharedInt::is_always_lock_free, "written by a signal handler");

void startInteractiveThreads() {}

// The pipe never blocks: when it is full of wake-ups, one more is not missed.
static void wakeLoop() {
  const int saved = errno;
  [[maybe_unused]] const ssize_t written = write(g_pipe[1], "x", 1);
  errno = saved;
}

// Neither curses nor the exit handlers may be entered from a signal handler: it leaves a note and
// wakes the loop.
void sighandler(int signal) {
  if (load(wantCurses) == 0) return;
  store(endingSignal, signal);
  wakeLoop();
}

void resizehandler(int) {
  wakeLoop();
}

void endIfInterrupted() {
  const int32_t ending = load(endingSignal);
  if (ending == 0) return;
  closeScreen();
  if (ending == SIGINT) {
    fputs("Pressing 'Q' would have been just as efficient as CTRL-C, thank you.\n", stderr);
  }
  exit(0);
}

}  // namespace sondex
