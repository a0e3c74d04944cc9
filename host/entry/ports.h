// Names of the Mach ports that stand for host objects, tasks and threads. There are no ports behind
// them: each is a number that the calls of this folder recognise.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "darwin/mach_host.h"

namespace host {

inline constexpr darwin::mach_port_t kHostPort = 0x103;
inline constexpr darwin::mach_port_t kPrivilegedHostPort = 0x203;
inline constexpr darwin::mach_port_t kProcessorSetPort = 0x303;

// Processors follow one another from here; nothing else lies between the two.
inline constexpr darwin::mach_port_t kFirstProcessorPort = 0x10000;
inline constexpr unsigned int kMostProcessors = 0x10000;

// What a port of a process leads to.
enum class PortKind { kTask, kTaskName, kThread };

struct ProcessPort {
  PortKind kind = PortKind::kTask;
  pid_t pid = 0;
  uint64_t thread = 0;  // its system-wide ID; 0 for a task
  auto operator<=>(const ProcessPort &) const = default;
};

// A name for the port, or one more reference to the name that it has already.
darwin::mach_port_t openPort(const ProcessPort &port);
// Nothing for a name that is no process port's.
std::optional<ProcessPort> findPort(darwin::mach_port_t name);
// Takes back one reference. False for a name that is no process port's.
bool closePort(darwin::mach_port_t name);
// How many references to process ports were not given back yet.
size_t openPorts();

}  // namespace host
