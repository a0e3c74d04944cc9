// The rest of darwin/memorystatus.h: what only the side that answers names.
#pragma once

#include "darwin/memorystatus.h"

namespace darwin {

// Instead of a band, where one is set; so is -1, for the default one.
constexpr int32_t JETSAM_PRIORITY_IDLE_HEAD = -2;

// Bands; kernels of the last years have the same ones times ten. Through the two ageing ones a
// process goes to idle.
constexpr int32_t JETSAM_PRIORITY_IDLE = 0;
constexpr int32_t JETSAM_PRIORITY_AGING_BAND1 = 1;
constexpr int32_t JETSAM_PRIORITY_AGING_BAND2 = 2;
constexpr int32_t JETSAM_PRIORITY_DEFAULT = 18;
constexpr int32_t JETSAM_PRIORITY_MAX = 21;

// An attribute of a memory limit: who exceeds it is ended.
constexpr uint32_t MEMORYSTATUS_MEMLIMIT_ATTR_FATAL = 1;

}  // namespace darwin
