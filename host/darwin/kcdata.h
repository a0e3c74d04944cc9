// The rest of darwin/kcdata.h: what only the side that answers names.
#pragma once

#include "darwin/kcdata.h"

namespace darwin {

// The last item of every buffer, and the first one of a stackshot.
constexpr uint32_t KCDATA_BUFFER_BEGIN_STACKSHOT = 0x59A25807;

}  // namespace darwin
