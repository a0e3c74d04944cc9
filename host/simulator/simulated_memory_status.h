// How short of memory a simulated device is.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "host/machine/memory_status.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

class SimulatedMemoryStatus : public virtual MemoryStatusQuestions {
 public:
  // Shares the device: the machine may go while memoryPressure waits.
  explicit SimulatedMemoryStatus(std::shared_ptr<LiveDevice> device) : device_(std::move(device)) {}

  Errno memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &entries) override;
  Errno memoryStatusLevel(unsigned int &level) override;
  // Waits until there was pressure that no wait has told of yet, and answers as of that moment.
  Errno memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                       uint32_t &reclaimed) override;

 private:
  std::shared_ptr<LiveDevice> device_;
};

}  // namespace host::simulator
