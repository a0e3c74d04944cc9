// Raw system calls that tell of processes.
#pragma once

#include <cstdint>

namespace sondex {

// Both return the call's result: -1 with errno on failure. Nothing calls proc_info yet.
int proc_info(int32_t callnum, int32_t pid, uint32_t flavor, uint64_t arg, void *buffer,
              int32_t buffersize);
int process_policy(int scope, int action, int policy, int policy_subtype, void *attribute,
                   int32_t target_pid, uint64_t target_threadid);

}  // namespace sondex
