#include "host/linux/other_networks.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "host/linux/own_thread.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

static constexpr char kNetworkFile[] = "ns/net";

NetworkKey networkOf(int processDirectory) {
  struct stat file {};
  if (fstatat(processDirectory, kNetworkFile, &file, 0) != 0) return {};
  return {file.st_dev, file.st_ino};
}

static bool readNetwork(int processDirectory, std::vector<DiagSocket> &sockets,
                        std::string &names) {
  bool isEntered = false;
  runInOwnThread([&] {
    const FileHandle network(openat(processDirectory, kNetworkFile, O_RDONLY | O_CLOEXEC));
    if (!network.isOpen() || setns(network.get(), CLONE_NEWNET) != 0) return;
    isEntered = true;
    SockDiag kernel;
    dumpLocalSockets(kernel, sockets, names);
    dumpInternetSockets(kernel, sockets, names);
  });
  // The numbers of interfaces have other names here.
  for (DiagSocket &socket : sockets) socket.interfaceIndex = 0;
  return isEntered;
}

struct OtherNetworks::Network {
  Network(const NetworkKey &itsKey, const Dump &dump)
      : key(itsKey),
        table({[this, &dump](std::vector<DiagSocket> &sockets, std::string &names) {
                isEntered = dump(processDirectory, sockets, names);
              }},
              std::chrono::steady_clock::now) {}

  const NetworkKey key;
  int processDirectory = -1;  // of the process that is asked about
  bool isEntered = false;
  SocketTable table;
};

OtherNetworks::OtherNetworks() : OtherNetworks(readNetwork) {}
OtherNetworks::OtherNetworks(Dump dump) : dump_(std::move(dump)) {}
OtherNetworks::~OtherNetworks() = default;

void OtherNetworks::beginPass() {
  networks_.clear();
}

// Null when there are too many already.
OtherNetworks::Network *OtherNetworks::find(const NetworkKey &key) {
  const auto found = std::find_if(networks_.begin(), networks_.end(),
                                  [&key](const auto &network) { return network->key == key; });
  if (found != networks_.end()) return found->get();
  if (networks_.size() >= kMost) return nullptr;
  return networks_.emplace_back(std::make_unique<Network>(key, dump_)).get();
}

bool OtherNetworks::isListed(const NetworkKey &network) const {
  return std::any_of(networks_.begin(), networks_.end(), [&network](const auto &known) {
    return known->key == network && known->isEntered;
  });
}

bool OtherNetworks::describe(int processDirectory, const NetworkKey &network, uint64_t inode,
                             darwin::socket_info &info) {
  Network *known = find(network);
  if (known == nullptr) return false;
  known->processDirectory = processDirectory;
  return known->table.describe(inode, info);
}

}  // namespace host::linux_machine
