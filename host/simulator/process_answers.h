// What a kernel says about a process, in Darwin's structures. All fields are set. Where a page size
// is asked for, sizes are in whole pages, as a kernel counts them.
#pragma once

#include "darwin/proc_info.h"
#include "darwin/rusage.h"
#include "host/simulator/machine_clock.h"
#include "host/simulator/running_process.h"
#include "host/simulator/time_base.h"

namespace host::simulator {

void fillBsdInfo(const RunningProcess &process, const MachineClock &clock,
                 darwin::proc_bsdinfo &info);
void fillTaskInfo(const RunningProcess &process, Nanoseconds now, const TimeBase &timeBase,
                  uint64_t pageSize, darwin::proc_taskinfo &info);
void fillThreadInfo(const RunningProcess &process, const Thread &thread, Nanoseconds now,
                    darwin::proc_threadinfo &info);
// `more` is the process's own. `up` is how long the device had been up at the start of its clock.
void fillResourceUsage(const RunningProcess &process, const ResourceUsage &more, Nanoseconds now,
                       const TimeBase &timeBase, Nanoseconds up, uint64_t pageSize,
                       darwin::rusage_info_v4 &usage);
// No kind of page is more than the region has room for.
void fillRegion(const RunningProcess &process, const Region &region, Nanoseconds now,
                uint64_t pageSize, darwin::proc_regionwithpathinfo &info);

// `figure` in bytes, in whole pages.
uint64_t sizeOf(const Figure &figure, Nanoseconds own, uint64_t pageSize);

}  // namespace host::simulator
