// Units of time, as the kernels' interfaces count it.
#pragma once

#include <cstdint>

namespace host {

inline constexpr int64_t kNanosecondsPerMicrosecond = 1'000;
inline constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;
inline constexpr int64_t kMicrosecondsPerSecond = 1'000'000;

}  // namespace host
