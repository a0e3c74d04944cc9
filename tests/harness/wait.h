// How tests wait: for a condition, never for a time. The deadline only says when to give up, and is
// long enough for a sanitizer build on a busy machine.
#pragma once

#include <chrono>
#include <functional>

namespace test {

using Clock = std::chrono::steady_clock;
using Duration = std::chrono::milliseconds;

inline constexpr Duration kPatience{90'000};

// Asks `condition` every few milliseconds until it holds. False when it did not by the deadline.
bool waitUntil(const std::function<bool()> &condition, Duration patience = kPatience);

}  // namespace test
