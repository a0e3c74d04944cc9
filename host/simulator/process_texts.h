// The patterns in the texts of a process, `{name}`, `{pid}` and `{index}`, and what they stand for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/simulator/device.h"

namespace host::simulator {

struct PatternValues {
  std::optional<std::string_view> name;  // what has no value is left as it is
  std::optional<int32_t> pid;
  std::optional<size_t> index;
};

bool hasPattern(std::string_view text);
std::string filledIn(std::string_view text, const PatternValues &values);

// Puts the PID of a process into its texts: of one that an event starts it is known only then.
void fillInPid(Process &process);

}  // namespace host::simulator
