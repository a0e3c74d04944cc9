// The registers of this machine's processor in the form of an ARM one: exact on an ARM machine, and
// elsewhere those that have a counterpart. All that depends on the processor is here.
#pragma once

#include <array>
#include <cstddef>

#include "host/linux/blocked_call.h"
#include "host/machine/tasks.h"

namespace host::linux_machine {

// Room for the general registers of a thread as the kernel gives them to a debugger.
using RegisterSet = std::array<std::byte, 512>;

// Of a stopped thread, of whose set `size` bytes are there. False for a size that is no processor's
// here. On x86: stack and frame pointer, program counter, the six arguments of the function or
// system call in x0 to x5, and the number of the system call, else rax, in x8. A 32-bit task has
// the frame pointer in r7, the arguments of system calls but the sixth in r0 to r4, and their
// number, else eax, in r12.
bool registersOfSet(const RegisterSet &set, size_t size, ThreadRegisters &registers);

// Of a thread that waits, which shows only these, at the same places.
ThreadRegisters registersOfCall(const BlockedCall &call, bool is64Bit);

}  // namespace host::linux_machine
