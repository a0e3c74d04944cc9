// The rest of darwin/memorystatus.h: what only the side that answers names.
#pragma once

#include "darwin/memorystatus.h"

namespace darwin {

// Bands; kernels of the last years have the same ones times ten.
constexpr int32_t JETSAM_PRIORITY_MAX = 21;

}  // namespace darwin
