// A stackshot of live processes: what is known of a process and its threads anyway as a snapshot
// has it, and what they are at, in the kernel and in user space.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "host/linux/clock.h"
#include "host/linux/present_process.h"
#include "host/linux/process_text.h"
#include "host/snapshot.h"

namespace host::linux_machine {

struct StackshotTask {
  SnapshotTask task;
  uint64_t startTicks = 0;  // by which the process is told from a later one with its pid
  bool hasUserSide = false;
};

// One reading of a process, without stacks.
StackshotTask describeTask(const ProcessStat &stat, const ProcessStatus &status,
                           const std::vector<ThreadReading> &threads, bool is64Bit,
                           const WallTime &boot);

// Adds to each what must be read from the process as it is now, as far as that can be done: kernel
// stacks, time runnable, user stacks and loaded images. Its threads stand still for a moment. Those
// that are left when the time is over get no user stacks.
void addStacks(int procDirectory, std::vector<StackshotTask> &tasks, std::chrono::seconds patience);

}  // namespace host::linux_machine
