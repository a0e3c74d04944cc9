// A machine with network sources, interfaces and Wi-Fi that a test fills in, also while other
// threads ask.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "tests/unit/entry_machine.h"

namespace entry_test {

class NetworkMachine : public EntryMachine {
 public:
  host::Errno service = host::kAnswered;
  host::Errno subscriptionRefusal = host::kAnswered;
  uint64_t firstReference = 1;
  host::Errno sourcesRefusal = host::kAnswered;
  host::Errno interfacesRefusal = host::kAnswered;
  std::vector<host::NetworkInterface> links;
  std::map<std::string, host::WirelessNetwork> wireless;

  void setSources(std::vector<host::NetworkSource> sources) {
    const std::lock_guard<std::mutex> lock(mutex_);
    sources_ = std::move(sources);
  }

  // A kernel of this family, by uname() too. Without it there is none that a version names.
  void present(host::KernelFamily kernel) {
    family = kernel;
    name.version = "Darwin Kernel Version: root:xnu-" + std::to_string(kernel) + ".1~1";
  }
  bool namesKernelFamily() noexcept override { return host::namesKernelFamily(name.version); }

  host::Errno networkStatistics() override { return service; }
  host::Errno networkSubscription() override { return subscriptionRefusal; }
  uint64_t firstNetworkReference() override { return firstReference; }
  host::Errno networkSources(std::vector<host::NetworkSource> &out) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    errno = kForeignErrno;
    if (sourcesRefusal == host::kAnswered) out = sources_;
    return sourcesRefusal;
  }
  host::Errno interfaces(std::vector<host::NetworkInterface> &out) override {
    if (told(interfacesRefusal) == host::kAnswered) out = links;
    return interfacesRefusal;
  }
  host::Errno wirelessNetwork(const std::string &interface, host::WirelessNetwork &out) override {
    const auto found = told(wireless.find(interface));
    if (found == wireless.end()) return darwin::DARWIN_ENXIO;
    out = found->second;
    return host::kAnswered;
  }

 private:
  std::mutex mutex_;
  std::vector<host::NetworkSource> sources_;
};

inline host::NetworkSource makeSource(uint64_t key, int32_t pid, uint64_t received, uint64_t sent,
                                      host::NetworkProvider provider = host::NetworkProvider::tcp) {
  host::NetworkSource source;
  source.key = key;
  source.provider = provider;
  source.pid = pid;
  source.process = "process" + std::to_string(pid);
  source.receivedBytes = received;
  source.receivedPackets = received / 100;
  source.sentBytes = sent;
  source.sentPackets = sent / 100;
  return source;
}

using NetworkTest = fake_machine::MachineTest<NetworkMachine>;

}  // namespace entry_test
