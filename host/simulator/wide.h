// Integers with room for the product of two 64-bit numbers, and back.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace host::simulator {

__extension__ using Wide = __int128;

// The value, or the end of the range of T that it lies beyond.
template <typename T>
constexpr T saturate(Wide value) {
  using Limits = std::numeric_limits<T>;
  return static_cast<T>(std::clamp<Wide>(value, Limits::min(), Limits::max()));
}

}  // namespace host::simulator
