#include "host/entry/network_statistics.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "darwin/socket.h"
#include "host/darwin/errors.h"
#include "host/darwin/ntstat.h"
#include "host/entry/answer.h"
#include "host/machine/networks.h"

namespace host {

namespace {

using Datagram = NetworkStatistics::Datagram;

template <typename T>
bool readWhole(const uint8_t *bytes, size_t size, T &message) {
  if (size < sizeof(T)) return false;
  std::memcpy(&message, bytes, sizeof(T));
  return true;
}

template <typename T>
void append(const T &part, Datagram &datagram) {
  const auto *bytes = reinterpret_cast<const uint8_t *>(&part);
  datagram.insert(datagram.end(), bytes, bytes + sizeof(T));
}

template <typename T>
void send(const T &message, std::deque<Datagram> &out) {
  append(message, out.emplace_back());
}

darwin::nstat_msg_hdr header(uint32_t type, uint64_t context) {
  darwin::nstat_msg_hdr made{};
  made.context = context;
  made.type = type;
  return made;
}

void fillAddress(const NetworkEndpoint &endpoint, darwin::nstat_address &address) {
  const bool isIPv6 = endpoint.family == darwin::DARWIN_AF_INET6;
  address = {};
  address.length = isIPv6 ? 28 : 16;
  address.family = static_cast<uint8_t>(endpoint.family);
  address.port = htons(endpoint.port);
  if (isIPv6) {
    std::memcpy(&address.words[1], endpoint.address.data(), 16);
    address.words[5] = endpoint.scope;
  } else {
    std::memcpy(&address.words[0], endpoint.address.data(), 4);
  }
}

// What the descriptors of both providers have.
template <typename Descriptor>
Descriptor describeOwner(const NetworkSource &source) {
  Descriptor descriptor{};
  fillAddress(source.local, descriptor.local);
  fillAddress(source.remote, descriptor.remote);
  descriptor.ifindex = source.interfaceIndex;
  descriptor.upid = descriptor.eupid = static_cast<uint64_t>(static_cast<uint32_t>(source.pid));
  descriptor.pid = descriptor.epid = static_cast<uint32_t>(source.pid);
  const size_t length = std::min(source.process.size(), sizeof descriptor.pname - 1);
  std::memcpy(descriptor.pname, source.process.data(), length);
  return descriptor;
}

}  // namespace

uint32_t NetworkStatistics::takeReference() {
  // The smallest, so that a client's table stays as small as the number of sources.
  if (!free_.empty()) return free_.extract(free_.begin()).value();
  return next_++;
}

void NetworkStatistics::add(const NetworkSource &traffic, std::deque<Datagram> &out) {
  const uint32_t reference = takeReference();
  references_[{traffic.provider, traffic.key}] = reference;
  sources_[reference].traffic = traffic;
  darwin::nstat_msg_src_added message{};
  message.hdr = header(darwin::NSTAT_MSG_TYPE_SRC_ADDED, 0);
  message.provider = traffic.provider;
  message.srcref = reference;
  send(message, out);
}

void NetworkStatistics::sendCounts(uint32_t reference, Source &source, uint64_t context,
                                   std::deque<Datagram> &out) {
  darwin::nstat_msg_src_counts message{};
  message.hdr = header(darwin::NSTAT_MSG_TYPE_SRC_COUNTS, context);
  message.srcref = reference;
  message.counts.nstat_rxpackets = source.traffic.receivedPackets;
  message.counts.nstat_rxbytes = source.traffic.receivedBytes;
  message.counts.nstat_txpackets = source.traffic.sentPackets;
  message.counts.nstat_txbytes = source.traffic.sentBytes;
  send(message, out);
  source.counted = true;
}

void NetworkStatistics::sendDescription(uint32_t reference, Source &source, uint64_t context,
                                        std::deque<Datagram> &out) {
  darwin::nstat_msg_src_description message{};
  message.hdr = header(darwin::NSTAT_MSG_TYPE_SRC_DESC, context);
  message.srcref = reference;
  message.provider = source.traffic.provider;
  Datagram &datagram = out.emplace_back();
  append(message, datagram);
  if (source.traffic.provider == darwin::NSTAT_PROVIDER_TCP) {
    auto descriptor = describeOwner<darwin::nstat_tcp_descriptor>(source.traffic);
    descriptor.state = static_cast<uint32_t>(source.traffic.state);
    append(descriptor, datagram);
  } else {
    append(describeOwner<darwin::nstat_udp_descriptor>(source.traffic), datagram);
  }
  source.described = true;
}

// Takes in what the machine has now. A source that has another owner than before counts as gone and
// come again: a client asks for the owner only once.
Errno NetworkStatistics::refresh(uint64_t context, Detail detail, std::deque<Datagram> &out) {
  std::vector<NetworkSource> present;
  const Errno error = guarded([&] { return networks().networkSources(present); });
  if (error != kAnswered) return error;
  std::erase_if(present, [this](const NetworkSource &source) {
    return !providers_.contains(source.provider);
  });

  std::set<uint32_t> stayed;
  std::vector<const NetworkSource *> came;
  for (NetworkSource &source : present) {
    const auto known = references_.find({source.provider, source.key});
    if (known != references_.end() && sources_[known->second].traffic.pid == source.pid) {
      sources_[known->second].traffic = source;
      stayed.insert(known->second);
    } else {
      came.push_back(&source);
    }
  }
  for (auto entry = sources_.begin(); entry != sources_.end();) {
    auto &[reference, source] = *entry;
    if (stayed.contains(reference)) {
      ++entry;
      continue;
    }
    const bool all = detail == Detail::all;
    if (all || !source.counted) sendCounts(reference, source, context, out);
    if (all || !source.described) sendDescription(reference, source, 0, out);
    darwin::nstat_msg_src_removed message{};
    message.hdr = header(darwin::NSTAT_MSG_TYPE_SRC_REMOVED, 0);
    message.srcref = reference;
    send(message, out);
    references_.erase({source.traffic.provider, source.traffic.key});
    free_.insert(reference);
    entry = sources_.erase(entry);
  }
  for (const NetworkSource *source : came) {
    // The machine names each source once; what it repeats is one source all the same.
    if (!references_.contains({source->provider, source->key})) add(*source, out);
  }
  return kAnswered;
}

Errno NetworkStatistics::addAll(uint32_t provider, std::deque<Datagram> &out) {
  const bool exists =
      provider >= darwin::NSTAT_PROVIDER_ROUTE && provider <= darwin::NSTAT_PROVIDER_SYSINFO;
  if (!exists) return darwin::DARWIN_ENOENT;
  const bool hasSources =
      provider == darwin::NSTAT_PROVIDER_TCP || provider == darwin::NSTAT_PROVIDER_UDP;
  if (!hasSources) return darwin::DARWIN_ENOTSUP;
  if (!providers_.insert(provider).second) return darwin::DARWIN_EALREADY;
  const Errno error = refresh(0, Detail::asked, out);
  if (error != kAnswered) providers_.erase(provider);
  return error;
}

Errno NetworkStatistics::query(uint32_t reference, uint64_t context, std::deque<Datagram> &out) {
  if (reference != darwin::NSTAT_SRC_REF_ALL) {
    const auto found = sources_.find(reference);
    if (found == sources_.end()) return darwin::DARWIN_ENOENT;
    sendCounts(reference, found->second, context, out);
    return kAnswered;
  }
  // What the machine can't say anew is told as it was.
  refresh(context, Detail::all, out);
  for (auto &[each, source] : sources_) sendCounts(each, source, context, out);
  return kAnswered;
}

Errno NetworkStatistics::describe(uint32_t reference, uint64_t context, std::deque<Datagram> &out) {
  const auto found = sources_.find(reference);
  if (found == sources_.end()) return darwin::DARWIN_ENOENT;
  sendDescription(reference, found->second, context, out);
  return kAnswered;
}

void NetworkStatistics::answer(const uint8_t *bytes, size_t size, std::deque<Datagram> &out) {
  darwin::nstat_msg_hdr asked;
  if (!readWhole(bytes, size, asked)) return;
  // All requests have one 32-bit word behind the header.
  darwin::nstat_msg_query_src_req request;
  const bool isWhole = readWhole(bytes, size, request);
  Errno error = darwin::DARWIN_EINVAL;
  bool isLast = true;  // nothing else says that the answer is complete
  if (isWhole && asked.type == darwin::NSTAT_MSG_TYPE_ADD_ALL_SRCS) {
    error = addAll(request.srcref, out);
  } else if (isWhole && asked.type == darwin::NSTAT_MSG_TYPE_QUERY_SRC) {
    error = query(request.srcref, asked.context, out);
    isLast = request.srcref == darwin::NSTAT_SRC_REF_ALL;
  } else if (isWhole && asked.type == darwin::NSTAT_MSG_TYPE_GET_SRC_DESC) {
    error = describe(request.srcref, asked.context, out);
    isLast = false;
  }
  if (error != kAnswered) {
    darwin::nstat_msg_error message{};
    message.hdr = header(darwin::NSTAT_MSG_TYPE_ERROR, asked.context);
    message.error = static_cast<uint32_t>(error);
    send(message, out);
  } else if (isLast) {
    send(header(darwin::NSTAT_MSG_TYPE_SUCCESS, asked.context), out);
  }
}

void NetworkStatistics::sweep(std::deque<Datagram> &out) {
  refresh(0, Detail::asked, out);
}

}  // namespace host
