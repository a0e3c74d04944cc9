// What something costs, whatever else the machine is doing: the basic blocks run in the sources
// that this folder's CMakeLists.txt names, and the bytes that strnlen() looks at.
#pragma once

#include <cstdint>
#include <functional>

namespace cost {

// The steps of `act`, which must not start threads.
uint64_t stepsOf(const std::function<void()> &act);

}  // namespace cost
