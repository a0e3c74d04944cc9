// Jetsam: which processes the kernel ends first when memory runs short. The list is read, and a
// process's place and limits are set, with the raw call DARWIN_SYS_memorystatus_control
// (syscalls.h).
#pragma once

#include <cstdint>

#include "darwin/layout.h"

namespace darwin {

// With a null buffer the call answers the bytes that the list takes now, else the bytes written; a
// buffer that is too small is refused. Entries come by band, lowest first, not by pid.
constexpr uint32_t MEMORYSTATUS_CMD_GET_PRIORITY_LIST = 1;

// limit is in megabytes; a process without one of its own has the system's default.
struct memorystatus_priority_entry {
  int32_t pid;
  int32_t priority;
  uint64_t user_data;
  int32_t limit;
  uint32_t state;
};
DARWIN_LAYOUT(memorystatus_priority_entry, 24, 8, (pid, 0), (priority, 4), (user_data, 8),
              (limit, 16), (state, 20));

// Of one process, with a buffer of exactly its structure: 0, or -1 with errno EINVAL, ESRCH, EPERM
// for one of the kernel's own, EBUSY for one that is ending.
constexpr uint32_t MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES = 2;
constexpr uint32_t MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES = 7;
constexpr uint32_t MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES = 8;

// Both are overwritten. A priority of -1 stands for the default band, -2 for the head of the
// lowest.
struct memorystatus_priority_properties {
  int32_t priority;
  uint64_t user_data;
};
DARWIN_LAYOUT(memorystatus_priority_properties, 16, 8, (priority, 0), (user_data, 8));

// In megabytes; 0 and below stand for no limit of its own. The one limit holds while the process is
// active, the other while it is not.
struct memorystatus_memlimit_properties {
  int32_t memlimit_active;
  uint32_t memlimit_active_attr;
  int32_t memlimit_inactive;
  uint32_t memlimit_inactive_attr;
};
DARWIN_LAYOUT(memorystatus_memlimit_properties, 16, 4, (memlimit_active, 0),
              (memlimit_active_attr, 4), (memlimit_inactive, 8), (memlimit_inactive_attr, 12));

// memorystatus_get_level() as looked up by name. Writes the percentage (0 to 100) of memory that is
// still available; 0, or -1 with errno EFAULT for a bad pointer.
using memorystatus_get_level_function = int (*)(unsigned int *level);

}  // namespace darwin
