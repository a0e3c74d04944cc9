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

// Neither curses nor the exit handlers may be entered from a signal handler: it leaves a note and
// wakes the loop.
void sighandler(int signal) {
  if (load(wantCurses) == 0) return;
  const int saved = errno;
  store(endingSignal, signal);
  [[maybe_unused]] const ssize_t written = write(g_pipe[1], "x", 1);
  errno = saved;
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
