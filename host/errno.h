// The word in which a machine, and every part of one, says whether it answered.
#pragma once

#include "darwin/errors.h"

namespace host {

// A Darwin errno value; kAnswered (0) says that the output argument was filled. On any other value
// it was not touched.
using Errno = int;
inline constexpr Errno kAnswered = 0;

}  // namespace host
