#include "control/input_thread.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "control/keys.h"
#include "nstat/client.h"
#include "state/display.h"
#include "terminal/ending.h"
#include "terminal/key_codes.h"
#include "terminal/lost_screen.h"

namespace sondex {

constexpr int32_t kBeforeNextLook = 100;  // milliseconds, while there is nothing to read yet

// Of the letters A to D that end the sequence of a cursor key.
static const int kCursorKeys[] = {kUp, kDown, kRight, kLeft};

// What was seen of a cursor key's sequence.
struct KeyState {
  bool escape;
  bool bracket;
};

// Takes one byte. True when the refresh loop is to be woken after it.
static bool takeByte(KeyState *state, uint8_t byte) {
  if (byte >= 'A' && byte <= 'D') {
    // Kept: these letters never count as letters.
    if (!state->bracket) return false;
    state->bracket = false;
    handleKey(kCursorKeys[byte - 'A']);
  } else if (byte == kEscape) {
    state->escape = true;
  } else if (byte == 'O' || byte == '[') {
    if (state->escape) {
      state->bracket = true;
      state->escape = false;
    }
  } else {
    handleKey(byte == kCarriageReturn ? kEnter : byte);
  }
  return !state->escape && !state->bracket;
}

// In the background the terminal may not be read, but the program may come back from there.
static bool mayReadLater(int error) {
  return error == EINTR || (error == EIO && isInBackground() && pauseUnlessEnding(kBeforeNextLook));
}

static bool readByte(uint8_t *byte) {
  ssize_t length = 0;
  do {
    length = read(STDIN_FILENO, byte, 1);
  } while (length < 0 && mayReadLater(errno));
  return length == 1;
}

// Keys steer the full screen only. Until it is open they stay where they are: a report leaves what
// is typed meanwhile to whoever reads the terminal next.
static bool waitForScreen() {
  while (load(cursesFailed) != 0) {
    if (load(wantCurses) == 0 || !pauseUnlessEnding(kBeforeNextLook)) return false;
  }
  return true;
}

void *interactiveThread(void *) {
  if (!waitForScreen()) return nullptr;
  KeyState state = {};
  uint8_t byte = 0;
  while (reasonToEnd() == 0 && readByte(&byte)) {
    if (takeByte(&state, byte)) wakeLoop();
  }
  return nullptr;
}

static void startThread(void *(*routine)(void *), const char *name) {
  pthread_t thread;
  if (pthread_create(&thread, nullptr, routine, nullptr) == 0) {
    pthread_detach(thread);
  } else {
    fprintf(stderr, "%s: no thread\n", name);
  }
}

void startInteractiveThreads() {
  // Signals are the main thread's: none is to end a wait for a key, or to run a handler in the
  // middle of one. But a core that becomes larger than a file may be is dumped for a key, and some
  // kernels send that signal to the thread that writes.
  sigset_t others;
  sigset_t before;
  sigfillset(&others);
  sigdelset(&others, SIGXFSZ);
  pthread_sigmask(SIG_SETMASK, &others, &before);
  expectCounts();
  startThread(doNStat, "network statistics");
  startThread(interactiveThread, "input");
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace sondex
