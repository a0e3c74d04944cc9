// A device file of the repository with a clock that steps, so that two runs on the device show the
// same. Most of the files have their clock on the wall, for people.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "harness/child.h"

namespace test {

// The text of a device file, its line `mode = "wall"` made `mode = "stepped"` if it does not say so
// already. Throws std::runtime_error unless there is exactly one line of the one or the other kind.
std::string withSteppedClock(std::string_view text);

// The names of the device files of the repository, in order.
std::vector<std::string> shippedDevices();

// devices/NAME.toml with a stepped clock. Throws std::runtime_error.
std::string steppedDeviceText(const std::string &name);

// A copy of devices/NAME.toml with a stepped clock, in a folder of its own for as long as this
// lives.
class SteppedDevice {
 public:
  // In the background the device tells of traffic and of memory pressure: how soon depends on how
  // fast the machine is. Throws std::runtime_error.
  enum class Background { told, silent };
  explicit SteppedDevice(const std::string &name, Background background = Background::told);
  SteppedDevice(const SteppedDevice &) = delete;
  SteppedDevice &operator=(const SteppedDevice &) = delete;
  ~SteppedDevice();

  // Makes a program run on the device.
  Environment environment() const { return {{"SONDEX_DEVICE", file_.string()}}; }

 private:
  std::filesystem::path folder_;
  std::filesystem::path file_;
};

}  // namespace test
