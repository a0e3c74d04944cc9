// Numbers of the system calls that the program makes through syscall(), with their arguments in
// order, and the words that those arguments take. All answer -1 with errno set on failure.
#pragma once

#include <cstdint>

namespace darwin {

// int wait_for_pressure, int seconds_monitored, uint32_t *pages_reclaimed (may be null). With wait
// 1 it sleeps until free pages fall below the target; answers the pages wanted. EINTR on a signal.
constexpr int DARWIN_SYS_vm_pressure_monitor = 296;

// int scope, int action, int policy, int policy_subtype, void *attribute, int32_t pid (0 is the
// caller), uint64_t thread. ESRCH for no such process, EPERM for another user's, EINVAL for a bad
// scope or policy, ENOTSUP where the kernel no longer answers the application state.
constexpr int DARWIN_SYS_process_policy = 323;

// int32_t call, int32_t pid, uint32_t flavor, uint64_t arg, void *buffer, int32_t buffersize. The
// same as the functions of libproc.h, except that a failure is -1.
constexpr int DARWIN_SYS_proc_info = 336;

// uint32_t command, int32_t pid, uint32_t flags, void *buffer, size_t buffersize. EPERM unless
// root, EINVAL for a buffer that is too small.
constexpr int DARWIN_SYS_memorystatus_control = 440;

// int config_version, void *config, size_t config_size.
constexpr int DARWIN_SYS_stack_snapshot_with_config = 491;

// process_policy: scope, action, policy, subtype and the state that comes back.
constexpr int PROC_POLICY_SCOPE_PROCESS = 1;
constexpr int PROC_POLICY_ACTION_GET = 11;
constexpr int PROC_POLICY_APP_LIFECYCLE = 5;
constexpr int PROC_POLICY_APPLIFE_STATE = 1;
constexpr int32_t PROC_APPSTATE_NONE = 0;
constexpr int32_t PROC_APPSTATE_ACTIVE = 1;
constexpr int32_t PROC_APPSTATE_BACKGROUND = 2;
constexpr int32_t PROC_APPSTATE_NONUI = 3;
constexpr int32_t PROC_APPSTATE_INACTIVE = 4;

}  // namespace darwin
