// Device files: a simulated device as TOML (docs/device-file.md says what may stand in it).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

#include "host/simulator/device.h"

namespace host::simulator {

// What is wrong with a device file, and where.
struct Mistake {
  std::string file;
  size_t line = 0;  // 0: the file as a whole
  std::string what;
  std::string expected;  // empty where there is nothing to say

  // "FILE:LINE: what; expected expected", in one line, safe for a terminal.
  std::string text() const;
};

// The device that `text` describes, or the first mistake in it. `file` is what mistakes call it.
std::variant<Device, Mistake> parseDevice(std::string_view text, std::string_view file);

// The same for a file on disk; one that can't be read is a mistake too.
std::variant<Device, Mistake> readDeviceFile(const std::string &path);

}  // namespace host::simulator
