#include "terminal/lost_screen.h"

#include <curses.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include "state/word.h"
#include "terminal/ending.h"
#include "terminal/held_stderr.h"
#include "terminal/screen.h"

namespace sondex {

constexpr int32_t kBetweenLooks = 100;  // milliseconds, in the background

static SharedInt lost{0};
static SharedInt stopAsked{0};
static_assert(SharedInt::is_always_lock_free, "written by signal handlers");

void loseScreen(Loss loss) {
  int32_t known = load(lost);
  while (known < loss && !lost.compare_exchange_weak(known, loss, std::memory_order_relaxed)) {
  }
  wakeLoop();
}

bool hasLostScreen() {
  return load(lost) != 0;
}

void askForStop() {
  store(stopAsked, 1);
  wakeLoop();
}

// Returns once the program goes on. Sent to the calling thread, which may block signals: nothing
// else of it runs in between.
static void stop() {
  sigset_t stops;
  sigset_t before;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTSTP);
  void (*handler)(int) = signal(SIGTSTP, SIG_DFL);
  pthread_sigmask(SIG_UNBLOCK, &stops, &before);
  pthread_kill(pthread_self(), SIGTSTP);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  signal(SIGTSTP, handler);
}

void stopIfAsked() {
  if (stopAsked.exchange(0) == 0) return;
  closeScreen();
  stop();
  holdStandardError();
  // Also where nothing stopped it: a program that nobody could let go on is not stopped.
  loseScreen(kLostToOthers);
}

bool isInBackground() {
  const pid_t foreground = tcgetpgrp(STDIN_FILENO);
  return foreground >= 0 && foreground != getpgrp();
}

void sendFrame() {
  if (!isInBackground()) wrefresh(stdscr);
}

void takeScreenBack() {
  const int32_t loss = lost.exchange(0, std::memory_order_relaxed);
  if (loss == kLostToOthers) {
    while (isInBackground() && pauseUnlessEnding(kBetweenLooks)) continue;
    suspendScreen();
  }
  if (loss != 0) repaintScreen();
  fitScreen();
}

}  // namespace sondex
