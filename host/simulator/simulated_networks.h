// What a simulated device says of its networks.
#pragma once

#include <string>
#include <vector>

#include "host/machine/networks.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

class SimulatedNetworks : public virtual NetworkQuestions {
 public:
  explicit SimulatedNetworks(LiveDevice &device) : device_(device) {}

  Errno networkStatistics() override;
  Errno networkSubscription() override;
  uint64_t firstNetworkReference() override;
  Errno networkSources(std::vector<NetworkSource> &sources) override;
  Errno interfaces(std::vector<NetworkInterface> &interfaces) override;
  Errno wirelessNetwork(const std::string &interface, WirelessNetwork &network) override;

 private:
  LiveDevice &device_;
};

}  // namespace host::simulator
