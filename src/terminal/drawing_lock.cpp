#include "terminal/drawing_lock.h"

#include <pthread.h>
#include <time.h>

#include "state/word.h"

namespace sondex {

constexpr long kNanosecondsPerMillisecond = 1'000'000;

// The thread that has the lock; no thread's identity is zero.
static std::atomic<pthread_t> owner{};
static SharedInt waiting{0};  // threads in lockDrawing

// What one owner left on the screen and in its buffers is the next one's to see.
static bool take() {
  pthread_t nobody = {};
  return owner.compare_exchange_strong(nobody, pthread_self(), std::memory_order_acq_rel,
                                       std::memory_order_relaxed);
}

bool tryLockDrawing() {
  return load(waiting) == 0 && take();
}

static void napMillisecond() {
  const timespec nap = {0, kNanosecondsPerMillisecond};
  nanosleep(&nap, nullptr);
}

bool lockDrawing(int32_t milliseconds) {
  if (holdsDrawingLock() || take()) return true;
  waiting.fetch_add(1, std::memory_order_relaxed);
  bool taken = false;
  for (int32_t waited = 0; waited < milliseconds && !taken; waited++) {
    napMillisecond();
    taken = take();
  }
  waiting.fetch_sub(1, std::memory_order_relaxed);
  return taken;
}

bool holdsDrawingLock() {
  return owner.load(std::memory_order_relaxed) == pthread_self();
}

void unlockDrawing() {
  owner.store(pthread_t{}, std::memory_order_release);
}

}  // namespace sondex
