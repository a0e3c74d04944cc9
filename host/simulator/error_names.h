// The errors with which calls of a simulated device fail, by their names.
#pragma once

#include <cstdint>

#include "host/simulator/toml_reader.h"

namespace host::simulator {

// DARWIN_E*.
int32_t readError(const Field &field);

}  // namespace host::simulator
