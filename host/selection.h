// How the machine is chosen at start. The chosen one is reached through machine() (machine.h).
#pragma once

#include <memory>

#include "host/machine.h"

namespace host {

// The machine that `device` names: null or empty is this Linux system, "none" the one that supports
// nothing. Never null. For another word, and when this system can't be read, it writes one line to
// standard error and ends the process at once (status 64 and 71).
std::unique_ptr<Machine> chooseMachine(const char *device) noexcept;

}  // namespace host
