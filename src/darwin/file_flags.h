// Flags of an open file as fi_openflags carries them: the two access bits (not the open() modes, of
// which they are one more) with the kernel's own open() bits above them.
#pragma once

#include <cstdint>

namespace darwin {

constexpr uint32_t DARWIN_FREAD = 0x1;
constexpr uint32_t DARWIN_FWRITE = 0x2;
constexpr uint32_t DARWIN_O_NONBLOCK = 0x4;
constexpr uint32_t DARWIN_O_APPEND = 0x8;

}  // namespace darwin
