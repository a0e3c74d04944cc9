// What a process's threads have in their registers, and what stands in its memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/machine/tasks.h"
#include "host/simulator/running_process.h"

namespace host::simulator {

// In the form of the process's word size.
ThreadRegisters registersOf(const RunningProcess &process, const Thread &thread);

// All `size` bytes from `address` on, over any number of regions, or none: DARWIN_EFAULT where one
// is missing, not readable by its protection, or refused.
Errno copyMemory(const RunningProcess &process, uint64_t address, size_t size, void *to);

// What is known of `count` pages from `address` on, VM_PAGE_QUERY_*: those of a region that has
// contents or can't be read are there, those of other anonymous ones nobody has touched.
void tellPages(const RunningProcess &process, uint64_t address, size_t count, uint64_t pageSize,
               int *to);

}  // namespace host::simulator
