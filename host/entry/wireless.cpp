#include "host/entry/wireless.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "host/darwin/errors.h"
#include "host/entry/answer.h"
#include "host/machine/networks.h"

namespace host {

namespace {

constexpr uint32_t kNothingAsked = 0;

template <typename Reply>
Errno give(const Reply &reply, darwin::apple80211req &request) {
  if (request.req_len < sizeof reply) return darwin::DARWIN_EINVAL;
  return copyOut(&reply, sizeof reply, request.req_data);
}

Errno giveName(const WirelessNetwork &network, darwin::apple80211req &request) {
  const size_t length =
      std::min<size_t>({network.name.size(), request.req_len, darwin::APPLE80211_MAX_SSID_LEN});
  const Errno error = copyOut(network.name.data(), length, request.req_data);
  if (error == kAnswered) request.req_len = static_cast<uint32_t>(length);
  return error;
}

Errno giveChannel(const WirelessNetwork &network, darwin::apple80211req &request) {
  darwin::apple80211_channel_data reply{};
  reply.version = reply.channel_version = 1;
  reply.channel = network.channel;
  reply.flags = network.channelFlags;
  return give(reply, request);
}

Errno giveSignal(const WirelessNetwork &network, darwin::apple80211req &request) {
  darwin::apple80211_rssi_data reply{};
  reply.version = 1;
  const size_t radios = std::min(network.radios.size(), std::size(reply.rssi));
  reply.num_radios = static_cast<uint32_t>(radios);
  std::copy_n(network.radios.begin(), radios, reply.rssi);
  reply.aggregate_rssi = network.signal;
  return give(reply, request);
}

Errno ask(darwin::apple80211req &request) {
  const std::string interface(request.req_if_name,
                              strnlen(request.req_if_name, sizeof request.req_if_name));
  WirelessNetwork network;
  const Errno error = networks().wirelessNetwork(interface, network);
  if (error == darwin::DARWIN_ENOTSUP) return darwin::DARWIN_ENXIO;
  if (error != kAnswered || request.req_type == kNothingAsked) return error;
  if (!network.connected) return darwin::DARWIN_ENOTCONN;
  switch (request.req_type) {
    case darwin::APPLE80211_IOC_SSID:
      return giveName(network, request);
    case darwin::APPLE80211_IOC_CHANNEL:
      return giveChannel(network, request);
    case darwin::APPLE80211_IOC_RSSI:
      return giveSignal(network, request);
    default:
      return darwin::DARWIN_EOPNOTSUPP;
  }
}

}  // namespace

Errno wirelessRequest(darwin::apple80211req *request) noexcept {
  if (request == nullptr) return darwin::DARWIN_EFAULT;
  return guarded([request] { return ask(*request); });
}

}  // namespace host
