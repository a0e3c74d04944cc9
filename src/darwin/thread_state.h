// The registers of a stopped or running thread.
#pragma once

#include "darwin/layout.h"
#include "darwin/mach_host.h"

namespace darwin {

using thread_act_t = mach_port_t;
using thread_act_array_t = thread_act_t *;
using thread_state_flavor_t = int;
using thread_state_t = natural_t *;

// ARM_THREAD_STATE is the 32-bit form in less room than the unified form takes.
constexpr thread_state_flavor_t ARM_THREAD_STATE = 1;
constexpr thread_state_flavor_t ARM_THREAD_STATE64 = 6;
constexpr thread_state_flavor_t ARM_THREAD_STATE32 = 9;

struct arm_thread_state32_t {
  uint32_t __r[13];
  uint32_t __sp;
  uint32_t __lr;
  uint32_t __pc;
  uint32_t __cpsr;
};
DARWIN_LAYOUT(arm_thread_state32_t, 68, 4, (__r, 0), (__sp, 52), (__lr, 56), (__pc, 60),
              (__cpsr, 64));

struct arm_thread_state64_t {
  uint64_t __x[29];
  uint64_t __fp;
  uint64_t __lr;
  uint64_t __sp;
  uint64_t __pc;
  uint32_t __cpsr;
  uint32_t __pad;
};
DARWIN_LAYOUT(arm_thread_state64_t, 272, 8, (__x, 0), (__fp, 232), (__lr, 240), (__sp, 248),
              (__pc, 256), (__cpsr, 264), (__pad, 268));

// In 32-bit words, as the call counts them. The unified form has two words before the widest state:
// its flavour and its count.
constexpr mach_msg_type_number_t ARM_THREAD_STATE32_COUNT =
    sizeof(arm_thread_state32_t) / sizeof(natural_t);
constexpr mach_msg_type_number_t ARM_THREAD_STATE64_COUNT =
    sizeof(arm_thread_state64_t) / sizeof(natural_t);

extern "C" {

// Writes the thread's registers to out. *count is the room in 32-bit words and comes back as the
// words written. KERN_INVALID_ARGUMENT for too little room, or for the flavour of the other word
// size.
kern_return_t act_get_state(thread_act_t thread, int flavor, thread_state_t out,
                            mach_msg_type_number_t *count);

}  // extern "C"

}  // namespace darwin
