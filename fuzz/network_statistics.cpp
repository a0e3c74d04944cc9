// The client of the network statistics on a run of datagrams from its socket. Bits of the first
// byte say: 1 whether it traces, 2 whether all sources have an owner already. Then come the
// datagrams, each behind its length.
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string_view>

#include "darwin/ntstat.h"
#include "fuzz/input.h"
#include "fuzz/printed.h"
#include "nstat/accounting.h"
#include "nstat/client.h"

using namespace sondex;
using fuzz::check;

namespace {

constexpr int32_t kFormerOwner = 0x5AFE;

// The client's end of the socket is read until nothing is left, and written to.
int g_ends[2];

uint32_t wordAt(std::string_view datagram, size_t offset) {
  uint32_t word = UINT32_MAX;
  if (datagram.size() >= offset + sizeof word) {
    std::memcpy(&word, datagram.data() + offset, sizeof word);
  }
  return word;
}

// For good: nothing is read after it.
bool endsReader(std::string_view datagram) {
  return datagram.size() >= offsetof(darwin::nstat_msg_src_counts, counts.nstat_rxduplicatebytes) &&
         wordAt(datagram, offsetof(darwin::nstat_msg_hdr, type)) ==
             darwin::NSTAT_MSG_TYPE_SRC_COUNTS &&
         wordAt(datagram, offsetof(darwin::nstat_msg_src_counts, srcref)) > kLastSource;
}

void emptyTables(int32_t owner) {
  for (int source = 0; source <= kLastSource; source++) {
    store(process_pid_info[source], owner);
    store(process_ntstat_info[source].received, 0);
    store(process_ntstat_info[source].sent, 0);
  }
}

// All that it asks for is the description of the source that a datagram was about.
void checkRequests(uint32_t source) {
  darwin::nstat_msg_get_src_description request;
  for (ssize_t size; (size = read(g_ends[1], &request, sizeof request)) > 0;) {
    check(size == sizeof request && request.hdr.type == darwin::NSTAT_MSG_TYPE_GET_SRC_DESC &&
          request.srcref == source && source <= kLastSource);
  }
}

// Nothing is filed but what was said of the sources that were named.
void checkTables(int32_t owner, const std::set<uint32_t> &named) {
  std::set<int32_t> pids;
  for (uint32_t source = 0; source <= kLastSource; source++) {
    const int32_t pid = load(process_pid_info[source]);
    pids.insert(pid);
    check(named.contains(source) ||
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
  const int32_t owner = (how & 2) != 0 ? kFormerOwner : 0;
  emptyTables(owner);
  store(g_debug, how & 1);
  // A line for each datagram, of which the name is the longest part.
  const fuzz::Printed traces(stderr, size * 100);
  std::set<uint32_t> named;
  while (!input.isEmpty()) {
    const std::string_view datagram = input.piece();
    if (datagram.empty() || endsReader(datagram)) continue;
    check(write(g_ends[1], datagram.data(), datagram.size()) ==
          static_cast<ssize_t>(datagram.size()));
    readNotifications(g_ends[0]);
    // Where the one kind of message has the source, and the other.
    named.insert(wordAt(datagram, 16));
    named.insert(wordAt(datagram, 20));
    checkRequests(wordAt(datagram, 16));
  }
  checkTables(owner, named);
  return 0;
}
