// Where the tables with open addressing begin to look for a key.
#pragma once

#include <cstdint>

namespace sondex {

// A slot of a table of mask + 1 slots, a power of two. Neighbouring keys are spread over the table
// (Fibonacci hashing): the high bits of the product depend on all bits of the key.
template <typename Size>
constexpr Size firstSlot(uint64_t key, Size mask) {
  return static_cast<Size>(key * 0x9E3779B97F4A7C15u >> 32) & mask;
}

}  // namespace sondex
