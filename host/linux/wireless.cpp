#include "host/linux/wireless.h"
#include "host/darwin/errors.h"

#include <linux/genetlink.h>
#include <linux/nl80211.h>

#include <memory>
#include <utility>

namespace host::linux_machine {

namespace {

constexpr char kFamily[] = "nl80211";
constexpr char kFirstInterface[] = "en0";
constexpr size_t kMostRadios = 4;
constexpr size_t kLongestNetworkName = 32;

genlmsghdr command(uint8_t number, uint8_t version) {
  genlmsghdr header = {};
  header.cmd = number;
  header.version = version;
  return header;
}

// A level in dBm, sent as one byte.
bool readLevel(Span attribute, int32_t &level) {
  uint8_t byte = 0;
  if (!attribute.read(0, byte)) return false;
  level = byte <= INT8_MAX ? byte : byte - 256;
  return true;
}

}  // namespace

uint32_t channelOf(uint32_t megahertz) {
  struct Band {
    uint32_t first;  // of channel 1
    uint32_t last;
    uint32_t base;  // what channel 0 would have
  };
  constexpr Band kBands[] = {{2412, 2472, 2407}, {5005, 5885, 5000}, {5955, 7115, 5950}};
  constexpr uint32_t kStep = 5;
  if (megahertz == 2484) return 14;  // stands apart from the others of its band
  if (megahertz == 5935) return 2;   // the same
  for (const Band &band : kBands) {
    const bool within = megahertz >= band.first && megahertz <= band.last;
    if (within && (megahertz - band.base) % kStep == 0) return (megahertz - band.base) / kStep;
  }
  return 0;
}

Wireless::Wireless()
    : Wireless([kernel = std::make_shared<NetlinkConnection>(NETLINK_GENERIC)](
                   const NetlinkRequest &request, uint16_t type, uint16_t flags,
                   const Visitor &visit) { return kernel->ask(request, type, flags, visit); }) {}

Wireless::Wireless(Ask ask) : ask_(std::move(ask)) {}

// The family's number, which the kernel gives out anew when the module is loaded.
bool Wireless::findFamily() {
  if (family_ != 0) return true;
  NetlinkRequest request;
  request.append(command(CTRL_CMD_GETFAMILY, 1));
  request.appendText(CTRL_ATTR_FAMILY_NAME, kFamily);
  const DumpProgress progress =
      ask_(request, GENL_ID_CTRL, NLM_F_ACK, [this](uint16_t, Span payload) {
        eachAttribute(payload.from(GENL_HDRLEN), [this](int type, Span attribute) {
          if (type == CTRL_ATTR_FAMILY_ID) attribute.read(0, family_);
        });
        return true;
      });
  if (progress.malformed || progress.error != 0) family_ = 0;
  return family_ != 0;
}

// Visits the attributes of each entry that the family lists.
DumpProgress Wireless::list(uint8_t number, uint32_t index,
                            const std::function<void(Span)> &visit) {
  NetlinkRequest request;
  request.append(command(number, 0));
  if (index != 0) {
    request.append(nlattr{NLA_HDRLEN + sizeof(uint32_t), NL80211_ATTR_IFINDEX});
    request.append(index);
  }
  return ask_(request, family_, NLM_F_DUMP, [&](uint16_t type, Span payload) {
    if (type == family_) visit(payload.from(GENL_HDRLEN));
    return true;
  });
}

std::optional<Wireless::Found> Wireless::findInterface(const std::string &name) {
  std::optional<Found> named;
  std::optional<Found> first;
  const DumpProgress progress = list(NL80211_CMD_GET_INTERFACE, 0, [&](Span attributes) {
    Found found;
    eachAttribute(attributes, [&found](int type, Span attribute) {
      if (type == NL80211_ATTR_IFINDEX) attribute.read(0, found.index);
      if (type == NL80211_ATTR_IFNAME) found.name = attribute.text();
      if (type == NL80211_ATTR_WIPHY_FREQ) attribute.read(0, found.megahertz);
      if (type == NL80211_ATTR_SSID) {
        found.ssid.assign(reinterpret_cast<const char *>(attribute.bytes),
                          std::min(attribute.size, kLongestNetworkName));
      }
    });
    // What only watches, or is not up to anything, has no name.
    if (found.index == 0 || found.name.empty()) return;
    if (found.name == name) named = found;
    if (!first || found.index < first->index) first = found;
  });
  if (progress.malformed || progress.error != 0) {
    family_ = 0;
    return std::nullopt;
  }
  return !named && name == kFirstInterface ? first : named;
}

// The access point is the one station that a connected interface knows. False when there is none.
bool Wireless::readStation(uint32_t index, WirelessNetwork &network) {
  bool hasSignal = false;
  const DumpProgress progress = list(NL80211_CMD_GET_STATION, index, [&](Span attributes) {
    eachAttribute(attributes, [&](int type, Span station) {
      if (type != NL80211_ATTR_STA_INFO || hasSignal) return;
      eachAttribute(station, [&](int detail, Span attribute) {
        if (detail == NL80211_STA_INFO_SIGNAL && readLevel(attribute, network.signal)) {
          hasSignal = true;
        }
        if (detail != NL80211_STA_INFO_CHAIN_SIGNAL) return;
        eachAttribute(attribute, [&](int, Span chain) {
          int32_t level = 0;
          if (network.radios.size() < kMostRadios && readLevel(chain, level)) {
            network.radios.push_back(level);
          }
        });
      });
    });
  });
  return hasSignal && !progress.malformed && progress.error == 0;
}

Errno Wireless::network(const std::string &interface, WirelessNetwork &network) {
  if (!findFamily()) return darwin::DARWIN_ENXIO;
  const std::optional<Found> found = findInterface(interface);
  if (!found) return darwin::DARWIN_ENXIO;
  WirelessNetwork answer;
  answer.name = found->ssid;
  answer.channel = channelOf(found->megahertz);
  answer.connected = !answer.name.empty() && readStation(found->index, answer);
  network = answer.connected ? answer : WirelessNetwork{};
  return kAnswered;
}

}  // namespace host::linux_machine
