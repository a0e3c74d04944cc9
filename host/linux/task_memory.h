// Another process's memory: who may open it, and its bytes.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "host/errno.h"

namespace host::linux_machine {

// Whether the kernel lets the caller read and change the memory of the process whose /proc/PID is
// open as `processDirectory`, as it lets a debugger. DARWIN_EPERM if not.
Errno checkMemoryAccess(int processDirectory);

// Copies `size` bytes at `address` of process `pid`: all of them, or DARWIN_EFAULT where a page is
// missing or its protection does not allow to read it, and then what is at `to` is not to be used.
// `processDirectory` is an open descriptor of the process's /proc/PID: if the pid is another
// process's by now the answer is DARWIN_ESRCH.
Errno readTaskMemory(int processDirectory, pid_t pid, uint64_t address, size_t size, void *to);

}  // namespace host::linux_machine
