#include "host/linux/linux_networks.h"

namespace host::linux_machine {

// There is always room for one more client.
Errno LinuxNetworks::networkStatistics() {
  return kAnswered;
}

Errno LinuxNetworks::networkSources(std::vector<NetworkSource> &sources) {
  SocketOwners owners;
  {
    const std::lock_guard lock(shared_.mutex);
    owners = shared_.known.socketOwners();
  }
  const auto isKnown = [this](int32_t pid) {
    const std::lock_guard lock(shared_.mutex);
    return shared_.hasJustListed(pid);
  };
  const std::lock_guard lock(mutex_);
  return tcpTotals_.list(owners, isKnown, sources);
}

Errno LinuxNetworks::interfaces(std::vector<NetworkInterface> &interfaces) {
  const std::lock_guard lock(mutex_);
  return interfaces_.list(interfaces);
}

Errno LinuxNetworks::wirelessNetwork(const std::string &interface, WirelessNetwork &network) {
  const std::lock_guard lock(mutex_);
  return wireless_.network(interface, network);
}

}  // namespace host::linux_machine
