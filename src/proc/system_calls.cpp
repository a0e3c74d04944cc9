#include "proc/system_calls.h"

#include <unistd.h>

#include "darwin/syscalls.h"

namespace sondex {

int proc_info(int32_t callnum, int32_t pid, uint32_t flavor, uint64_t arg, void *buffer,
              int32_t buffersize) {
  return static_cast<int>(
      syscall(darwin::DARWIN_SYS_proc_info, callnum, pid, flavor, arg, buffer, buffersize));
}

int process_policy(int scope, int action, int policy, int policy_subtype, void *attribute,
                   int32_t target_pid, uint64_t target_threadid) {
  return static_cast<int>(syscall(darwin::DARWIN_SYS_process_policy, scope, action, policy,
                                  policy_subtype, attribute, target_pid, target_threadid));
}

}  // namespace sondex
