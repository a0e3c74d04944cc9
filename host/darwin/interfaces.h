// The rest of darwin/interfaces.h: what only the side that answers names.
#pragma once

#include "darwin/interfaces.h"

namespace darwin {

// The list is a run of messages. Each begins with its length (16 bits, a multiple of 4), version
// and type; an interface's own message comes before those of its addresses.
constexpr int RTM_VERSION = 5;
constexpr int RTA_IFP = 0x10;  // the interface's link-level address follows

// ifi_type.
constexpr uint8_t IFT_ETHER = 6;

}  // namespace darwin
