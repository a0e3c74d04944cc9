// What the kernel tells about a task beside the platform's.
#include "darwin/mach_task.h"
#include "same.h"

#define NAMES(EACH) EACH(TASK_EXTMOD_INFO)

NAMES(KEEP);

#include <mach/mach.h>
#include <mach/task_info.h>
#include <mach/vm_statistics.h>

NAMES(SAME_VALUE);

SAME_STRUCTURE(vm_extmod_statistics, task_for_pid_count, task_for_pid_caller_count,
               thread_creation_count, thread_creation_caller_count, thread_set_state_count,
               thread_set_state_caller_count);
SAME_STRUCTURE(task_extmod_info, task_uuid, extmod_statistics);

static_assert(std::is_same_v<::task_t, darwin::task_t>);
static_assert(std::is_same_v<::task_name_t, darwin::task_name_t>);
static_assert(std::is_same_v<::task_flavor_t, darwin::task_flavor_t>);
static_assert(std::is_same_v<::task_info_t, darwin::task_info_t>);

SAME_FUNCTION(task_info);
SAME_FUNCTION(task_for_pid);
SAME_FUNCTION(task_name_for_pid);
SAME_FUNCTION(task_threads);
SAME_FUNCTION(mach_port_deallocate);
static_assert(std::is_same_v<decltype(::mach_task_self_), decltype(darwin::mach_task_self_)>);
