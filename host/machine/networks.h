// Questions about networks: interfaces, Wi-Fi, and the traffic of sockets.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "host/errno.h"

namespace host {

// One end of a connection. An IPv4 address fills the first four bytes.
struct NetworkEndpoint {
  int family = 0;  // DARWIN_AF_INET or DARWIN_AF_INET6
  std::array<uint8_t, 16> address{};
  uint16_t port = 0;   // host order
  uint32_t scope = 0;  // of an IPv6 address
};

// Who counts the traffic of a socket, the kernel's protocols or those that a process has in itself.
// Kernels number them differently, and early ones have only the kernel's.
enum class NetworkProvider : uint8_t { tcp, userlandTCP, udp, userlandUDP, quic };

// A socket whose traffic is counted. The totals run since the socket appeared.
struct NetworkSource {
  uint64_t key = 0;  // stays the same while the socket lives, and is not used again
  NetworkProvider provider = NetworkProvider::tcp;
  int32_t pid = 0;      // its owner; 0 if not known
  std::string process;  // the owner's name
  NetworkEndpoint local;
  NetworkEndpoint remote;
  uint32_t interfaceIndex = 0;
  int32_t state = 0;  // TSI_S_* of TCP
  uint64_t receivedPackets = 0;
  uint64_t receivedBytes = 0;
  uint64_t sentPackets = 0;
  uint64_t sentBytes = 0;
};

// A network interface and its traffic since it appeared.
struct NetworkInterface {
  std::string name;
  uint16_t index = 0;
  uint8_t type = 0;    // IFT_*
  uint32_t flags = 0;  // with Darwin's numbers
  uint32_t mtu = 0;
  uint64_t speed = 0;  // bits per second; 0 if not known
  uint64_t receivedPackets = 0;
  uint64_t receivedErrors = 0;
  uint64_t receivedBytes = 0;
  uint64_t receivedMulticasts = 0;
  uint64_t droppedOnInput = 0;
  uint64_t sentPackets = 0;
  uint64_t sentErrors = 0;
  uint64_t sentBytes = 0;
  uint64_t collisions = 0;
};

// What a Wi-Fi interface is connected to.
struct WirelessNetwork {
  bool connected = false;
  std::string name;  // at most 32 bytes, of any kind
  uint32_t channel = 0;
  uint32_t channelFlags = 0;
  std::vector<int32_t> radios;  // dBm of each, at most 4
  int32_t signal = 0;           // dBm over all radios
};

class NetworkQuestions {
 public:
  // Whether the statistics service takes one more client: DARWIN_EBUSY when another program holds
  // it, DARWIN_EPERM when the caller may not, DARWIN_ENOTSUP from a kernel without.
  virtual Errno networkStatistics() { return darwin::DARWIN_ENOTSUP; }
  // Whether a client may subscribe to any provider: DARWIN_EPERM when it may not.
  virtual Errno networkSubscription() { return kAnswered; }
  // The reference of the first source that a client is told of, where the kernel has wide ones.
  virtual uint64_t firstNetworkReference() { return 1; }
  // All sources that the caller may know of, in any order.
  virtual Errno networkSources(std::vector<NetworkSource> &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno interfaces(std::vector<NetworkInterface> &) { return darwin::DARWIN_ENOTSUP; }
  // DARWIN_ENXIO for a name that is no Wi-Fi interface's.
  virtual Errno wirelessNetwork(const std::string & /*interface*/, WirelessNetwork &) {
    return darwin::DARWIN_ENOTSUP;
  }

 protected:
  ~NetworkQuestions() = default;
};

NetworkQuestions &networks();

}  // namespace host
