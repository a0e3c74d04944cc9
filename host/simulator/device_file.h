// Device files: a simulated device as TOML (docs/device-file.md says what may stand in it).
#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "host/simulator/device.h"
#include "host/simulator/mistake.h"

namespace host::simulator {

// The device that `text` describes, or the first mistake in it. `file` is what mistakes call it.
std::variant<Device, Mistake> parseDevice(std::string_view text, std::string_view file);

// The same for a file on disk; one that can't be read is a mistake too.
std::variant<Device, Mistake> readDeviceFile(const std::string &path);

}  // namespace host::simulator
