// The registers of threads beside the platform's.
#include "host/darwin/thread_state.h"
#include "same.h"

#define NAMES(EACH)               \
  EACH(ARM_THREAD_STATE);         \
  EACH(ARM_THREAD_STATE64);       \
  EACH(ARM_THREAD_STATE32);       \
  EACH(ARM_THREAD_STATE32_COUNT); \
  EACH(ARM_THREAD_STATE64_COUNT)

NAMES(KEEP);
constexpr long long kOurs_unified = darwin::ARM_UNIFIED_THREAD_STATE_COUNT;

#include <mach/mach.h>
#include <mach/thread_act.h>
#include <mach/thread_status.h>

NAMES(SAME_VALUE);
static_assert(kOurs_unified == ARM_UNIFIED_THREAD_STATE_COUNT);

SAME_STRUCTURE(arm_thread_state32_t, __r, __sp, __lr, __pc, __cpsr);
SAME_STRUCTURE(arm_thread_state64_t, __x, __fp, __lr, __sp, __pc, __cpsr, __pad);

static_assert(std::is_same_v<::thread_state_t, darwin::thread_state_t>);
static_assert(std::is_same_v<::thread_state_flavor_t, darwin::thread_state_flavor_t>);
static_assert(std::is_same_v<::thread_act_t, darwin::thread_act_t>);
static_assert(std::is_same_v<::thread_act_array_t, darwin::thread_act_array_t>);

SAME_FUNCTION(act_get_state);
