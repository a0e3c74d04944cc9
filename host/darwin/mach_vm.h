// The rest of darwin/mach_vm.h: what only the side that answers names.
#pragma once

#include "darwin/mach_vm.h"

namespace darwin {

// The other bits of vm_prot_t.
constexpr vm_prot_t VM_PROT_WRITE = 2;
constexpr vm_prot_t VM_PROT_EXECUTE = 4;

}  // namespace darwin
