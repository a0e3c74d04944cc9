// Tells what happens to the processes of a simulated device.
#pragma once

#include <memory>

#include "host/machine/events.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

class SimulatedEvents : public virtual EventQuestions {
 public:
  // Shares the device: a watch may live longer than the machine.
  explicit SimulatedEvents(std::shared_ptr<LiveDevice> device) : device_(std::move(device)) {}

  Errno processEvents(std::unique_ptr<ProcessEvents> &watch) override;

 private:
  std::shared_ptr<LiveDevice> device_;
};

}  // namespace host::simulator
