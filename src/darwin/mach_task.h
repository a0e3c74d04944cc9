// What the kernel tells about a task to whoever holds its port. The port itself, the task's memory
// and its threads are not here.
#pragma once

#include "darwin/layout.h"
#include "darwin/mach_host.h"

namespace darwin {

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

// Writes the flavour's words to out. *count is the room in 32-bit words, where more than the
// flavour has is as good (up to 1024), and comes back as the words written. MACH_SEND_INVALID_DEST
// for a name that is no port, KERN_INVALID_ARGUMENT for another port than a task's or too little
// room.
kern_return_t task_info(task_name_t task, task_flavor_t flavor, task_info_t out,
                        mach_msg_type_number_t *count);

}  // extern "C"

}  // namespace darwin
