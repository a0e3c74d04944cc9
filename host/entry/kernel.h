// System calls under the library's functions, in the kernel's own form: an errno, and a result that
// is written only where that is 0. The library's functions and syscall() both stand on these.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/errno.h"

namespace host {

// System call 336. `call` is a PROC_INFO_CALL_* number, which also says what pid, flavor and arg
// carry (darwin/syscalls.h). `result` is in bytes, except for the events of a kqueue.
Errno procInfo(int32_t call, int32_t pid, uint32_t flavor, uint64_t arg, void *buffer, int32_t size,
               int &result) noexcept;

// System call 440. `result` is in bytes, and stays for commands that give no list.
Errno memorystatusControl(uint32_t command, int32_t pid, uint32_t flags, void *buffer, size_t size,
                          int &result) noexcept;

// System call 491, with a configuration of the form of `version`, which has to have exactly `size`
// bytes. The snapshot is mapped for the caller, who gets its address and size where the
// configuration says and unmaps it.
Errno stackSnapshot(int version, const void *config, size_t size) noexcept;

}  // namespace host

// System call 453, and the library function of that name. Programs look it up by name: not every
// release has it.
extern "C" int memorystatus_get_level(unsigned int *level) noexcept;
