// The port of a task, and what the kernel tells about the task to whoever holds that. The task's
// memory is in mach_vm.h, its threads' registers are in thread_state.h.
#pragma once

#include "darwin/layout.h"
#include "darwin/mach_host.h"
#include "darwin/thread_state.h"

namespace darwin {

using task_t = mach_port_t;
using task_name_t = mach_port_t;
using task_flavor_t = natural_t;
using task_info_t = integer_t *;

constexpr task_flavor_t TASK_EXTMOD_INFO = 19;

// How often others took the task's port or changed its threads, and how often it did so to others
// (the caller counts).
struct vm_extmod_statistics {
  int64_t task_for_pid_count;
  int64_t task_for_pid_caller_count;
  int64_t thread_creation_count;
  int64_t thread_creation_caller_count;
  int64_t thread_set_state_count;
  int64_t thread_set_state_caller_count;
};
DARWIN_LAYOUT(vm_extmod_statistics, 48, 8, (task_for_pid_count, 0), (task_for_pid_caller_count, 8),
              (thread_creation_count, 16), (thread_creation_caller_count, 24),
              (thread_set_state_count, 32), (thread_set_state_caller_count, 40));

#pragma pack(push, 4)
struct task_extmod_info {
  uint8_t task_uuid[16];
  vm_extmod_statistics extmod_statistics;
};
DARWIN_LAYOUT(task_extmod_info, 64, 4, (task_uuid, 0), (extmod_statistics, 16));
#pragma pack(pop)

extern "C" {

// The caller's own task, which stays its own.
extern mach_port_t mach_task_self_;

// Gives the port that opens a process's task to the caller, who deallocates it. KERN_FAILURE and
// port 0 when that is not permitted, there is no such process, or it is pid 0.
kern_return_t task_for_pid(mach_port_name_t self, int pid, mach_port_name_t *task);

// The same for the port that only names the task; the same user may have it.
kern_return_t task_name_for_pid(mach_port_name_t self, int pid, mach_port_name_t *name);

// Gives the ports of the task's threads in memory mapped into the caller, who owns both. *n is the
// number of ports.
kern_return_t task_threads(task_t task, thread_act_array_t *list, mach_msg_type_number_t *n);

// Gives back one reference to a port.
kern_return_t mach_port_deallocate(task_t self, mach_port_name_t name);

// Writes the flavour's words to out. *count is the room in 32-bit words, where more than the
// flavour has is as good (up to 1024), and comes back as the words written. MACH_SEND_INVALID_DEST
// for a name that is no port, KERN_INVALID_ARGUMENT for another port than a task's or too little
// room.
kern_return_t task_info(task_name_t task, task_flavor_t flavor, task_info_t out,
                        mach_msg_type_number_t *count);

}  // extern "C"

}  // namespace darwin
