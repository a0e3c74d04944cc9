// The kernel's side of the network-statistics service: what it says to one client. Sources come
// from the machine; how datagrams travel is control_socket.h's business.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <vector>

#include "darwin/ntstat.h"
#include "host/machine/networks.h"

namespace host {

class NetworkStatistics {
 public:
  using Datagram = std::vector<uint8_t>;

  // Takes one datagram of any bytes from the client and appends the answers to `out`. One that is
  // shorter than a header has none.
  void answer(const uint8_t *bytes, size_t size, std::deque<Datagram> &out);

  // Tells of sources that came or went without having been asked.
  void sweep(std::deque<Datagram> &out);

  // Whether the client has subscribed to any provider.
  bool hasSubscriptions() const { return !providers_.empty(); }

 private:
  struct Source {
    NetworkSource traffic;
    bool counted = false;    // the client was told its counts,
    bool described = false;  // its owner
  };
  using Key = std::pair<uint32_t, uint64_t>;  // provider, key
  enum class Detail { asked, all };

  Errno addAll(uint32_t provider, std::deque<Datagram> &out);
  Errno query(uint32_t reference, uint64_t context, std::deque<Datagram> &out);
  Errno describe(uint32_t reference, uint64_t context, std::deque<Datagram> &out);
  Errno refresh(uint64_t context, Detail detail, std::deque<Datagram> &out);
  void add(const NetworkSource &traffic, std::deque<Datagram> &out);
  void sendCounts(uint32_t reference, Source &source, uint64_t context, std::deque<Datagram> &out);
  void sendDescription(uint32_t reference, Source &source, uint64_t context,
                       std::deque<Datagram> &out);
  uint32_t takeReference();

  std::set<uint32_t> providers_;
  std::map<uint32_t, Source> sources_;  // by reference
  std::map<Key, uint32_t> references_;
  std::set<uint32_t> free_;  // references below next_ whose removal was said
  uint32_t next_ = 1;
};

}  // namespace host
