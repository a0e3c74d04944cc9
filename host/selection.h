// How the machine is chosen at start. The chosen one is reached through machine() (machine.h).
#pragma once

#include <memory>

#include "host/machine.h"

namespace host {

// The machine that `device` names: null or empty is this Linux system, "none" the one that supports
// nothing, a word with a slash or ending in ".toml" the device file with that path, and another one
// the device file of that name in the folder that SONDEX_DEVICES names, else in the one installed
// with the program, else in devices/ of the source tree. A device with a time zone of its own
// becomes the process's (TZ). Never null: where there is no such device, its file has a mistake, or
// this system can't be read, it writes one line to standard error and ends the process at once
// (status 64, 65 and 71).
std::unique_ptr<Machine> chooseMachine(const char *device) noexcept;

}  // namespace host
