#include "nstat/client.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "darwin/errors.h"
#include "darwin/kernel_control.h"
#include "darwin/socket.h"
#include "nstat/accounting.h"
#include "state/tracing.h"
#include "terminal/ending.h"
#include "text/safe_text.h"

namespace sondex {

constexpr size_t kLargestDatagram = 4096;
constexpr size_t kRequestSize = 20;
static_assert(sizeof(darwin::nstat_msg_add_all_srcs) == kRequestSize &&
              sizeof(darwin::nstat_msg_query_src_req) == kRequestSize &&
              sizeof(darwin::nstat_msg_get_src_description) == kRequestSize);

constexpr uint64_t kQueryContext = 1005;
constexpr uint64_t kOtherContext = 2;

constexpr int32_t kSetUpPatience = 1000;  // milliseconds
constexpr int32_t kOneNap = 1;            // millisecond

SharedInt nstat_socket{-1};
SharedInt g_debug{0};
void *descriptors[kDescriptorSlots];
int32_t descriptorsModded[kDescriptorSlots];
darwin::nstat_msg_get_src_description gsdreq;

enum ClientState : int32_t { kNotStarted, kConnecting, kConnected, kEnded };
static SharedInt clientState{kNotStarted};

// Rounds of counts that were asked for, and those that are complete: who sees that one is, with
// acquire, sees what was filed of it before.
static SharedInt roundsAsked{0};
static SharedInt roundsComplete{0};

// The reader's own: rounds all counts of which have come, and descriptions asked for that have not.
static int32_t roundsCounted = 0;
static int32_t awaitedDescriptions = 0;

static bool nameControl(darwin::ctl_info *info, const char *name) {
  const int length = snprintf(info->ctl_name, sizeof info->ctl_name, "%s", name);
  return length >= 0 && static_cast<size_t>(length) < sizeof info->ctl_name;
}

static bool connectControl(int control, uint32_t id) {
  darwin::sockaddr_ctl address = {};
  address.sc_len = sizeof address;
  address.sc_family = darwin::DARWIN_AF_SYSTEM;
  address.ss_sysaddr = darwin::AF_SYS_CONTROL;
  address.sc_id = id;
  if (connect(control, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
    return true;
  }
  const int error = errno;
  fprintf(stderr, "connect(AF_SYS_CONTROL): %s\n", strerror(error));
  if (error == darwin::DARWIN_EBUSY) {
    fputs(
        "Apparently some other process is using the system socket. On iOS, this is usually "
        "UserEventAgent. Kill it (-9!) and immediately start this program\n",
        stdout);
  }
  return false;
}

int setupSocket() {
  darwin::ctl_info info = {};
  if (!nameControl(&info, darwin::NET_STAT_CONTROL_NAME)) {
    fputs("CONTROL NAME too long", stderr);
    return -1;
  }
  const int control =
      socket(darwin::DARWIN_AF_SYSTEM, darwin::DARWIN_SOCK_DGRAM, darwin::SYSPROTO_CONTROL);
  if (control < 0) {
    fprintf(stderr, "socket(SYSPROTO_CONTROL): %s", strerror(errno));
    return -1;
  }
  if (ioctl(control, darwin::CTLIOCGINFO, &info) != 0) {
    fprintf(stderr, "ioctl(CTLIOCGINFO): %s", strerror(errno));
    close(control);
    return -1;
  }
  if (!connectControl(control, info.ctl_id)) {
    close(control);
    return -1;
  }
  return control;
}

// A request that is lost is made up for by the next poll. False when it is.
template <typename Request>
static bool send(const Request &request) {
  return write(load(nstat_socket), &request, sizeof request) == sizeof request;
}

static void subscribe(uint32_t provider) {
  darwin::nstat_msg_add_all_srcs request = {};
  request.hdr.context = kOtherContext;
  request.hdr.type = darwin::NSTAT_MSG_TYPE_ADD_ALL_SRCS;
  request.provider = provider;
  send(request);
}

static void queryCounts() {
  darwin::nstat_msg_query_src_req query = {};
  query.hdr.context = kQueryContext;
  query.hdr.type = darwin::NSTAT_MSG_TYPE_QUERY_SRC;
  query.srcref = darwin::NSTAT_SRC_REF_ALL;
  roundsAsked.fetch_add(1, std::memory_order_relaxed);  // before its answer can come
  if (!send(query)) roundsAsked.fetch_sub(1, std::memory_order_relaxed);
}

void *nstat_register(void *) {
  const int control = setupSocket();
  store(nstat_socket, control);
  store(g_nstat_ok, control > 0 ? 1 : 0);
  clientState.store(control > 0 ? kConnected : kEnded, std::memory_order_release);
  if (control <= 0) return nullptr;

  subscribe(darwin::NSTAT_PROVIDER_TCP);
  subscribe(darwin::NSTAT_PROVIDER_UDP);
  for (SourceTotals &totals : process_ntstat_info) {
    store(totals.received, 0);
    store(totals.sent, 0);
  }
  for (;;) {
    queryCounts();
    sleep(1);
  }
}

void expectCounts() {
  store(clientState, kConnecting);
}

// Waits while the client connects, at most that long. Returns what is left of it.
static int32_t awaitConnection(int32_t milliseconds) {
  while (milliseconds > 0 && clientState.load(std::memory_order_acquire) == kConnecting) {
    if (!pauseUnlessEnding(kOneNap)) return 0;
    milliseconds -= kOneNap;
  }
  return milliseconds;
}

void awaitCounts(int32_t milliseconds) {
  milliseconds = awaitConnection(milliseconds);
  if (load(clientState) != kConnected) return;
  // Anew: the first round may be older than what the service knows of owners.
  queryCounts();
  const int32_t wanted = load(roundsAsked);
  while (milliseconds > 0 && load(clientState) == kConnected &&
         roundsComplete.load(std::memory_order_acquire) < wanted) {
    if (!pauseUnlessEnding(kOneNap)) return;
    milliseconds -= kOneNap;
  }
}

void *doNStat(void *) {
  store(g_nstat_ok, 0);
  expectCounts();
  if (isTracing()) g_debug.fetch_add(1);
  pthread_t poller;
  if (pthread_create(&poller, nullptr, nstat_register, nullptr) == 0) pthread_detach(poller);
  // Kept: a set-up that takes longer is not waited for.
  awaitConnection(kSetUpPatience);
  if (load(g_nstat_ok) != 0) readNotifications(load(nstat_socket));
  store(clientState, kEnded);
  return nullptr;
}

template <typename Field>
static Field fieldAt(const void *message, size_t offset) {
  Field field;
  memcpy(&field, static_cast<const uint8_t *>(message) + offset, sizeof field);
  return field;
}

static uint32_t typeOf(const void *message) {
  return fieldAt<uint32_t>(message, offsetof(darwin::nstat_msg_hdr, type));
}

static uint32_t sourceOfRemoval(const void *message) {
  return fieldAt<uint32_t>(message, offsetof(darwin::nstat_msg_src_removed, srcref));
}

static bool hasPlace(uint32_t source) {
  return source <= kLastSource;
}

static bool isRemoval(const void *message, size_t length) {
  return length >= sizeof(darwin::nstat_msg_src_removed) &&
         typeOf(message) == darwin::NSTAT_MSG_TYPE_SRC_REMOVED &&
         hasPlace(sourceOfRemoval(message));
}

// Notes an answer that is no count. A round is complete once the owners of what was counted are
// known, for as far as the service tells.
static void noteAnswer(const void *message) {
  const uint64_t context = fieldAt<uint64_t>(message, offsetof(darwin::nstat_msg_hdr, context));
  const uint32_t type = typeOf(message);
  const bool isError = type == darwin::NSTAT_MSG_TYPE_ERROR;
  const bool endsRound = isError || type == darwin::NSTAT_MSG_TYPE_SUCCESS;
  if (endsRound && context == kQueryContext) roundsCounted++;
  const bool answersDescription =
      type == darwin::NSTAT_MSG_TYPE_SRC_DESC || (isError && context == kOtherContext);
  if (answersDescription && awaitedDescriptions > 0) awaitedDescriptions--;
  if (awaitedDescriptions == 0) {
    roundsComplete.store(roundsCounted, std::memory_order_release);
  }
}

void readNotifications(int socket) {
  uint8_t datagram[kLargestDatagram];
  for (;;) {
    const ssize_t result = read(socket, datagram, sizeof datagram);
    if (result <= 0) return;
    const size_t length = static_cast<size_t>(result);
    if (length < sizeof(darwin::nstat_msg_hdr)) continue;
    if (isRemoval(datagram, length)) {
      descriptors[sourceOfRemoval(datagram)] = nullptr;
      descriptorsModded[sourceOfRemoval(datagram)] = 1;
    }
    if (typeOf(datagram) != darwin::NSTAT_MSG_TYPE_SRC_ADDED) print_nstat_msg(datagram, length);
    noteAnswer(datagram);
  }
}

// Where a provider's descriptor has the owner, from the start of the message.
struct DescriptorFields {
  uint32_t provider;
  size_t pid;
  size_t name;
  const char *trace;
};

constexpr size_t kDescriptor = sizeof(darwin::nstat_msg_src_description);

static const DescriptorFields kDescriptors[] = {
    {darwin::NSTAT_PROVIDER_TCP, kDescriptor + offsetof(darwin::nstat_tcp_descriptor, pid),
     kDescriptor + offsetof(darwin::nstat_tcp_descriptor, pname), "TCP"},
    {darwin::NSTAT_PROVIDER_UDP, kDescriptor + offsetof(darwin::nstat_udp_descriptor, pid),
     kDescriptor + offsetof(darwin::nstat_udp_descriptor, pname), "UDP"},
};

static const DescriptorFields *fieldsOf(uint32_t provider) {
  for (const DescriptorFields &row : kDescriptors) {
    if (row.provider == provider) return &row;
  }
  return nullptr;
}

static void traceDescription(const DescriptorFields *fields, const void *message, size_t length,
                             uint32_t source, int32_t pid) {
  constexpr size_t kNameSize = sizeof(darwin::nstat_tcp_descriptor::pname);
  char name[kNameSize];
  makeSafe(name, sizeof name, static_cast<const char *>(message) + fields->name,
           std::min(length - fields->name, kNameSize));
  fprintf(stderr, "%s SRCREF: %d, PID: %d, NAME: %s\n", fields->trace, static_cast<int>(source),
          pid, name);
}

static void fileDescription(const void *message, size_t length) {
  using Message = darwin::nstat_msg_src_description;
  if (length < sizeof(Message)) return;
  const uint32_t source = fieldAt<uint32_t>(message, offsetof(Message, srcref));
  const DescriptorFields *fields =
      fieldsOf(fieldAt<uint32_t>(message, offsetof(Message, provider)));
  if (fields == nullptr || !hasPlace(source) || length < fields->name) return;
  const int32_t pid = fieldAt<int32_t>(message, fields->pid);
  store(process_pid_info[source], pid);
  if (load(g_debug) != 0) traceDescription(fields, message, length, source, pid);
}

static int32_t fileAddition(const void *message, size_t length) {
  if (length < sizeof(darwin::nstat_msg_src_added)) return 0;
  const uint32_t source = fieldAt<uint32_t>(message, offsetof(darwin::nstat_msg_src_added, srcref));
  if (!hasPlace(source)) return 0;
  store(process_pid_info[source], 0);
  if (load(g_debug) != 0) {
    const uint32_t provider =
        fieldAt<uint32_t>(message, offsetof(darwin::nstat_msg_src_added, provider));
    fprintf(stderr, "Src Added - %ld\n", static_cast<long>(sizeof(darwin::nstat_msg_src_added)));
    // Kept: spelled like this.
    fprintf(stderr, "PRovider: %d, SrcRef: %d\n", static_cast<int>(provider),
            static_cast<int>(source));
  }
  return static_cast<int32_t>(darwin::NSTAT_MSG_TYPE_SRC_ADDED);
}

int32_t print_nstat_msg(const void *message, size_t length) {
  if (length < sizeof(darwin::nstat_msg_hdr)) return 0;
  switch (typeOf(message)) {
    case darwin::NSTAT_MSG_TYPE_SRC_ADDED:
      return fileAddition(message, length);
    case darwin::NSTAT_MSG_TYPE_SRC_REMOVED:
      if (!isRemoval(message, length)) return 0;
      store(process_pid_info[sourceOfRemoval(message)], 0);
      return static_cast<int32_t>(darwin::NSTAT_MSG_TYPE_SRC_REMOVED);
    case darwin::NSTAT_MSG_TYPE_SRC_DESC:
      fileDescription(message, length);
      return 0;
    case darwin::NSTAT_MSG_TYPE_SRC_COUNTS:
      if (length >= offsetof(darwin::nstat_msg_src_counts, counts.nstat_rxduplicatebytes)) {
        print_counts(message);
      }
      return 0;
    default:
      return 0;
  }
}

static void requestDescription(uint32_t source) {
  gsdreq.hdr.context = kOtherContext;
  gsdreq.hdr.type = darwin::NSTAT_MSG_TYPE_GET_SRC_DESC;
  gsdreq.srcref = source;
  if (send(gsdreq)) awaitedDescriptions++;
}

void print_counts(const void *message) {
  using Message = darwin::nstat_msg_src_counts;
  const uint32_t source = fieldAt<uint32_t>(message, offsetof(Message, srcref));
  if (!hasPlace(source)) {
    endProgram(0, stderr,
               "Too many sources/connections! This is not a bug, but something that will be "
               "handled soon!\n");
  }
  const auto received = fieldAt<uint64_t>(message, offsetof(Message, counts.nstat_rxbytes));
  const auto sent = fieldAt<uint64_t>(message, offsetof(Message, counts.nstat_txbytes));
  store(process_ntstat_info[source].received, received);
  store(process_ntstat_info[source].sent, sent);

  const int32_t pid = load(process_pid_info[source]);
  if (pid == 0) {
    requestDescription(source);
  } else if (load(g_debug) != 0) {
    const auto packetsIn = fieldAt<uint64_t>(message, offsetof(Message, counts.nstat_rxpackets));
    const auto packetsOut = fieldAt<uint64_t>(message, offsetof(Message, counts.nstat_txpackets));
    fprintf(stderr, "PID: %d SRCREF: %d COUNTS: %lld (%lld)/%lld (%lld)\n", pid,
            static_cast<int>(source), static_cast<long long>(received),
            static_cast<long long>(packetsIn), static_cast<long long>(sent),
            static_cast<long long>(packetsOut));
    fflush(stderr);
  }
}

}  // namespace sondex
