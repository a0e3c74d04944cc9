// Devices whose processes have network traffic, with kernels of all families.
#pragma once

#include <string>

namespace test {

// Processes 50, "talker", with 20,487 bytes received and 309 sent by the kernel's protocols, and
// 51, "player", with 4,096 and 105 by its own.
inline std::string deviceWithTraffic(const std::string &kernel) {
  return R"(
[clock]
mode = "stepped"
start = 2024-03-05T14:07:09Z
zone = "UTC"
[kernel]
version = "root:xnu-)" +
         kernel + R"(~1/RELEASE_ARM64"
[[process]]
pid = 1
name = "launchd"
[[process]]
pid = 50
name = "talker"
descriptors = [
  { type = "tcp", remote = "198.51.100.20:443", received = "20K", sent = 300 },
  { type = "udp", received = 7, sent = 9 },
]
[[process]]
pid = 51
name = "player"
descriptors = [
  { type = "tcp", stack = "userland", remote = "198.51.100.20:443", received = 4000, sent = 50 },
  { type = "udp", stack = "userland", remote = "198.51.100.20:80", received = 90, sent = 50 },
  { type = "udp", stack = "quic", remote = "198.51.100.20:443", received = 6, sent = 5 },
]
)";
}

// Before 3789, applications have no protocols of their own.
inline constexpr const char *kOldKernels[] = {"2782.70.5", "3248.60.11"};
inline constexpr const char *kKernels[] = {"4903.272.1", "6153.142.1", "8020.142.2", "10002.122.1",
                                           "11417.122.4"};

}  // namespace test
