// What a kernel says about the device as a whole, in Darwin's structures. All fields are set.
#pragma once

#include <array>
#include <cstdint>

#include "host/machine/host_figures.h"
#include "host/simulator/device.h"
#include "host/simulator/machine_clock.h"

namespace host::simulator {

void fillBasicInfo(const Hardware &hardware, darwin::host_basic_info &info);
void fillVirtualMemory(const Memory &memory, Nanoseconds now, darwin::vm_statistics64 &statistics);
void fillProcessorLoad(const Processor &processor, Nanoseconds now,
                       darwin::processor_cpu_load_info &load);
// `up` is how long the device had been up at the start of its clock.
void fillBootTime(const MachineClock &clock, Nanoseconds up, darwin::timeval &time);
void fillLoadAverage(const std::array<Figure, 3> &averages, Nanoseconds now, darwin::loadavg &to);
void fillSwapUsage(const Swap &swap, Nanoseconds now, uint64_t pageSize, darwin::xsw_usage &usage);

}  // namespace host::simulator
