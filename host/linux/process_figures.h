// One process's files as Darwin's structures. Nothing is read here.
#pragma once

#include <cstdint>
#include <vector>

#include "darwin/proc_info.h"
#include "darwin/rusage.h"
#include "host/linux/clock.h"
#include "host/linux/present_process.h"
#include "host/linux/process_text.h"

namespace host::linux_machine {

// SIDL to SZOMB.
uint32_t processState(const ProcessStat &stat);

// A Linux terminal number as a Darwin device number; none is 0xFFFFFFFF.
uint32_t terminalDevice(int32_t terminal);

// Each fills the whole structure.
void fillBsdInfo(const ProcessStat &stat, const ProcessStatus &status, bool is64Bit,
                 const WallTime &boot, darwin::proc_bsdinfo &info);
void fillTaskInfo(const ProcessStat &stat, const ProcessStatus &status,
                  const std::vector<ThreadReading> &threads, darwin::proc_taskinfo &info);
// Times are nanoseconds, as the timebase of 1/1 says.
void fillResourceUsage(const ProcessStat &stat, const ProcessStatus &status, const ProcessIO &io,
                       darwin::rusage_info_v4 &usage);

}  // namespace host::linux_machine
