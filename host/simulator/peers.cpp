#include "host/simulator/peers.h"

#include <algorithm>

namespace host::simulator {

// Like the addresses that handles are made of.
static constexpr uint64_t kHandleDistance = 0x100;

void Peers::add(Descriptor &descriptor) {
  const Socket *socket = std::get_if<Socket>(&descriptor.object);
  if (socket == nullptr && !std::holds_alternative<PipeEnd>(descriptor.object)) return;
  const bool canBeNamed = descriptor.handle != 0;
  if (!canBeNamed) {
    do {
      lastHandle_ += kHandleDistance;
    } while (ends_.contains(lastHandle_));
    descriptor.handle = lastHandle_;
    if (descriptor.peer == 0) return;
  }
  End &end = ends_[descriptor.handle];
  if (end.holders++ != 0) return;
  end.peer = descriptor.peer;
  if (socket != nullptr) end.path = socket->path;
  if (descriptor.peer != 0) namers_[descriptor.peer].push_back(descriptor.handle);
}

void Peers::remove(const Descriptor &descriptor) {
  const auto end = ends_.find(descriptor.handle);
  if (end == ends_.end() || --end->second.holders != 0) return;
  const auto namers = namers_.find(end->second.peer);
  if (namers != namers_.end()) {
    std::erase(namers->second, descriptor.handle);
    if (namers->second.empty()) namers_.erase(namers);
  }
  ends_.erase(end);
}

uint64_t Peers::peerOf(const Descriptor &descriptor) const {
  if (descriptor.isAddressed) return descriptor.peer;
  if (descriptor.peer != 0) return ends_.contains(descriptor.peer) ? descriptor.peer : 0;
  const auto namers = namers_.find(descriptor.handle);
  return namers == namers_.end() ? 0 : namers->second.front();
}

const std::string &Peers::pathOf(uint64_t handle) const {
  static const std::string kNone;
  const auto end = ends_.find(handle);
  return end == ends_.end() ? kNone : end->second.path;
}

}  // namespace host::simulator
