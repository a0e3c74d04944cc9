#include "host/linux/register_set.h"

#if defined(__x86_64__)
#include <sys/user.h>
#elif defined(__aarch64__)
#include <asm/ptrace.h>
#endif

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace host::linux_machine {

namespace {

using darwin::arm_thread_state32_t;
using darwin::arm_thread_state64_t;

// Where the number of a system call stands: where Linux on ARM has it, except that a frame pointer
// takes that place in a 32-bit task of another processor. Of the arguments there one is not kept.
constexpr size_t kNumber64 = 8;
#if defined(__x86_64__)
constexpr size_t kFramePointer32 = 7;
constexpr size_t kNumber32 = 12;
constexpr size_t kArguments32 = 5;
#else
constexpr size_t kNumber32 = 7;
constexpr size_t kArguments32 = 6;
#endif

uint32_t lowHalf(uint64_t value) {
  return static_cast<uint32_t>(value);
}

#if defined(__x86_64__) || defined(__aarch64__)
// The set as one of the kernel's structures.
template <typename Set>
Set setAs(const RegisterSet &set) {
  static_assert(sizeof(Set) <= sizeof set);
  Set registers;
  std::memcpy(&registers, set.data(), sizeof registers);
  return registers;
}
#endif

#if defined(__x86_64__)

// What the kernel gives of a 32-bit task.
struct X86Registers32 {
  uint32_t ebx, ecx, edx, esi, edi, ebp, eax;
  uint32_t ds, es, fs, gs;
  int32_t callNumber;  // negative outside system calls
  uint32_t eip, cs, eflags, esp, ss;
};
static_assert(sizeof(X86Registers32) == 68);

arm_thread_state64_t wideState(const user_regs_struct &from) {
  const bool isInCall = static_cast<int64_t>(from.orig_rax) >= 0;
  const uint64_t arguments[] = {from.rdi, from.rsi, from.rdx, isInCall ? from.r10 : from.rcx,
                                from.r8,  from.r9};
  arm_thread_state64_t state{};
  std::copy(std::begin(arguments), std::end(arguments), state.__x);
  state.__x[kNumber64] = isInCall ? from.orig_rax : from.rax;
  state.__fp = from.rbp;
  state.__sp = from.rsp;
  state.__pc = from.rip;
  return state;
}

arm_thread_state32_t narrowState(const X86Registers32 &from) {
  const uint32_t arguments[kArguments32] = {from.ebx, from.ecx, from.edx, from.esi, from.edi};
  arm_thread_state32_t state{};
  std::copy(std::begin(arguments), std::end(arguments), state.__r);
  state.__r[kFramePointer32] = from.ebp;
  state.__r[kNumber32] = from.callNumber >= 0 ? static_cast<uint32_t>(from.callNumber) : from.eax;
  state.__sp = from.esp;
  state.__pc = from.eip;
  return state;
}

#elif defined(__aarch64__)

// What the kernel gives of a 32-bit task.
struct ArmRegisters32 {
  uint32_t r[13];
  uint32_t sp, lr, pc, cpsr, callArgument;
};
static_assert(sizeof(ArmRegisters32) == 72);

arm_thread_state64_t wideState(const user_pt_regs &from) {
  arm_thread_state64_t state{};
  std::copy_n(from.regs, std::size(state.__x), state.__x);
  state.__fp = from.regs[29];
  state.__lr = from.regs[30];
  state.__sp = from.sp;
  state.__pc = from.pc;
  state.__cpsr = lowHalf(from.pstate);
  return state;
}

arm_thread_state32_t narrowState(const ArmRegisters32 &from) {
  arm_thread_state32_t state{};
  std::copy_n(from.r, std::size(state.__r), state.__r);
  state.__sp = from.sp;
  state.__lr = from.lr;
  state.__pc = from.pc;
  state.__cpsr = from.cpsr;
  return state;
}

#endif

}  // namespace

bool registersOfSet(const RegisterSet &set, size_t size, ThreadRegisters &registers) {
#if defined(__x86_64__)
  using Wide = user_regs_struct;
  using Narrow = X86Registers32;
#elif defined(__aarch64__)
  using Wide = user_pt_regs;
  using Narrow = ArmRegisters32;
#endif
#if defined(__x86_64__) || defined(__aarch64__)
  if (size == sizeof(Wide)) {
    registers = wideState(setAs<Wide>(set));
    return true;
  }
  if (size == sizeof(Narrow)) {
    registers = narrowState(setAs<Narrow>(set));
    return true;
  }
#endif
  return false;
}

ThreadRegisters registersOfCall(const BlockedCall &call, bool is64Bit) {
  if (is64Bit) {
    arm_thread_state64_t state{};
    std::copy(call.arguments.begin(), call.arguments.end(), state.__x);
    state.__x[kNumber64] = static_cast<uint64_t>(call.number);
    state.__sp = call.stackPointer;
    state.__pc = call.programCounter;
    return state;
  }
  arm_thread_state32_t state{};
  std::transform(call.arguments.begin(), call.arguments.begin() + kArguments32, state.__r, lowHalf);
  state.__r[kNumber32] = lowHalf(static_cast<uint64_t>(call.number));
  state.__sp = lowHalf(call.stackPointer);
  state.__pc = lowHalf(call.programCounter);
  return state;
}

}  // namespace host::linux_machine
