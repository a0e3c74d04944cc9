#include "ui/who_draws.h"

#include <pthread.h>
#include <time.h>

#include "state/word.h"

namespace sondex {

constexpr long kNanosecondsPerMillisecond = 1'000'000;

// The thread that draws; no thread's identity is zero.
static std::atomic<pthread_t> drawer{};
static SharedInt waiting{0};  // threads in waitToDraw

// What one drawer left on the screen and in its buffers is the next one's to see.
static bool takeWord() {
  pthread_t nobody = {};
  return drawer.compare_exchange_strong(nobody, pthread_self(), std::memory_order_acq_rel,
                                        std::memory_order_relaxed);
}

bool startDrawing() {
  return load(waiting) == 0 && takeWord();
}

static void napMillisecond() {
  const timespec nap = {0, kNanosecondsPerMillisecond};
  nanosleep(&nap, nullptr);
}

bool waitToDraw(int32_t milliseconds) {
  if (isDrawing() || takeWord()) return true;
  waiting.fetch_add(1, std::memory_order_relaxed);
  bool taken = false;
  for (int32_t waited = 0; waited < milliseconds && !taken; waited++) {
    napMillisecond();
    taken = takeWord();
  }
  waiting.fetch_sub(1, std::memory_order_relaxed);
  return taken;
}

bool isDrawing() {
  return drawer.load(std::memory_order_relaxed) == pthread_self();
}

void stopDrawing() {
  drawer.store(pthread_t{}, std::memory_order_release);
}

}  // namespace sondex
