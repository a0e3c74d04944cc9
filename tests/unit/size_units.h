// The units in which the program shows sizes.
#pragma once

#include <cstdint>

namespace sondex {

inline constexpr uint64_t kKilo = 1024;
inline constexpr uint64_t kMega = 1024 * kKilo;
inline constexpr uint64_t kGiga = 1024 * kMega;

}  // namespace sondex
