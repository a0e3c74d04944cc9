// Stackshots: the kernel's snapshot of tasks and threads, as chunked data (kcdata.h). How one is
// asked for, and the payloads that are in it.
#pragma once

#include <cstdint>

#include "darwin/kcdata.h"
#include "darwin/layout.h"

namespace darwin {

// Opaque: the fields moved between kernels.
struct stackshot_config_t;

// The flags that the program asks for.
constexpr uint64_t STACKSHOT_SAVE_LOADINFO = 0x2;
constexpr uint64_t STACKSHOT_GET_GLOBAL_MEM_STATS = 0x4;
constexpr uint64_t STACKSHOT_SAVE_IMP_DONATION_PIDS = 0x2000;
constexpr uint64_t STACKSHOT_KCDATA_FORMAT = 0x10000;
constexpr uint64_t STACKSHOT_COLLECT_SHAREDCACHE_LAYOUT = 0x80000;
constexpr uint64_t STACKSHOT_THREAD_WAITINFO = 0x1000000;
constexpr uint64_t STACKSHOT_INSTRS_CYCLES = 0x8000000;

extern "C" {

// A configuration without flags, for every process, on the heap; null when memory is short.
stackshot_config_t *stackshot_config_create(void);

// Both answer 0, or EINVAL for no configuration. A kernel without 64-bit flags takes the low half.
int stackshot_config_set_pid(stackshot_config_t *config, int pid);
int stackshot_config_set_flags(stackshot_config_t *config, uint64_t flags);

// Takes the snapshot, which then belongs to the configuration. Answers 0 or an errno value: EPERM
// unless root, EINVAL also for a configuration that holds a snapshot already, ENOTSUP for flags
// that the kernel does not know, EBUSY, ETIMEDOUT, ENOMEM.
int stackshot_capture_with_config(stackshot_config_t *config);

// The snapshot and its bytes; null and UINT32_MAX when there is none.
void *stackshot_config_get_stackshot_buffer(stackshot_config_t *config);
uint32_t stackshot_config_get_stackshot_size(stackshot_config_t *config);

}  // extern "C"

// Container types.
constexpr uint32_t STACKSHOT_KCCONTAINER_TASK = 0x903;
constexpr uint32_t STACKSHOT_KCCONTAINER_THREAD = 0x904;

// Item types with a payload that the program reads. Frames are return addresses alone.
constexpr uint32_t STACKSHOT_KCTYPE_IOSTATS = 0x901;
constexpr uint32_t STACKSHOT_KCTYPE_GLOBAL_MEM_STATS = 0x902;
constexpr uint32_t STACKSHOT_KCTYPE_TASK_SNAPSHOT = 0x905;
constexpr uint32_t STACKSHOT_KCTYPE_THREAD_SNAPSHOT = 0x906;
constexpr uint32_t STACKSHOT_KCTYPE_SHAREDCACHE_LOADINFO = 0x908;
constexpr uint32_t STACKSHOT_KCTYPE_THREAD_NAME = 0x909;
constexpr uint32_t STACKSHOT_KCTYPE_BOOTARGS = 0x90E;
constexpr uint32_t STACKSHOT_KCTYPE_OSVERSION = 0x90F;
constexpr uint32_t STACKSHOT_KCTYPE_KERN_STACKLR64 = 0x914;
constexpr uint32_t STACKSHOT_KCTYPE_USER_STACKLR64 = 0x916;
constexpr uint32_t STACKSHOT_KCTYPE_CPU_TIMES = 0x919;
constexpr uint32_t STACKSHOT_KCTYPE_KERNELCACHE_LOADINFO = 0x91C;
constexpr uint32_t STACKSHOT_KCTYPE_THREAD_GROUP_SNAPSHOT = 0x91E;
constexpr uint32_t STACKSHOT_KCTYPE_INSTRS_CYCLES = 0x923;
constexpr uint32_t STACKSHOT_KCTYPE_LOADINFO64_TEXT_EXEC = 0x92E;
constexpr uint32_t STACKSHOT_KCTYPE_CODESIGNING_INFO = 0x946;

#pragma pack(push, 1)

struct task_snapshot_v2 {
  uint64_t ts_unique_pid;
  uint64_t ts_ss_flags;
  uint64_t ts_user_time_in_terminated_threads;
  uint64_t ts_system_time_in_terminated_threads;
  uint64_t ts_p_start_sec;
  uint64_t ts_task_size;
  uint64_t ts_max_resident_size;
  uint32_t ts_suspend_count;
  uint32_t ts_faults;
  uint32_t ts_pageins;
  uint32_t ts_cow_faults;
  uint32_t ts_was_throttled;
  uint32_t ts_did_throttle;
  uint32_t ts_latency_qos;
  int32_t ts_pid;
  char ts_p_comm[32];
};
DARWIN_LAYOUT(task_snapshot_v2, 120, 1, (ts_unique_pid, 0), (ts_ss_flags, 8),
              (ts_user_time_in_terminated_threads, 16), (ts_system_time_in_terminated_threads, 24),
              (ts_p_start_sec, 32), (ts_task_size, 40), (ts_max_resident_size, 48),
              (ts_suspend_count, 56), (ts_faults, 60), (ts_pageins, 64), (ts_cow_faults, 68),
              (ts_was_throttled, 72), (ts_did_throttle, 76), (ts_latency_qos, 80), (ts_pid, 84),
              (ts_p_comm, 88));

// Older kernels stop at ths_io_tier (v2: 104 bytes, sent as 112) or at ths_thread_t (v3: 112).
struct thread_snapshot_v4 {
  uint64_t ths_thread_id;
  uint64_t ths_wait_event;
  uint64_t ths_continuation;
  uint64_t ths_total_syscalls;
  uint64_t ths_voucher_identifier;
  uint64_t ths_dqserialnum;
  uint64_t ths_user_time;
  uint64_t ths_sys_time;
  uint64_t ths_ss_flags;
  uint64_t ths_last_run_time;
  uint64_t ths_last_made_runnable_time;
  uint32_t ths_state;
  uint32_t ths_sched_flags;
  int16_t ths_base_priority;
  int16_t ths_sched_priority;
  uint8_t ths_eqos;
  uint8_t ths_rqos;
  uint8_t ths_rqos_override;
  uint8_t ths_io_tier;
  uint64_t ths_thread_t;
  uint64_t ths_requested_policy;
  uint64_t ths_effective_policy;
};
DARWIN_LAYOUT(thread_snapshot_v4, 128, 1, (ths_thread_id, 0), (ths_wait_event, 8),
              (ths_continuation, 16), (ths_total_syscalls, 24), (ths_voucher_identifier, 32),
              (ths_dqserialnum, 40), (ths_user_time, 48), (ths_sys_time, 56), (ths_ss_flags, 64),
              (ths_last_run_time, 72), (ths_last_made_runnable_time, 80), (ths_state, 88),
              (ths_sched_flags, 92), (ths_base_priority, 96), (ths_sched_priority, 98),
              (ths_eqos, 100), (ths_rqos, 101), (ths_rqos_override, 102), (ths_io_tier, 103),
              (ths_thread_t, 104), (ths_requested_policy, 112), (ths_effective_policy, 120));

// Older kernels stop at tgs_flags or behind it.
struct thread_group_snapshot_v3 {
  uint64_t tgs_id;
  char tgs_name[16];
  uint64_t tgs_flags;
  char tgs_name_cont[16];
};
DARWIN_LAYOUT(thread_group_snapshot_v3, 48, 1, (tgs_id, 0), (tgs_name, 8), (tgs_flags, 24),
              (tgs_name_cont, 32));

// Older kernels leave the last field out.
struct stackshot_cpu_times_v2 {
  uint64_t user_usec;
  uint64_t system_usec;
  uint64_t runnable_usec;
};
DARWIN_LAYOUT(stackshot_cpu_times_v2, 24, 1, (user_usec, 0), (system_usec, 8), (runnable_usec, 16));

// Older kernels leave the last two fields out.
struct instrs_cycles_snapshot_v2 {
  uint64_t ics_instructions;
  uint64_t ics_cycles;
  uint64_t ics_p_instructions;
  uint64_t ics_p_cycles;
};
DARWIN_LAYOUT(instrs_cycles_snapshot_v2, 32, 1, (ics_instructions, 0), (ics_cycles, 8),
              (ics_p_instructions, 16), (ics_p_cycles, 24));

struct stackshot_task_codesigning_info {
  uint64_t csflags;
  uint32_t cs_trust_level;
};
DARWIN_LAYOUT(stackshot_task_codesigning_info, 12, 1, (csflags, 0), (cs_trust_level, 8));

#pragma pack(pop)

}  // namespace darwin
