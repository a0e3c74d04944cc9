// The rest of darwin/thread_state.h: what only the side that answers names.
#pragma once

#include "darwin/thread_state.h"

namespace darwin {

// In 32-bit words, as the call counts them. The unified form has two words before the widest state:
// its flavour and its count.
constexpr mach_msg_type_number_t ARM_UNIFIED_THREAD_STATE_COUNT = 2 + ARM_THREAD_STATE64_COUNT;

}  // namespace darwin
