// Whether a process still runs, for those that have no reading of it.
#pragma once

namespace host::linux_machine {

// `processDirectory` is an open directory descriptor of /proc/PID. False for a zombie and for a
// process that is gone; true for one that doesn't tell.
bool isAlive(int processDirectory);

}  // namespace host::linux_machine
