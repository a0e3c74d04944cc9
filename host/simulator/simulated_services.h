// What the services of a simulated device say: of its identity, and of what feeds it.
#pragma once

#include <string_view>

#include "host/machine/identity.h"
#include "host/machine/power.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

class SimulatedServices : public virtual IdentityQuestions, public virtual PowerQuestions {
 public:
  explicit SimulatedServices(LiveDevice &device) : device_(device) {}

  bool hasGestalt() override;
  // DARWIN_ENOENT for a key that the device does not have.
  Errno gestaltAnswer(std::string_view key, GestaltAnswer &answer) override;
  Errno powerStatus(PowerStatus &status) override;

 private:
  LiveDevice &device_;
};

}  // namespace host::simulator
