// What a simulated device lets be seen of the inside of its processes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/machine/tasks.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

// As for all that a process holds: root's, and each user's of his own.
class SimulatedTasks : public virtual TaskQuestions {
 public:
  explicit SimulatedTasks(LiveDevice &device) : device_(device) {}

  Errno taskPort(pid_t pid) override;
  Errno taskNamePort(pid_t pid) override;
  Errno kernelTaskPort() override;
  Errno region(pid_t pid, uint64_t address, darwin::proc_regionwithpathinfo &info) override;
  Errno readMemory(pid_t pid, uint64_t address, size_t size, void *to) override;
  Errno pages(pid_t pid, uint64_t address, size_t count, int *to) override;
  Errno threadRegisters(pid_t pid, uint64_t id, ThreadRegisters &registers) override;

 private:
  LiveDevice &device_;
};

}  // namespace host::simulator
