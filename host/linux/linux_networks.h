// What this machine says of its networks.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "host/linux/interfaces.h"
#include "host/linux/shared_processes.h"
#include "host/linux/tcp_totals.h"
#include "host/linux/wireless.h"
#include "host/machine/networks.h"

namespace host::linux_machine {

class LinuxNetworks : public virtual NetworkQuestions {
 public:
  explicit LinuxNetworks(SharedProcesses &processes) : shared_(processes) {}

  // TCP sockets with an owner that the caller may look at.
  Errno networkStatistics() override;
  Errno networkSources(std::vector<NetworkSource> &sources) override;
  Errno interfaces(std::vector<NetworkInterface> &interfaces) override;
  Errno wirelessNetwork(const std::string &interface, WirelessNetwork &network) override;

 private:
  SharedProcesses &shared_;

  // Asked about while a sample is taken: apart, so that neither waits for the other.
  std::mutex mutex_;
  TcpTotals tcpTotals_;
  Interfaces interfaces_;
  Wireless wireless_;
};

}  // namespace host::linux_machine
