// Jetsam: which processes the kernel ends first when memory runs short. The list is read with the
// raw call DARWIN_SYS_memorystatus_control (syscalls.h).
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

// memorystatus_get_level() as looked up by name. Writes the percentage (0 to 100) of memory that is
// still available; 0, or -1 with errno EFAULT for a bad pointer.
using memorystatus_get_level_function = int (*)(unsigned int *level);

}  // namespace darwin
