// What a simulated device holds at most, whether a device file says so or an event makes it so.
#pragma once

#include <cstddef>
#include <cstdint>

namespace host::simulator {

inline constexpr int64_t kLargestPid = 99'999;
inline constexpr size_t kMostProcesses = 20'000;
inline constexpr size_t kMostThreads = 250'000;
inline constexpr size_t kMostDescriptors = 250'000;
inline constexpr size_t kMostRegions = 500'000;

}  // namespace host::simulator
