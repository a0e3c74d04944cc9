// Where a thread waits, from /proc/PID/task/TID/syscall: the one thing that the kernel tells of a
// thread's registers without stopping it.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace host::linux_machine {

struct BlockedCall {
  bool isInCall;   // else it waits for something else, such as a page
  int64_t number;  // of the system call; this and the arguments are 0 without
  std::array<uint64_t, 6> arguments;
  uint64_t stackPointer;
  uint64_t programCounter;
};

// False, and `call` is left alone, for a thread that runs and for a text that is not well-formed.
bool parseBlockedCall(std::string_view text, BlockedCall &call);

}  // namespace host::linux_machine
