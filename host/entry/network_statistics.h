// The kernel's side of the network-statistics service: what it says to one client. Sources come
// from the machine; how datagrams travel is control_socket.h's business.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "host/entry/client_queue.h"
#include "host/entry/statistics_layout.h"
#include "host/errno.h"
#include "host/machine/networks.h"

namespace host {

class NetworkStatistics {
 public:
  using Datagram = ClientQueue::Datagram;

  // Speaks as kernels of that family do. `queue` outlives it. The first reference counts where
  // references are wide.
  NetworkStatistics(KernelFamily family, uint64_t firstReference, ClientQueue &queue);

  // Takes one datagram of any bytes from the client and queues the answers. One that is shorter
  // than a header has none.
  void answer(const uint8_t *bytes, size_t size);

  // Tells of sources that came or went without having been asked.
  void sweep();

  // Whether the client has subscribed to any provider.
  bool hasSubscriptions() const { return !subscriptions_.empty(); }

 private:
  using Key = std::pair<NetworkProvider, uint64_t>;  // with a source's own
  struct Source {
    NetworkSource traffic;
    uint64_t reference = 0;
    uint64_t round = 0;  // the last round of pages that had it
    bool isGone = false;
  };
  using Sources = std::list<Source>;
  enum class Content : uint8_t { counts, description, update };

  Errno handle(const Datagram &request);
  Errno addAll(const Datagram &request);
  Errno checkProvider(uint32_t number) const;
  Errno tell(const Datagram &request, Content content);
  Errno tellAll(const Datagram &request, Content content, bool isPage);
  bool beginPage(uint64_t context, uint16_t flags);

  // Takes in what the machine has now; sources that came are to be added.
  Errno takeIn(std::vector<NetworkSource> &came);
  bool add(const NetworkSource &traffic);
  void closeGone();
  void remove(Sources::iterator source, uint16_t flags);

  Datagram message(uint32_t type, uint64_t context, uint16_t flags, size_t size) const;
  Datagram about(const Source &source, Content content, uint64_t context, uint16_t flags) const;
  void putReference(Datagram &message, size_t at, uint64_t reference) const;
  void sendSuccess(uint64_t context, uint16_t flags);
  void sendError(uint64_t context, Errno error, const Datagram &request);
  uint16_t flagsOf(const Datagram &request) const;

  const StatisticsLayout layout_;
  ClientQueue &queue_;
  std::map<uint32_t, uint64_t> subscriptions_;  // filters by the provider's number
  Sources sources_;                             // the newest first
  std::map<uint64_t, Sources::iterator> byReference_;
  std::map<Key, Sources::iterator> byKey_;  // without those that are gone
  std::set<Key> unlisted_;                  // the client could not be told of these: it never will
  std::set<uint64_t> free_;                 // narrow references below next_ whose removal was said
  uint64_t next_;
  uint64_t roundContext_ = 0;  // 0: no round of pages is open
  uint64_t round_ = 1;
};

}  // namespace host
