#include "host/simulator/simulated_networks.h"

#include "host/simulator/network_answers.h"

namespace host::simulator {

// The service asks no privilege, and there is always room for one more client.
Errno SimulatedNetworks::networkStatistics() {
  return device_.ask(Question::networkStatistics, [](const Moment &) {});
}

Errno SimulatedNetworks::networkSubscription() {
  return device_.ask(Question::networkSubscription, [](const Moment &) {});
}

uint64_t SimulatedNetworks::firstNetworkReference() {
  return device_.description().kernel.firstSource;
}

Errno SimulatedNetworks::networkSources(std::vector<NetworkSource> &sources) {
  return device_.ask(Question::networkSources, [&](const Moment &at) {
    sources.clear();
    if (at.device().tellsInBackground) {
      sources = simulator::networkSources(at.state.processes(), at.device().countsSockets, at.now);
    }
  });
}

Errno SimulatedNetworks::interfaces(std::vector<NetworkInterface> &interfaces) {
  return device_.ask(Question::interfaces, [&](const Moment &at) {
    interfaces = networkInterfaces(at.device().interfaces, at.now);
  });
}

Errno SimulatedNetworks::wirelessNetwork(const std::string &interface, WirelessNetwork &network) {
  return device_.ask(Question::wirelessNetwork, [&](const Moment &at) {
    return fillWirelessNetwork(at.device().wifi, interface, network);
  });
}

}  // namespace host::simulator
