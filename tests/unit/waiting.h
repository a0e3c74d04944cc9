// How tests of the live machine wait for what others do: for a condition, never for a time. The
// deadline only says when to give up.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace host::linux_machine {

inline constexpr std::chrono::seconds kPatience(60);

// False when the condition did not hold by the deadline.
inline bool waitUntil(const std::function<bool()> &condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace host::linux_machine
