// The client of the network statistics on a run of datagrams from its socket. Bits of the first
// byte say: 1 whether it traces, 2 whether all sources have an owner already, the others which
// kernel's messages it reads. Then come the datagrams, each behind its length.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>
#include <string_view>
#include <vector>

#include "darwin/ntstat.h"
#include "fuzz/input.h"
#include "fuzz/printed.h"
#include "nstat/accounting.h"
#include "nstat/client.h"
#include "nstat/layouts.h"
#include "nstat/places.h"

using namespace sondex;
using fuzz::check;

namespace {

constexpr int32_t kFormerOwner = 0x5AFE;
// What the client reads at once: of a longer datagram it sees a part.
constexpr size_t kLargest = 4096;

// The client's end of the socket is read until nothing is left, and written to.
int g_ends[2];

uint32_t wordAt(std::string_view datagram, size_t offset) {
  uint32_t word = UINT32_MAX;
  if (datagram.size() >= offset + sizeof word) {
    std::memcpy(&word, datagram.data() + offset, sizeof word);
  }
  return word;
}

uint64_t referenceOf(std::string_view message) {
  const uint64_t low = wordAt(message, 16);
  return statisticsLayout->hasWideReferences ? uint64_t{wordAt(message, 20)} << 32 | low : low;
}

constexpr const char *kKernels[] = {"xnu-2782", "xnu-3248", "xnu-3789", "xnu-6153", "xnu-8020"};
static_assert(std::size(kKernels) == kStatisticsLayouts);

// The messages that a datagram is read as.
std::vector<std::string_view> messagesOf(std::string_view datagram) {
  if (!statisticsLayout->tellsLength) return {datagram};
  std::vector<std::string_view> messages;
  while (datagram.size() >= sizeof(darwin::nstat_msg_hdr)) {
    uint16_t length = 0;
    std::memcpy(&length, datagram.data() + offsetof(darwin::nstat_msg_hdr, length), sizeof length);
    if (length < sizeof(darwin::nstat_msg_hdr) || length > datagram.size()) break;
    messages.push_back(datagram.substr(0, length));
    datagram.remove_prefix(length);
  }
  return messages;
}

// For good: nothing is read after it.
bool endsReader(std::string_view message) {
  const uint32_t type = wordAt(message, offsetof(darwin::nstat_msg_hdr, type));
  const bool hasCounts =
      type == darwin::NSTAT_MSG_TYPE_SRC_COUNTS ||
      (type == darwin::NSTAT_MSG_TYPE_SRC_UPDATE && statisticsLayout->tellsLength);
  return !statisticsLayout->hasWideReferences && hasCounts &&
         message.size() >=
             statisticsLayout->counts + offsetof(darwin::nstat_counts, nstat_rxduplicatebytes) &&
         wordAt(message, sizeof(darwin::nstat_msg_hdr)) > kLastSource;
}

void emptyTables(int32_t owner) {
  for (int source = 0; source <= kLastSource; source++) {
    store(process_pid_info[source], owner);
    store(process_ntstat_info[source].received, 0);
    store(process_ntstat_info[source].sent, 0);
  }
}

// All that it asks for is the description of a source that was named, and the next page.
void checkRequests(const std::set<uint64_t> &named) {
  uint8_t request[100];
  for (ssize_t size; (size = read(g_ends[1], request, sizeof request)) > 0;) {
    const std::string_view bytes(reinterpret_cast<const char *>(request),
                                 static_cast<size_t>(size));
    check(bytes.size() == (statisticsLayout->hasWideReferences ? 24u : 20u));
    const uint32_t type = wordAt(bytes, offsetof(darwin::nstat_msg_hdr, type));
    if (type == darwin::NSTAT_MSG_TYPE_QUERY_SRC) {
      check(statisticsLayout->tellsLength);
      continue;
    }
    check(type == darwin::NSTAT_MSG_TYPE_GET_SRC_DESC && named.contains(referenceOf(bytes)));
  }
}

// Nothing is filed but what was said of the sources that were named.
void checkTables(int32_t owner, const std::set<uint64_t> &named) {
  std::set<int32_t> pids;
  for (uint32_t source = 0; source <= kLastSource; source++) {
    const int32_t pid = load(process_pid_info[source]);
    pids.insert(pid);
    // Of wide ones not the reference is the place, but no more are taken than sources were named.
    check(statisticsLayout->hasWideReferences
              ? source < named.size() || pid == owner
              : named.contains(source) ||
                    (pid == owner && load(process_ntstat_info[source].received) == 0 &&
                     load(process_ntstat_info[source].sent) == 0));
  }
  SourceSums *sums = takeSourceSums();
  check(sums != nullptr);
  for (const int32_t pid : pids) {
    NetworkTotals now = {};
    NetworkTotals then = {};
    check(sumSources(pid, &now) == sumAtMoment(sums, pid, &then) && now.received == then.received &&
          now.sent == then.sent);
  }
  releaseSourceSums(sums);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, g_ends) == 0);
  store(nstat_socket, g_ends[0]);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Input input(data, size);
  const uint8_t how = input.byte();
  chooseStatisticsLayout(kKernels[(how >> 2) % std::size(kKernels)]);
  freeSourcePlaces();
  const int32_t owner = (how & 2) != 0 ? kFormerOwner : 0;
  emptyTables(owner);
  store(g_debug, how & 1);
  // A line for each datagram, of which the name is the longest part.
  const fuzz::Printed traces(stderr, size * 100);
  std::set<uint64_t> named;
  while (!input.isEmpty()) {
    const std::string_view datagram = input.piece();
    const std::vector<std::string_view> messages = messagesOf(datagram);
    if (datagram.empty() || datagram.size() > kLargest ||
        std::any_of(messages.begin(), messages.end(), endsReader)) {
      continue;
    }
    check(write(g_ends[1], datagram.data(), datagram.size()) ==
          static_cast<ssize_t>(datagram.size()));
    readNotifications(g_ends[0]);
    // Where the one kind of message has the source, and the other.
    for (const std::string_view message : messages) {
      named.insert(referenceOf(message));
      named.insert(wordAt(message, 20));
    }
    checkRequests(named);
  }
  checkTables(owner, named);
  return 0;
}
