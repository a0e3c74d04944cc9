#include "harness/wait.h"

#include <thread>

namespace test {

bool waitUntil(const std::function<bool()> &condition, Duration patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(Duration{5});
  }
  return true;
}

}  // namespace test
