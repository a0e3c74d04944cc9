// The registers of a task's threads as a core holds them: a load command for each thread.
#pragma once

#include <stdint.h>

#include "darwin/mach_host.h"

namespace sondex {

// The load commands with the registers of the task's threads, in a buffer that the caller frees;
// *threadCount and *totalSize (bytes) say how much of it counts. A thread that is gone by then has
// zeros in its registers. Null, with both 0 and a message on standard error, when the threads can't
// be listed.
char *makeThreadCommands(darwin::mach_port_t task, uint32_t *threadCount, uint32_t *totalSize,
                         bool is32Bit);

}  // namespace sondex
