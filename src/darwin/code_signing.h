// The code-signing state of a process and the call that reads it. The layout of the signature blob
// is not here.
#pragma once

#include <cstddef>
#include <cstdint>

namespace darwin {

// Operations of csops().
constexpr unsigned int CS_OPS_STATUS = 0;
constexpr unsigned int CS_OPS_BLOB = 10;

// Flags that CS_OPS_STATUS writes.
constexpr uint32_t CS_VALID = 0x1;
constexpr uint32_t CS_ADHOC = 0x2;
constexpr uint32_t CS_GET_TASK_ALLOW = 0x4;
constexpr uint32_t CS_INSTALLER = 0x8;
constexpr uint32_t CS_HARD = 0x100;
constexpr uint32_t CS_KILL = 0x200;
constexpr uint32_t CS_CHECK_EXPIRATION = 0x400;
constexpr uint32_t CS_RESTRICT = 0x800;
constexpr uint32_t CS_ENFORCEMENT = 0x1000;
constexpr uint32_t CS_REQUIRE_LV = 0x2000;
constexpr uint32_t CS_ENTITLEMENTS_VALIDATED = 0x4000;
constexpr uint32_t CS_RUNTIME = 0x10000;
constexpr uint32_t CS_LINKER_SIGNED = 0x20000;
constexpr uint32_t CS_EXEC_SET_HARD = 0x100000;
constexpr uint32_t CS_EXEC_SET_KILL = 0x200000;
constexpr uint32_t CS_KILLED = 0x1000000;
constexpr uint32_t CS_PLATFORM_BINARY = 0x4000000;
constexpr uint32_t CS_DEBUGGED = 0x10000000;
constexpr uint32_t CS_SIGNED = 0x20000000;

extern "C" {

// CS_OPS_STATUS writes 32 bits of flags and needs no privilege. CS_OPS_BLOB writes the signature;
// into too small a buffer it writes 4 zero bytes and the length needed, big-endian, and fails; for
// a program without one it writes 8 zero bytes and succeeds. pid 0 is the caller. Returns 0, or -1
// with errno set: ESRCH for no such process, EINVAL for a program that is neither valid nor
// debugged, ERANGE for too small a buffer.
int csops(int pid, unsigned int operation, void *buffer, size_t size);

}  // extern "C"

}  // namespace darwin
