// The rest of darwin/ntstat.h: what only the side that answers names.
#pragma once

#include "darwin/ntstat.h"

namespace darwin {

constexpr uint32_t NSTAT_PROVIDER_ROUTE = 1;
constexpr uint32_t NSTAT_PROVIDER_SYSINFO = 5;

}  // namespace darwin
