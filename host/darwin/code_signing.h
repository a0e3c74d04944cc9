// The rest of darwin/code_signing.h: what only the side that answers names.
#pragma once

#include "darwin/code_signing.h"

namespace darwin {

// Operations of csops().
constexpr unsigned int CS_OPS_MARKKILL = 3;
constexpr unsigned int CS_OPS_IDENTITY = 11;

// Flags that CS_OPS_STATUS writes.
constexpr uint32_t CS_RESTRICT = 0x800;
constexpr uint32_t CS_ENTITLEMENTS_VALIDATED = 0x4000;
constexpr uint32_t CS_RUNTIME = 0x10000;
constexpr uint32_t CS_LINKER_SIGNED = 0x20000;
constexpr uint32_t CS_KILLED = 0x1000000;
constexpr uint32_t CS_PLATFORM_BINARY = 0x4000000;
constexpr uint32_t CS_DEBUGGED = 0x10000000;
constexpr uint32_t CS_SIGNED = 0x20000000;

}  // namespace darwin
