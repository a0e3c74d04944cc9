#include "host/simulator/network_answers.h"

#include <algorithm>
#include <limits>
#include <unordered_set>
#include <utility>

#include "darwin/socket.h"
#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"

namespace host::simulator {

namespace {

constexpr size_t kIPv4Bytes = 4;
// What the kernel keeps of a process's name.
constexpr size_t kNameBytes = 15;

int familyOf(const Socket &socket) {
  for (const Endpoint *end : {&socket.remote, &socket.local}) {
    if (end->address.empty()) continue;
    return end->address.size() == kIPv4Bytes ? darwin::DARWIN_AF_INET : darwin::DARWIN_AF_INET6;
  }
  return socket.isIPv6 ? darwin::DARWIN_AF_INET6 : darwin::DARWIN_AF_INET;
}

NetworkEndpoint endpointOf(const Endpoint &end, int family) {
  NetworkEndpoint made;
  made.family = family;
  made.port = end.port;
  std::copy_n(end.address.begin(), std::min(end.address.size(), made.address.size()),
              made.address.begin());
  return made;
}

NetworkProvider providerOf(const Socket &socket) {
  const bool isUserland = socket.stack == NetworkStack::userland;
  if (socket.kind == darwin::SOCKINFO_TCP) {
    return isUserland ? NetworkProvider::userlandTCP : NetworkProvider::tcp;
  }
  if (socket.stack == NetworkStack::quic) return NetworkProvider::quic;
  return isUserland ? NetworkProvider::userlandUDP : NetworkProvider::udp;
}

NetworkSource sourceOf(const RunningProcess &process, uint64_t key, const Socket &socket,
                       const TrafficCounters &traffic, Nanoseconds now) {
  const Nanoseconds own = process.ownTime(now);
  const int family = familyOf(socket);
  const bool isTCP = socket.kind == darwin::SOCKINFO_TCP;
  NetworkSource source;
  source.key = key;
  source.provider = providerOf(socket);
  source.pid = process.pid();
  source.process = process.description().name.substr(0, kNameBytes);
  source.local = endpointOf(socket.local, family);
  source.remote = endpointOf(socket.remote, family);
  source.state = isTCP ? socket.tcpState : 0;
  source.receivedPackets = traffic.receivedPackets.at(own);
  source.receivedBytes = traffic.receivedBytes.at(own);
  source.sentPackets = traffic.sentPackets.at(own);
  source.sentBytes = traffic.sentBytes.at(own);
  return source;
}

// Of what a process has sent and received, whatever by.
Socket anySocket() {
  Socket socket;
  socket.kind = darwin::SOCKINFO_TCP;
  socket.tcpState = darwin::TSI_S_ESTABLISHED;
  return socket;
}

// Those that are not in the list by another process.
void addSockets(const RunningProcess &process, Nanoseconds now,
                std::unordered_set<uint64_t> &listed, std::vector<NetworkSource> &list) {
  for (const Descriptor &descriptor : process.descriptors()) {
    const Socket *socket = std::get_if<Socket>(&descriptor.object);
    if (socket == nullptr || !socket->traffic || !listed.insert(descriptor.sourceKey).second) {
      continue;
    }
    list.push_back(sourceOf(process, descriptor.sourceKey, *socket, *socket->traffic, now));
  }
}

}  // namespace

std::vector<NetworkInterface> networkInterfaces(const std::vector<Interface> &interfaces,
                                                Nanoseconds now) {
  std::vector<NetworkInterface> list;
  for (const Interface &interface : interfaces) {
    if (list.size() == std::numeric_limits<uint16_t>::max()) break;
    NetworkInterface made;
    made.name = interface.name;
    made.index = static_cast<uint16_t>(list.size() + 1);
    made.type = interface.type;
    made.flags = interface.flags;
    made.mtu = interface.mtu;
    made.speed = interface.speed;
    made.receivedPackets = interface.receivedPackets.at(now);
    made.receivedBytes = interface.receivedBytes.at(now);
    made.sentPackets = interface.sentPackets.at(now);
    made.sentBytes = interface.sentBytes.at(now);
    list.push_back(std::move(made));
  }
  return list;
}

Errno fillWirelessNetwork(const std::optional<WiFi> &wifi, const std::string &interface,
                          WirelessNetwork &network) {
  if (!wifi || wifi->interface != interface) return darwin::DARWIN_ENXIO;
  WirelessNetwork found;
  if (wifi->name) {
    found.connected = true;
    found.name = *wifi->name;
    found.channel = wifi->channel;
    found.channelFlags = wifi->channelFlags;
    found.signal = wifi->signal;
    found.radios = wifi->perRadio.empty() ? std::vector{wifi->signal} : wifi->perRadio;
  }
  network = std::move(found);
  return kAnswered;
}

std::vector<NetworkSource> networkSources(const ProcessTable &processes, bool countsSockets,
                                          Nanoseconds now) {
  std::vector<NetworkSource> list;
  std::unordered_set<uint64_t> listed;
  for (const auto &process : processes.inStartOrder()) {
    if (countsSockets) addSockets(*process, now, listed, list);
    const Process &from = process->description();
    if (from.traffic) {
      list.push_back(sourceOf(*process, from.sourceKey, anySocket(), *from.traffic, now));
    }
  }
  return list;
}

}  // namespace host::simulator
