// How tests of the live machine wait for what others do.
#pragma once

#include <chrono>
#include <functional>

#include "tests/harness/wait.h"

namespace host::linux_machine {

inline constexpr std::chrono::seconds kPatience(60);

inline bool waitUntil(const std::function<bool()> &condition) {
  return test::waitUntil(condition, kPatience);
}

}  // namespace host::linux_machine
