// The machine beside its processes in a device file.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "darwin/interfaces.h"
#include "darwin/mach_host.h"
#include "darwin/sysctl.h"

namespace sondex {

constexpr uint32_t kMostProcessors = 256;  // of a device file
constexpr int32_t kMostInterfaces = 1000;

struct InterfaceFigures {
  char name[16];
  darwin::if_msghdr2 message;
};

// What changes, at one moment.
struct SystemFigures {
  int64_t seconds;  // the time of day
  int64_t microseconds;
  darwin::vm_statistics64 memory;
  darwin::loadavg load;
  darwin::xsw_usage swap;
  uint32_t level;       // percent of memory; above 100: not told
  bool tellsOfZombies;  // left to the caller, who asks about processes
  uint32_t processorCount;
  darwin::processor_cpu_load_info processors[kMostProcessors];
  int32_t interfaceCount;
  InterfaceFigures interfaces[kMostInterfaces];
};

// Asks for the figures as they are now; what the kernel refuses is 0.
void sampleSystem(SystemFigures *figures);

// Microseconds since the system was started, at that moment.
int64_t upAt(const SystemFigures *figures);

// Writes all that stands before the processes. `up` is what upAt() says.
void writeSystem(const SystemFigures *first, const SystemFigures *second, int64_t up);

}  // namespace sondex
