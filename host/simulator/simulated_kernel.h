// What a simulated device's kernel says of itself, who asks it, and the time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/machine/kernel.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

class SimulatedKernel : public virtual KernelQuestions {
 public:
  // `device` outlives this, so for all parts of a machine.
  explicit SimulatedKernel(LiveDevice &device) : device_(device) {}

  Errno kernelName(KernelName &name) override;
  KernelFamily kernelFamily() noexcept override;
  bool namesKernelFamily() noexcept override;
  uint64_t pageSize() noexcept override;
  darwin::mach_timebase_info_data_t timebase() noexcept override;
  bool hasEntryPoint(std::string_view name) override;
  Errno kernelExtensions(std::vector<std::string> &identifiers) override;
  bool isPrivileged() override;
  uint32_t callerUser() override;
  int64_t timeOfDay() override;
  void wallClock(darwin::timeval &time) override;
  void beginSample() override;

 private:
  LiveDevice &device_;
};

}  // namespace host::simulator
