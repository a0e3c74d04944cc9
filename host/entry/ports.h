// Names of the Mach ports that stand for host objects. There are no ports behind them: each is a
// number that the calls of this folder recognise.
#pragma once

#include "darwin/mach_host.h"

namespace host {

inline constexpr darwin::mach_port_t kHostPort = 0x103;
inline constexpr darwin::mach_port_t kPrivilegedHostPort = 0x203;
inline constexpr darwin::mach_port_t kProcessorSetPort = 0x303;

// Processors follow one another from here; nothing else lies between the two.
inline constexpr darwin::mach_port_t kFirstProcessorPort = 0x10000;
inline constexpr unsigned int kMostProcessors = 0x10000;

}  // namespace host
