// The rest of darwin/code_signing.h: what only the side that answers names.
#pragma once

#include "darwin/code_signing.h"

namespace darwin {

// Operations of csops().
constexpr unsigned int CS_OPS_MARKKILL = 3;
constexpr unsigned int CS_OPS_IDENTITY = 11;

}  // namespace darwin
