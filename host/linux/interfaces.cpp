#include "host/linux/interfaces.h"

#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <utility>

#include "host/darwin/errors.h"
#include "host/darwin/interfaces.h"

namespace host::linux_machine {

namespace {

constexpr uint32_t kDarwinMulticast = 0x8000;
constexpr uint64_t kBitsPerMegabit = 1000000;

// The same on both systems.
constexpr uint32_t kCommonFlags = IFF_UP | IFF_BROADCAST | IFF_DEBUG | IFF_LOOPBACK |
                                  IFF_POINTOPOINT | IFF_RUNNING | IFF_NOARP | IFF_PROMISC |
                                  IFF_ALLMULTI;

void fillTraffic(Span attribute, NetworkInterface &interface) {
  rtnl_link_stats64 traffic = {};
  std::memcpy(&traffic, attribute.bytes, std::min(attribute.size, sizeof(traffic)));
  interface.receivedPackets = traffic.rx_packets;
  interface.receivedErrors = traffic.rx_errors;
  interface.receivedBytes = traffic.rx_bytes;
  interface.receivedMulticasts = traffic.multicast;
  interface.droppedOnInput = traffic.rx_dropped;
  interface.sentPackets = traffic.tx_packets;
  interface.sentErrors = traffic.tx_errors;
  interface.sentBytes = traffic.tx_bytes;
  interface.collisions = traffic.collisions;
}

}  // namespace

uint8_t interfaceType(uint16_t hardware) {
  switch (hardware) {
    case ARPHRD_LOOPBACK:
      return darwin::IFT_LOOP;
    case ARPHRD_SLIP:
    case ARPHRD_PPP:
    case ARPHRD_TUNNEL:
    case ARPHRD_TUNNEL6:
    case ARPHRD_SIT:
    case ARPHRD_IPGRE:
    case ARPHRD_IP6GRE:
    case ARPHRD_NONE:
      return darwin::IFT_PPP;
    default:
      return darwin::IFT_ETHER;
  }
}

uint32_t interfaceFlags(uint32_t flags) {
  const uint32_t multicast = (flags & IFF_MULTICAST) != 0 ? kDarwinMulticast : 0;
  return (flags & kCommonFlags) | multicast;
}

uint64_t interfaceSpeed(std::string_view text) {
  int64_t megabits = 0;
  if (!TextCursor(text.substr(0, text.find('\n'))).number(megabits) || megabits < 0) return 0;
  return static_cast<uint64_t>(megabits) * kBitsPerMegabit;
}

bool parseInterface(Span payload, NetworkInterface &interface) {
  ifinfomsg message;
  if (!payload.read(0, message)) return false;
  NetworkInterface parsed;
  parsed.index = saturate<uint16_t>(static_cast<uint64_t>(std::max(message.ifi_index, 0)));
  parsed.type = interfaceType(message.ifi_type);
  parsed.flags = interfaceFlags(message.ifi_flags);
  eachAttribute(payload.from(NLMSG_ALIGN(sizeof(message))), [&](int type, Span attribute) {
    if (type == IFLA_IFNAME) parsed.name = attribute.text();
    if (type == IFLA_MTU) attribute.read(0, parsed.mtu);
    if (type == IFLA_STATS64) fillTraffic(attribute, parsed);
  });
  if (parsed.name.empty()) return false;
  interface = std::move(parsed);
  return true;
}

Errno Interfaces::list(std::vector<NetworkInterface> &interfaces) {
  NetlinkRequest request;
  request.append(ifinfomsg{});
  std::vector<NetworkInterface> listed;
  const auto add = [&](uint16_t type, Span payload) {
    return type != RTM_NEWLINK || parseInterface(payload, listed.emplace_back());
  };
  const DumpProgress progress = listWhole(
      [&] { return kernel_.ask(request, RTM_GETLINK, NLM_F_DUMP, add); }, [&] { listed.clear(); });
  if (progress.malformed) return darwin::DARWIN_EIO;
  if (progress.error != 0) return darwinError(progress.error);
  for (NetworkInterface &interface : listed) {
    if (interface.type != darwin::IFT_ETHER) continue;
    const std::string path = "/sys/class/net/" + interface.name + "/speed";
    std::string_view text;
    // An interface without a link, or without a speed, refuses to be read.
    if (reader_.readRecord(AT_FDCWD, path.c_str(), text) == kAnswered) {
      interface.speed = interfaceSpeed(text);
    }
  }
  interfaces = std::move(listed);
  return kAnswered;
}

}  // namespace host::linux_machine
