// The rest of darwin/mach_host.h: what only the side that answers names.
#pragma once

#include "darwin/mach_host.h"

namespace darwin {

constexpr kern_return_t KERN_INVALID_ADDRESS = 1;
constexpr kern_return_t KERN_INVALID_ARGUMENT = 4;
constexpr kern_return_t KERN_FAILURE = 5;
constexpr kern_return_t MACH_SEND_INVALID_DEST = 0x10000003;

// Lengths in 32-bit words, as the calls count them.
constexpr mach_msg_type_number_t HOST_BASIC_INFO_COUNT =
    sizeof(host_basic_info) / sizeof(integer_t);
constexpr mach_msg_type_number_t HOST_VM_INFO64_COUNT = sizeof(vm_statistics64) / sizeof(integer_t);
constexpr mach_msg_type_number_t PROCESSOR_CPU_LOAD_INFO_COUNT =
    sizeof(processor_cpu_load_info) / sizeof(integer_t);

}  // namespace darwin
