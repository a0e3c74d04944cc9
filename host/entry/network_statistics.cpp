#include "host/entry/network_statistics.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "darwin/socket.h"
#include "host/darwin/errors.h"
#include "host/darwin/ntstat.h"
#include "host/entry/answer.h"

namespace host {

namespace {

using Datagram = NetworkStatistics::Datagram;
using Need = ClientQueue::Need;

// The header.
constexpr size_t kContext = 0;
constexpr size_t kType = 8;
constexpr size_t kLength = 12;
constexpr size_t kFlags = 14;
constexpr size_t kHeaderSize = 16;
// Where all messages about one source but "added" have its reference.
constexpr size_t kReference = 16;

constexpr uint32_t kUpdate = 10006;

constexpr uint32_t kQUIC = 8;

// Flags of requests and answers.
constexpr uint16_t kSupportsAggregate = 1;
constexpr uint16_t kContinuation = 2;
constexpr uint16_t kClosing = 4;
constexpr uint16_t kClosedAfterDrop = 8;

// A filter's bit: nothing is told of sources that come.
constexpr uint64_t kSuppressAdded = 0x100000;

constexpr size_t kLargestDatagram = 4096;

// Bytes of a descriptor that are not the owner's: no part of them is a valid PID.
constexpr uint8_t kFiller = 0xb1;
constexpr size_t kNameBytes = 64;
constexpr size_t kAddressBytes = 28;

template <typename T>
T get(const Datagram &message, size_t at) {
  T value;
  std::memcpy(&value, message.data() + at, sizeof value);
  return value;
}

template <typename T>
void put(uint8_t *to, T value) {
  std::memcpy(to, &value, sizeof value);
}

template <typename T>
void put(Datagram &message, size_t at, T value) {
  put(message.data() + at, value);
}

// Totals: packets and bytes that came, then those that went. Kernels know more, which stays 0.
void putCounts(const NetworkSource &source, uint8_t *counts) {
  put(counts, source.receivedPackets);
  put(counts + 8, source.receivedBytes);
  put(counts + 16, source.sentPackets);
  put(counts + 24, source.sentBytes);
}

// A socket's address of the device's form.
void putAddress(const NetworkEndpoint &endpoint, uint8_t *address) {
  const bool isIPv6 = endpoint.family == darwin::DARWIN_AF_INET6;
  std::memset(address, 0, kAddressBytes);
  address[0] = isIPv6 ? 28 : 16;
  address[1] = static_cast<uint8_t>(endpoint.family);
  put(address + 2, htons(endpoint.port));
  std::memcpy(address + (isIPv6 ? 8 : 4), endpoint.address.data(), isIPv6 ? 16 : 4);
  if (isIPv6) put(address + 24, endpoint.scope);
}

// What the oldest descriptors begin with.
void putEnds(const NetworkSource &source, uint8_t *descriptor) {
  putAddress(source.local, descriptor);
  putAddress(source.remote, descriptor + kAddressBytes);
  put(descriptor + 56, source.interfaceIndex);
  if (source.provider == NetworkProvider::tcp) put(descriptor + 60, source.state);
}

void putDescriptor(const NetworkSource &source, const DescriptorLayout &layout,
                   uint8_t *descriptor) {
  std::memset(descriptor, kFiller, layout.size);
  put(descriptor + layout.pid, source.pid);
  put(descriptor + layout.effectivePID, source.pid);
  std::memset(descriptor + layout.name, 0, kNameBytes);
  std::copy_n(source.process.begin(), std::min(source.process.size(), kNameBytes - 1),
              descriptor + layout.name);
}

}  // namespace

NetworkStatistics::NetworkStatistics(KernelFamily family, uint64_t firstReference,
                                     ClientQueue &queue)
    : layout_(statisticsLayoutOf(family)),
      queue_(queue),
      next_(layout_.hasWideReferences ? firstReference : 1) {}

uint16_t NetworkStatistics::flagsOf(const Datagram &request) const {
  return layout_.hasFlags ? get<uint16_t>(request, kFlags) : uint16_t{0};
}

Datagram NetworkStatistics::message(uint32_t type, uint64_t context, uint16_t flags,
                                    size_t size) const {
  Datagram made(size);
  put(made, kContext, context);
  put(made, kType, type);
  if (layout_.hasFlags) {
    put(made, kLength, static_cast<uint16_t>(size));
    put(made, kFlags, flags);
  }
  return made;
}

void NetworkStatistics::putReference(Datagram &message, size_t at, uint64_t reference) const {
  if (layout_.hasWideReferences) {
    put(message, at, reference);
  } else {
    put(message, at, static_cast<uint32_t>(reference));
  }
}

Datagram NetworkStatistics::about(const Source &source, Content content, uint64_t context,
                                  uint16_t flags) const {
  const NetworkProvider provider = source.traffic.provider;
  const DescriptorLayout &described = descriptorOf(layout_, provider);
  const bool isUpdate = content == Content::update;
  const size_t number = isUpdate ? layout_.updateProvider : layout_.descriptionProvider;
  const size_t descriptor = isUpdate ? layout_.updateDescriptor : layout_.descriptor;
  const bool isCounts = content == Content::counts;
  const uint32_t type = isUpdate   ? kUpdate
                        : isCounts ? darwin::NSTAT_MSG_TYPE_SRC_COUNTS
                                   : darwin::NSTAT_MSG_TYPE_SRC_DESC;
  Datagram made =
      message(type, context, flags, isCounts ? layout_.countsSize : descriptor + described.size);
  putReference(made, kReference, source.reference);
  if (content != Content::description) putCounts(source.traffic, made.data() + layout_.counts);
  if (!isCounts) {
    put(made, number, numberOf(layout_, provider));
    putDescriptor(source.traffic, described, made.data() + descriptor);
    if (!layout_.hasFlags) putEnds(source.traffic, made.data() + descriptor);
  }
  return made;
}

void NetworkStatistics::sendSuccess(uint64_t context, uint16_t flags) {
  queue_.put(message(darwin::NSTAT_MSG_TYPE_SUCCESS, context, flags, kHeaderSize), Need::vital);
}

// Its length covers the request, which is empty where it is not repeated.
void NetworkStatistics::sendError(uint64_t context, Errno error, const Datagram &request) {
  const size_t copied = layout_.hasFlags ? request.size() : 0;
  Datagram made = message(darwin::NSTAT_MSG_TYPE_ERROR, context, 0, layout_.errorSize + copied);
  put(made, kHeaderSize, static_cast<uint32_t>(error));
  std::copy_n(request.begin(), copied, made.begin() + layout_.errorSize);
  queue_.put(std::move(made), Need::vital);
}

// False when the client can't be told of it.
bool NetworkStatistics::add(const NetworkSource &traffic) {
  const Key key{traffic.provider, traffic.key};
  const uint32_t number = numberOf(layout_, traffic.provider);
  // The smallest of narrow ones, so that a client's table stays as small as the number of sources.
  const uint64_t reference = free_.empty() ? next_ : *free_.begin();
  if ((subscriptions_[number] & kSuppressAdded) == 0) {
    Datagram made = message(darwin::NSTAT_MSG_TYPE_SRC_ADDED, 0, 0, layout_.addedSize);
    put(made, layout_.addedProvider, number);
    putReference(made, layout_.addedReference, reference);
    if (!queue_.put(std::move(made))) {
      unlisted_.insert(key);
      return false;
    }
  }
  if (free_.erase(reference) == 0) next_++;
  sources_.push_front({traffic, reference});
  byReference_[reference] = byKey_[key] = sources_.begin();
  return true;
}

void NetworkStatistics::remove(Sources::iterator source, uint16_t flags) {
  Datagram made = message(darwin::NSTAT_MSG_TYPE_SRC_REMOVED, 0, flags, layout_.removedSize);
  putReference(made, kReference, source->reference);
  queue_.put(std::move(made), Need::vital);
  if (!layout_.hasWideReferences) free_.insert(source->reference);
  byReference_.erase(source->reference);
  sources_.erase(source);
}

// A source that has another owner than before counts as gone and come again: a client asks for the
// owner only once.
Errno NetworkStatistics::takeIn(std::vector<NetworkSource> &came) {
  std::vector<NetworkSource> present;
  const Errno error = guarded([&] { return networks().networkSources(present); });
  if (error != kAnswered) return error;

  std::set<Key> seen;
  for (const NetworkSource &source : present) {
    if (!subscriptions_.contains(numberOf(layout_, source.provider))) continue;
    const Key key{source.provider, source.key};
    // The machine names each source once; what it repeats is one source all the same.
    if (!seen.insert(key).second || unlisted_.contains(key)) continue;
    const auto known = byKey_.find(key);
    if (known != byKey_.end() && known->second->traffic.pid == source.pid) {
      known->second->traffic = source;
      continue;
    }
    if (known != byKey_.end()) {
      known->second->isGone = true;
      byKey_.erase(known);
    }
    came.push_back(source);
  }
  std::erase_if(unlisted_, [&seen](const Key &key) { return !seen.contains(key); });
  std::erase_if(byKey_, [&seen](const auto &entry) {
    if (seen.contains(entry.first)) return false;
    entry.second->isGone = true;
    return true;
  });
  return kAnswered;
}

// What is said of a source for the last time, and that it is gone.
void NetworkStatistics::closeGone() {
  for (auto next = sources_.begin(); next != sources_.end();) {
    const auto source = next++;
    if (!source->isGone) continue;
    const auto send = [&](Content content) {
      return queue_.put(about(*source, content, 0, kClosing));
    };
    const uint64_t filter = subscriptions_[numberOf(layout_, source->traffic.provider)];
    bool isCounted = false;
    if (layout_.joinsLastWords && (filter & kSuppressAdded) != 0) {
      isCounted = send(Content::update);
    } else {
      isCounted = send(Content::counts);
      send(Content::description);
    }
    remove(source, !isCounted && layout_.tellsWhyRemoved ? kClosedAfterDrop : uint16_t{0});
  }
}

void NetworkStatistics::sweep() {
  std::vector<NetworkSource> came;
  takeIn(came);
  closeGone();
  for (const NetworkSource &source : came) add(source);
}

Errno NetworkStatistics::checkProvider(uint32_t number) const {
  // Not built in, though it has a number.
  const bool isLeftOut = layout_.hasFlags && number == layout_.systemInformation;
  if (number == 0 || number > layout_.lastProvider || isLeftOut) return darwin::DARWIN_ENOENT;
  // What comes after QUIC lists sources, none of which are here.
  const bool isLater = number > kQUIC;
  if (!isLater && !providerOf(layout_, number)) return darwin::DARWIN_ENOTSUP;
  if (isLater && layout_.asksForRoot && kernel().callerUser() != 0) return darwin::DARWIN_EPERM;
  const Errno refusal = networks().networkSubscription();
  if (refusal != kAnswered) return refusal;
  return subscriptions_.contains(number) ? darwin::DARWIN_EALREADY : kAnswered;
}

Errno NetworkStatistics::addAll(const Datagram &request) {
  if (request.size() < layout_.addAllSize) return darwin::DARWIN_EINVAL;
  const auto number = get<uint32_t>(request, layout_.addAllProvider);
  const Errno refusal = guarded([&] { return checkProvider(number); });
  if (refusal != kAnswered) return refusal;
  subscriptions_[number] =
      layout_.addAllFilter != 0 ? get<uint64_t>(request, layout_.addAllFilter) : 0;
  std::vector<NetworkSource> came;
  const Errno error = takeIn(came);
  if (error != kAnswered) {
    subscriptions_.erase(number);
    return error;
  }
  closeGone();
  // The list ends with the first of its sources that is lost.
  bool isCut = false;
  for (const NetworkSource &source : came) {
    const bool isOfList = numberOf(layout_, source.provider) == number;
    if (isOfList && isCut) {
      unlisted_.insert({source.provider, source.key});
    } else if (!add(source) && isOfList) {
      isCut = true;
    }
  }
  const std::optional<NetworkProvider> provider = providerOf(layout_, number);
  const bool isKernels = provider == NetworkProvider::tcp || provider == NetworkProvider::udp;
  if (isCut && !isKernels && layout_.tellsOfFullQueue) return darwin::DARWIN_ENOBUFS;
  sendSuccess(get<uint64_t>(request, kContext), 0);
  return kAnswered;
}

// Whether the request is about a page of a round, which it may begin.
bool NetworkStatistics::beginPage(uint64_t context, uint16_t flags) {
  const bool isPage = (flags & kContinuation) != 0;
  const bool isOther = roundContext_ != 0 && roundContext_ != context;
  if (isOther && (isPage ? context != 0 : layout_.tellsOfOpenRounds)) {
    sendError(roundContext_, darwin::DARWIN_EAGAIN, {});
  }
  if (isPage && context != 0 && context != roundContext_) {
    roundContext_ = context;
    round_++;
  }
  return isPage;
}

Errno NetworkStatistics::tell(const Datagram &request, Content content) {
  if (request.size() < layout_.sourceRequestSize) return darwin::DARWIN_EINVAL;
  const auto context = get<uint64_t>(request, kContext);
  const bool isPage = beginPage(context, flagsOf(request));
  const bool isWide = layout_.hasWideReferences;
  const uint64_t reference =
      isWide ? get<uint64_t>(request, kReference) : get<uint32_t>(request, kReference);
  const uint64_t all =
      isWide ? std::numeric_limits<uint64_t>::max() : std::numeric_limits<uint32_t>::max();
  // The oldest kernels describe them one by one.
  if (reference == all && (layout_.hasFlags || content == Content::counts)) {
    return tellAll(request, content, isPage);
  }
  const auto found = byReference_.find(reference);
  if (found == byReference_.end()) return darwin::DARWIN_ENOENT;
  return queue_.put(about(*found->second, content, context, 0)) ? kAnswered
                                                                : darwin::DARWIN_ENOBUFS;
}

Errno NetworkStatistics::tellAll(const Datagram &request, Content content, bool isPage) {
  // What the machine can't say anew is told as it was.
  std::vector<NetworkSource> came;
  takeIn(came);
  for (const NetworkSource &source : came) add(source);

  const auto context = get<uint64_t>(request, kContext);
  const bool isShared =
      layout_.sharesDatagramsUnasked || (flagsOf(request) & kSupportsAggregate) != 0;
  Datagram shared;
  // A shared datagram that finds no room is lost without a sign.
  const auto tellOf = [&](const Source &source) {
    if (!isShared) return queue_.put(about(source, content, context, 0)) || !layout_.hasFlags;
    const Datagram message = about(source, content, 0, 0);
    if (shared.size() + message.size() > kLargestDatagram) queue_.put(std::exchange(shared, {}));
    shared.insert(shared.end(), message.begin(), message.end());
    return true;
  };

  Errno error = kAnswered;
  bool isPart = false;
  size_t told = 0;
  std::vector<Sources::iterator> gone;
  for (auto source = sources_.begin(); source != sources_.end() && !isPart; ++source) {
    if (isPage && source->round == round_) continue;
    if (!tellOf(*source)) {
      error = darwin::DARWIN_ENOBUFS;
      break;
    }
    if (isPage) source->round = round_;
    isPart = isPage && ++told == layout_.sourcesPerPage;
    if (!source->isGone || content != Content::counts) continue;
    if (queue_.put(about(*source, Content::description, 0, 0))) {
      gone.push_back(source);
    } else {
      isPart = true;
    }
  }
  if (!shared.empty()) queue_.put(std::move(shared));
  if (error == kAnswered) {
    if (isPage && !isPart) roundContext_ = 0;
    sendSuccess(context, isPage && isPart ? kContinuation : uint16_t{0});
  }
  for (const auto source : gone) remove(source, 0);
  return error;
}

Errno NetworkStatistics::handle(const Datagram &request) {
  switch (get<uint32_t>(request, kType)) {
    case darwin::NSTAT_MSG_TYPE_ADD_ALL_SRCS:
      return addAll(request);
    case darwin::NSTAT_MSG_TYPE_QUERY_SRC:
      return tell(request, Content::counts);
    case darwin::NSTAT_MSG_TYPE_GET_SRC_DESC:
      return tell(request, Content::description);
    default:
      return darwin::DARWIN_EINVAL;
  }
}

void NetworkStatistics::answer(const uint8_t *bytes, size_t size) {
  if (size < kHeaderSize) return;
  Datagram request(bytes, bytes + size);
  // A wrong length is put right, but then the flags are not believed either.
  if (layout_.hasFlags && get<uint16_t>(request, kLength) != size) {
    put(request, kLength, static_cast<uint16_t>(size));
    put(request, kFlags, uint16_t{0});
  }
  const Errno error = handle(request);
  if (error != kAnswered) sendError(get<uint64_t>(request, kContext), error, request);
}

}  // namespace host
