// The rest of darwin/syscalls.h: what only the side that answers names.
#pragma once

#include "darwin/syscalls.h"

namespace darwin {

// uint32_t *level.
constexpr int DARWIN_SYS_memorystatus_get_level = 453;

// int32_t pid, uint32_t operation, void *buffer, size_t size.
constexpr int DARWIN_SYS_csops = 169;

// Call numbers of proc_info: for LISTPIDS the pid argument carries the type and flavor the
// typeinfo; for PIDFDINFO arg is the descriptor.
constexpr int32_t PROC_INFO_CALL_LISTPIDS = 1;
constexpr int32_t PROC_INFO_CALL_PIDINFO = 2;
constexpr int32_t PROC_INFO_CALL_PIDFDINFO = 3;
constexpr int32_t PROC_INFO_CALL_PIDRUSAGE = 9;

// process_policy: scope, action, policy, subtype and the state that comes back.
constexpr int PROC_POLICY_SCOPE_THREAD = 2;
constexpr int PROC_POLICY_ACTION_SET = 10;
constexpr int PROC_POLICY_APPTYPE = 6;
constexpr int PROC_POLICY_APPLIFE_DEVSTATUS = 2;

}  // namespace darwin
