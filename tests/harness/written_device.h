// A device whose file a test writes itself.
#pragma once

#include <filesystem>
#include <string>

#include "harness/child.h"

namespace test {

// The clock that makes two runs on a device show the same, and no thread that waits says anything.
inline constexpr char kSteppedClock[] = R"(
background = false
gestalt = { marketing-name = "iPhone" }
[clock]
mode = "stepped"
start = 2024-03-05T14:07:09Z
zone = "UTC"
)";

// There for as long as this lives.
class WrittenDevice {
 public:
  // Throws std::runtime_error when it can't be written.
  explicit WrittenDevice(const std::string &text);
  WrittenDevice(const WrittenDevice &) = delete;
  WrittenDevice &operator=(const WrittenDevice &) = delete;
  ~WrittenDevice();

  // Makes a program run on the device.
  Environment environment(Environment more = {}) const;

 private:
  std::filesystem::path file_;
};

}  // namespace test
