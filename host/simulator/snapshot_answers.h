// What a stackshot says of a device and its processes.
#pragma once

#include "host/simulator/device.h"
#include "host/simulator/machine_clock.h"
#include "host/simulator/running_process.h"
#include "host/snapshot.h"

namespace host::simulator {

// The device as a whole, without its processes.
Snapshot describeDevice(const Device &device, const MachineClock &clock, Nanoseconds now);

// Its loaded images are what it has regions of that can be executed and have a path.
SnapshotTask describeTask(const RunningProcess &process, const MachineClock &clock, Nanoseconds now,
                          uint64_t pageSize);

}  // namespace host::simulator
