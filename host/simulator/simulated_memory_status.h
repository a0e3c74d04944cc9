// How short of memory a simulated device is.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "host/machine/memory_status.h"
#include "host/simulator/device.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

class SimulatedMemoryStatus : public virtual MemoryStatusQuestions {
 public:
  // Shares the device: the machine may go while memoryPressure waits.
  explicit SimulatedMemoryStatus(std::shared_ptr<LiveDevice> device) : device_(std::move(device)) {}

  Errno memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &entries) override;
  Errno setMemoryStatusPlace(pid_t pid, const MemoryStatusPlace &place) override;
  Errno memoryLimits(pid_t pid, darwin::memorystatus_memlimit_properties &limits) override;
  Errno setMemoryLimits(pid_t pid, const darwin::memorystatus_memlimit_properties &limits) override;
  Errno memoryStatusLevel(unsigned int &level) override;
  // Waits until there was pressure that no wait has told of yet, and answers as of that moment.
  Errno memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                       uint32_t &reclaimed) override;

 private:
  // `change(jetsam)` for what the device holds of a process; `ending` is the answer for a zombie.
  template <typename Change>
  Errno aboutJetsam(Question question, pid_t pid, Errno ending, Change &&change);

  std::shared_ptr<LiveDevice> device_;
  int64_t moves_ = 0;  // into a band, so far; while the device is looked at
};

}  // namespace host::simulator
