#include "host/simulator/simulated_machine.h"

#include <utility>

namespace host::simulator {

SimulatedMachine::SimulatedMachine(Device device)
    : SimulatedMachine(std::make_shared<LiveDevice>(std::move(device))) {}

SimulatedMachine::SimulatedMachine(std::shared_ptr<LiveDevice> device)
    : SimulatedKernel(*device),
      SimulatedProcesses(*device),
      SimulatedTasks(*device),
      SimulatedDescriptors(*device),
      SimulatedHost(*device),
      SimulatedMemoryStatus(device),
      SimulatedNetworks(*device),
      SimulatedServices(*device),
      SimulatedEvents(device),
      device_(std::move(device)) {}

SimulatedMachine::~SimulatedMachine() {
  device_->leave();
}

Nanoseconds SimulatedMachine::now() const {
  return device_->now();
}

void SimulatedMachine::advance(Nanoseconds by) {
  device_->advance(by);
}

void SimulatedMachine::happen(const Action &action, std::optional<Nanoseconds> lasts) {
  device_->look([&](const Moment &at) { at.state.perform(action, at.now, lasts); });
  device_->wake();
}

size_t SimulatedMachine::callsOf(std::string_view call) const {
  return device_->countOf(call);
}

std::optional<LastPressure> SimulatedMachine::lastPressure() {
  return device_->look([](const Moment &at) { return at.state.pressure().last(); });
}

std::optional<Power> SimulatedMachine::power() {
  return device_->look([](const Moment &at) { return at.device().power; });
}

}  // namespace host::simulator
