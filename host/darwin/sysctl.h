// The rest of darwin/sysctl.h: what only the side that answers names.
#pragma once

#include "darwin/sysctl.h"

namespace darwin {

// First number of a name.
constexpr int DARWIN_CTL_VM = 2;

// Second number: kern.boottime and the argument areas of a process (which take a pid as third).
constexpr int DARWIN_KERN_BOOTTIME = 21;

// Second number: vm.loadavg and vm.swapusage.
constexpr int DARWIN_VM_LOADAVG = 2;
constexpr int DARWIN_VM_SWAPUSAGE = 5;

}  // namespace darwin
