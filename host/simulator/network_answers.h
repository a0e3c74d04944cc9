// What a kernel says about the network of a simulated device: its interfaces, what its Wi-Fi is
// connected to, and the traffic of its sockets.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/machine/networks.h"
#include "host/simulator/device.h"
#include "host/simulator/process_table.h"

namespace host::simulator {

// In the order of the description, with indices from 1 on.
std::vector<NetworkInterface> networkInterfaces(const std::vector<Interface> &interfaces,
                                                Nanoseconds now);

// DARWIN_ENXIO for another interface than the one that is described.
Errno fillWirelessNetwork(const std::optional<WiFi> &wifi, const std::string &interface,
                          WirelessNetwork &network);

// Each socket once: of those that share one, the process that started first is its owner.
std::vector<NetworkSource> networkSources(const ProcessTable &processes, bool countsSockets,
                                          Nanoseconds now);

}  // namespace host::simulator
