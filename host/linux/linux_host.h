// What this machine says of itself as a whole, and of how short it is of memory.
#pragma once

#include <cstdint>
#include <vector>

#include "host/linux/host_figures.h"
#include "host/linux/memory_status.h"
#include "host/linux/pressure.h"
#include "host/linux/processors.h"
#include "host/linux/shared_processes.h"
#include "host/machine/host_figures.h"
#include "host/machine/memory_status.h"

namespace host::linux_machine {

class LinuxHost : public virtual HostQuestions, public virtual MemoryStatusQuestions {
 public:
  explicit LinuxHost(SharedProcesses &processes)
      : shared_(processes), pressure_(processes.proc.get()) {}

  Errno hostBasicInfo(darwin::host_basic_info &info) override;
  Errno virtualMemory(darwin::vm_statistics64 &statistics) override;
  Errno processorCount(unsigned int &count) override;
  Errno processorLoad(unsigned int processor, darwin::processor_cpu_load_info &load) override;
  Errno bootTime(darwin::timeval &time) override;
  Errno loadAverage(darwin::loadavg &averages) override;
  Errno swapUsage(darwin::xsw_usage &usage) override;

  Errno memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &entries) override;
  Errno setMemoryStatusPlace(pid_t pid, const MemoryStatusPlace &place) override;
  Errno memoryLimits(pid_t pid, darwin::memorystatus_memlimit_properties &limits) override;
  Errno setMemoryLimits(pid_t pid, const darwin::memorystatus_memlimit_properties &limits) override;
  Errno memoryStatusLevel(unsigned int &level) override;
  Errno memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                       uint32_t &reclaimed) override;

 private:
  // A handle of a process that may be limited.
  Errno openLimited(pid_t pid, FileHandle &process);

  SharedProcesses &shared_;
  // Under the lock of the processes.
  HostFigures figures_;
  Processors processors_;
  MemoryStatus memoryStatus_;

  MemoryPressure pressure_;  // has a lock of its own: it is waited in
};

}  // namespace host::linux_machine
