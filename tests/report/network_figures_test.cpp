// What a report of one process says of its traffic.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "harness/run.h"
#include "harness/traffic_device.h"
#include "harness/written_device.h"

namespace test {
namespace {

// Whether the report says so. It waits for the service for a quarter of a second, in which a busy
// machine may do nothing for it.
bool says(const std::string &target, const WrittenDevice &device, const std::string &text) {
  for (int i = 0; i < 20; i++) {
    const Outcome outcome = runSondex({target}, device.environment());
    if (outcome.output.find(text) != std::string::npos) return true;
  }
  return false;
}

constexpr char kTalker[] = "\nNetwork I/O: RX 20 K\tTX 309 bytes\t\n#Threads:";
constexpr char kPlayer[] = "\nNetwork I/O: RX 4096 bytes\tTX 105 bytes\t\n#Threads:";

TEST(NetworkFigures, StandInReportsOnEverySystem) {
  for (const char *kernel : kKernels) {
    const WrittenDevice device(deviceWithTraffic(kernel));
    EXPECT_TRUE(says("talker", device, kTalker)) << kernel;
    EXPECT_TRUE(says("all", device, kTalker)) << kernel;
    // Of 4903 and before, QUIC is nobody's.
    if (kernel != std::string("4903.272.1")) {
      EXPECT_TRUE(says("51", device, kPlayer)) << kernel;
    }
  }
  for (const char *kernel : kOldKernels) {
    const WrittenDevice device(deviceWithTraffic(kernel));
    EXPECT_TRUE(says("50", device, kTalker)) << kernel;
  }
}

TEST(NetworkFigures, OfAnOldKernelWithMoreSourcesThanThereIsRoomForEndTheReport) {
  const WrittenDevice device(R"(
gestalt = { marketing-name = "iPhone" }
[clock]
mode = "stepped"
start = 2024-03-05T14:07:09Z
zone = "UTC"
[kernel]
version = "root:xnu-2782.70.5~3/RELEASE_ARM64_T7001"
[[process]]
pid = 1
name = "launchd"
[[process]]
pid = 50
name = "talker"
descriptors = [{ type = "tcp", remote = "198.51.100.20:443", copies = 1025 }]
)");
  const Outcome outcome = runSondex({"50"}, device.environment());
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(withoutSampling(outcome.error),
            "Too many sources/connections! This is not a bug, but something that will be handled "
            "soon!\n");
}

}  // namespace
}  // namespace test
