// The device's header of this name, for what src/ takes from it: Linux has none.
#pragma once

#include <stdint.h>

static inline uint16_t _OSSwapInt16(uint16_t value) {
  return __builtin_bswap16(value);
}
