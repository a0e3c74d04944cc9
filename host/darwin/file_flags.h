// The rest of darwin/file_flags.h: what only the side that answers names.
#pragma once

#include "darwin/file_flags.h"

namespace darwin {

constexpr uint32_t DARWIN_O_NONBLOCK = 0x4;
constexpr uint32_t DARWIN_O_APPEND = 0x8;

}  // namespace darwin
