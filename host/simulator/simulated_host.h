// What a simulated device says of itself as a whole.
#pragma once

#include "host/machine/host_figures.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

class SimulatedHost : public virtual HostQuestions {
 public:
  explicit SimulatedHost(LiveDevice &device) : device_(device) {}

  Errno hostBasicInfo(darwin::host_basic_info &info) override;
  Errno virtualMemory(darwin::vm_statistics64 &statistics) override;
  Errno processorCount(unsigned int &count) override;
  Errno processorLoad(unsigned int processor, darwin::processor_cpu_load_info &load) override;
  Errno bootTime(darwin::timeval &time) override;
  Errno loadAverage(darwin::loadavg &averages) override;
  Errno swapUsage(darwin::xsw_usage &usage) override;

 private:
  LiveDevice &device_;
};

}  // namespace host::simulator
