#include "terminal/stopping.h"

#include <pthread.h>
#include <signal.h>

#include "state/word.h"
#include "terminal/ending.h"
#include "terminal/screen.h"

namespace sondex {

static SharedInt stopAsked{0};

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
  // Also where nothing stopped it: a program that nobody could let go on is not stopped.
  loseScreen(kLostToOthers);
}

}  // namespace sondex
