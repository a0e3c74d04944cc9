#include "terminal/ending.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "state/system.h"
#include "state/word.h"
#include "terminal/drawing_lock.h"
#include "terminal/screen.h"

namespace sondex {

constexpr int32_t kLongestNap = 100;  // milliseconds
constexpr int32_t kBeforeExit = 100;  // milliseconds, for a thread that just leaves the screen
constexpr int kSignalStatus = 128;    // as shells tell a signal, were it not to end the program
constexpr long kNanosecondsPerMillisecond = 1'000'000;

static SharedInt endReason{0};
static_assert(SharedInt::is_always_lock_free, "written by a signal handler");

// The thread that ends the program for all; no thread's identity is zero.
static std::atomic<pthread_t> endingThread{};

// What another thread wants the program to end with: written once, before the reason is.
struct LastWords {
  int status;
  FILE *stream;
  char text[256];
};
static LastWords lastWords;
static std::atomic<bool> hasLastWords{false};

void wakeLoop() {
  if (g_pipe[1] == 0) return;
  const int saved = errno;
  // The pipe never blocks: when it is full of wake-ups, one more is not missed.
  [[maybe_unused]] const ssize_t written = write(g_pipe[1], "x", 1);
  errno = saved;
}

void askForEnd(int32_t reason) {
  int32_t none = 0;
  endReason.compare_exchange_strong(none, reason, std::memory_order_release,
                                    std::memory_order_relaxed);
  wakeLoop();
}

int32_t reasonToEnd() {
  return endReason.load(std::memory_order_acquire);
}

bool pauseUnlessEnding(int32_t milliseconds) {
  while (milliseconds > 0 && reasonToEnd() == 0) {
    const int32_t nap = std::min(milliseconds, kLongestNap);
    const timespec time = {0, nap * kNanosecondsPerMillisecond};
    nanosleep(&time, nullptr);
    milliseconds -= nap;
  }
  return reasonToEnd() == 0;
}

void endBySignal(int number) {
  closeScreen();
  lockDrawing(kBeforeExit);
  fflush(nullptr);
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, number);
  signal(number, SIG_DFL);
  pthread_sigmask(SIG_UNBLOCK, &ends, nullptr);
  pthread_kill(pthread_self(), number);
  _exit(kSignalStatus + number);
}

void endOnThisThread() {
  endingThread.store(pthread_self(), std::memory_order_relaxed);
}

static bool endsElsewhere() {
  const pthread_t thread = endingThread.load(std::memory_order_relaxed);
  return thread != pthread_t{} && thread != pthread_self();
}

[[noreturn]] static void leaveEndToOthers(int status, FILE *stream, const char *format,
                                          va_list arguments) {
  if (!hasLastWords.exchange(true)) {
    lastWords.status = status;
    lastWords.stream = stream;
    vsnprintf(lastWords.text, sizeof lastWords.text, format, arguments);
    askForEnd(kEndWithLastWords);
  }
  if (holdsDrawingLock()) unlockDrawing();
  for (;;) sleep(1);
}

void endWithLastWords() {
  endProgram(lastWords.status, lastWords.stream, "%s", lastWords.text);
}

void endProgram(int status, FILE *stream, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  if (endsElsewhere()) leaveEndToOthers(status, stream, format, arguments);
  closeScreen();
  vfprintf(stream, format, arguments);
  va_end(arguments);
  if (lockDrawing(kBeforeExit)) exit(status);
  fflush(nullptr);
  _exit(status);
}

}  // namespace sondex
