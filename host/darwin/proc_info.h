// The rest of darwin/proc_info.h: what only the side that answers names.
#pragma once

#include "darwin/proc_info.h"

namespace darwin {

// Flavours of proc_pidinfo().
constexpr int PROC_PIDTBSDINFO = 3;
constexpr int PROC_PIDTASKINFO = 4;
constexpr int PROC_PIDREGIONINFO = 7;
constexpr int PROC_PIDPATHINFO = 11;
constexpr int PROC_PIDT_SHORTBSDINFO = 13;

// Flavours of proc_pidfdinfo().
constexpr int PROC_PIDFDVNODEINFO = 1;
constexpr int PROC_PIDFDKQUEUEINFO = 7;

// pth_cpu_usage of a thread that fills one processor.
constexpr int32_t TH_USAGE_SCALE = 1000;

// pwq_state: the limits that the queue has reached.
constexpr uint32_t WQ_EXCEEDED_TOTAL_THREAD_LIMIT = 0x2;

constexpr int COALITION_TYPE_RESOURCE = 0;
constexpr int COALITION_TYPE_JETSAM = 1;

}  // namespace darwin
