// Whether a process still runs, for those that have no reading of it.
#pragma once

#include <cstdint>

namespace host::linux_machine {

// `processDirectory` is an open directory descriptor of /proc/PID. False for a zombie and for a
// process that is gone; true for one that doesn't tell.
bool isAlive(int processDirectory);
// The same of the process that has this pid now. `procDirectory` is an open handle of /proc.
bool isAlive(int procDirectory, int32_t pid);

}  // namespace host::linux_machine
