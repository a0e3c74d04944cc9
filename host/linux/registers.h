// The registers of a thread of another process, which is stopped for that moment, or of one that
// waits. Other than time, the thread loses nothing by it.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "host/linux/procfs.h"
#include "host/machine/tasks.h"

namespace host::linux_machine {

struct ThreadPlace {
  FileHandle directory;  // its /proc/PID/task/TID, to tell it from a later thread of that number
  pid_t process = 0;
  pid_t thread = 0;
  bool is64Bit = true;
};

// Of thread `id` of the process whose /proc/PID is open as `processDirectory`: its directory and
// number; the rest is the caller's to fill. DARWIN_ESRCH when the process has no such thread.
Errno findThreadPlace(int processDirectory, uint64_t id, ThreadPlace &place);

// DARWIN_ESRCH for a thread that ended, DARWIN_EPERM if the caller may not debug it. A thread that
// can't be stopped (the caller's own process, another tracer's, one that waits without letting
// itself be disturbed) shows what it waits in; one that can be neither stopped nor seen waiting is
// DARWIN_EBUSY. Takes at most about half a second.
Errno readRegisters(const ThreadPlace &place, ThreadRegisters &registers);

}  // namespace host::linux_machine
