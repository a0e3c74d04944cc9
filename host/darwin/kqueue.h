// The rest of darwin/kqueue.h: what only the side that answers names.
#pragma once

#include "darwin/kqueue.h"

namespace darwin {

constexpr uint16_t EV_DELETE = 0x2;
constexpr uint16_t EV_ENABLE = 0x4;
constexpr uint16_t EV_ONESHOT = 0x10;
constexpr uint16_t EV_CLEAR = 0x20;
constexpr uint16_t EV_ERROR = 0x4000;
constexpr uint16_t EV_EOF = 0x8000;

}  // namespace darwin
