// Chunked data: how the kernel hands out records of many kinds in one buffer. Items follow one
// another, each a header and a payload; containers nest between a begin and an end item.
#pragma once

#include <cstdint>

#include "darwin/layout.h"

namespace darwin {

// The next item starts `size` bytes behind the header. Kernels round the size up to 16 bytes, with
// zeroes. The flags of an array are its element type (high half) and element count (low half).
struct kcdata_item {
  uint32_t type;
  uint32_t size;
  uint64_t flags;
};
DARWIN_LAYOUT(kcdata_item, 16, 8, (type, 0), (size, 4), (flags, 8));

// An array of old kernels; since then the low 4 bits of 0x20 to 0x2F say how many bytes of filler
// stand behind the last element.
constexpr uint32_t KCDATA_TYPE_ARRAY = 0x11;
constexpr uint32_t KCDATA_TYPE_ARRAY_PAD0 = 0x20;
constexpr uint32_t KCDATA_TYPE_ARRAY_PADf = 0x2F;

// The payload starts with the container's type, a 32-bit word; the end item has none.
constexpr uint32_t KCDATA_TYPE_CONTAINER_BEGIN = 0x13;
constexpr uint32_t KCDATA_TYPE_CONTAINER_END = 0x14;

constexpr uint32_t KCDATA_TYPE_LIBRARY_LOADINFO64 = 0x31;

// The last item of every buffer, and the first one of a stackshot.
constexpr uint32_t KCDATA_TYPE_BUFFER_END = 0xF19158ED;
constexpr uint32_t KCDATA_BUFFER_BEGIN_STACKSHOT = 0x59A25807;

// A loaded image.
struct dyld_uuid_info_64 {
  uint64_t imageLoadAddress;
  uint8_t imageUUID[16];
};
DARWIN_LAYOUT(dyld_uuid_info_64, 24, 8, (imageLoadAddress, 0), (imageUUID, 8));

}  // namespace darwin
