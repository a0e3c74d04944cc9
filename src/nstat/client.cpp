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
#include "nstat/layouts.h"
#include "nstat/places.h"
#include "state/tracing.h"
#include "terminal/ending.h"
#include "text/safe_text.h"

namespace sondex {

constexpr size_t kLargestDatagram = 4096;
constexpr size_t kLargestRequest = 64;
constexpr size_t kHeader = sizeof(darwin::nstat_msg_hdr);
constexpr size_t kReference = kHeader;  // where most messages have it
static_assert(sizeof(darwin::nstat_msg_query_src_req) == kReference + sizeof(uint32_t) &&
              sizeof(darwin::nstat_msg_get_src_description) == kReference + sizeof(uint32_t));

constexpr uint64_t kQueryContext = 1005;
constexpr uint64_t kOtherContext = 2;

// What a kernel drops when its queue to the client is full is lost without a sign: room for some
// ten thousand messages, or as much as it grants.
constexpr int kQueueWanted = 1 << 20;
constexpr int kQueueEnough = 1 << 14;

// In answer to one poll. With 50 sources or more on each, no kernel has so many.
constexpr int kMostPages = 1000;

constexpr int32_t kSetUpPatience = 1000;  // milliseconds
constexpr int32_t kOneNap = 1;            // millisecond

SharedInt nstat_socket{-1};
SharedInt g_debug{0};
void *descriptors[kDescriptorSlots];
int32_t descriptorsModded[kDescriptorSlots];
darwin::nstat_msg_get_src_description gsdreq;

enum ClientState : int32_t { kNotStarted, kSettingUp, kSubscribed, kEnded };
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
static bool send(const void *request, size_t size) {
  return write(load(nstat_socket), request, size) == static_cast<ssize_t>(size);
}

// Kernels that have a length here heed the flags only when it is right.
static darwin::nstat_msg_hdr makeHeader(uint32_t type, uint64_t context, size_t size,
                                        uint16_t flags) {
  darwin::nstat_msg_hdr header = {};
  header.context = context;
  header.type = type;
  if (statisticsLayout->tellsLength) {
    header.length = static_cast<uint16_t>(size);
    header.flags = flags;
  }
  return header;
}

template <typename Field>
static void putField(void *message, size_t offset, Field field) {
  memcpy(static_cast<uint8_t *>(message) + offset, &field, sizeof field);
}

static void subscribe(uint32_t provider) {
  uint8_t request[kLargestRequest] = {};
  const size_t size = statisticsLayout->addAllSize;
  putField(request, 0, makeHeader(darwin::NSTAT_MSG_TYPE_ADD_ALL_SRCS, kOtherContext, size, 0));
  putField(request, statisticsLayout->addAllProvider, provider);
  send(request, size);
}

void subscribeToAll() {
  for (size_t i = 0; i < statisticsLayout->providerCount; i++) {
    subscribe(statisticsLayout->providers[i].number);
  }
}

// A reference of all bits stands for all sources.
bool queryAll() {
  uint8_t request[kLargestRequest] = {};
  const size_t width = statisticsLayout->hasWideReferences ? sizeof(uint64_t) : sizeof(uint32_t);
  const size_t size = kReference + width;
  putField(request, 0,
           makeHeader(darwin::NSTAT_MSG_TYPE_QUERY_SRC, kQueryContext, size,
                      darwin::NSTAT_MSG_HDR_FLAG_SUPPORTS_AGGREGATE |
                          darwin::NSTAT_MSG_HDR_FLAG_CONTINUATION));
  memset(request + kReference, 0xFF, width);
  return send(request, size);
}

static void enlargeQueue(int control) {
  for (int size = kQueueWanted; size >= kQueueEnough; size /= 2) {
    if (setsockopt(control, darwin::DARWIN_SOL_SOCKET, darwin::DARWIN_SO_RCVBUF, &size,
                   sizeof size) == 0) {
      return;
    }
  }
}

static void queryCounts() {
  roundsAsked.fetch_add(1, std::memory_order_relaxed);  // before its answer can come
  if (!queryAll()) roundsAsked.fetch_sub(1, std::memory_order_relaxed);
}

void *nstat_register(void *) {
  const int control = setupSocket();
  store(nstat_socket, control);
  store(g_nstat_ok, control > 0 ? 1 : 0);
  if (control <= 0) {
    store(clientState, kEnded);
    return nullptr;
  }

  enlargeQueue(control);
  subscribeToAll();
  for (SourceTotals &totals : process_ntstat_info) {
    store(totals.received, 0);
    store(totals.sent, 0);
  }
  // Not before: a round of counts without subscriptions would be complete, and empty.
  clientState.store(kSubscribed, std::memory_order_release);
  for (;;) {
    queryCounts();
    sleep(1);
  }
}

void expectCounts() {
  store(clientState, kSettingUp);
}

// Waits while the client is set up, at most that long. Returns what is left of it.
static int32_t awaitSetUp(int32_t milliseconds) {
  while (milliseconds > 0 && clientState.load(std::memory_order_acquire) == kSettingUp) {
    if (!pauseUnlessEnding(kOneNap)) return 0;
    milliseconds -= kOneNap;
  }
  return milliseconds;
}

bool awaitCounts(int32_t milliseconds) {
  milliseconds = awaitSetUp(milliseconds);
  if (load(clientState) != kSubscribed) return false;
  // Anew: the first round may be older than what the service knows of owners.
  queryCounts();
  const int32_t wanted = load(roundsAsked);
  for (;;) {
    if (roundsComplete.load(std::memory_order_acquire) >= wanted) return true;
    if (milliseconds <= 0 || load(clientState) != kSubscribed) return false;
    if (!pauseUnlessEnding(kOneNap)) return false;
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
  awaitSetUp(kSetUpPatience);
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

static uint64_t referenceAt(const void *message, size_t offset) {
  return statisticsLayout->hasWideReferences ? fieldAt<uint64_t>(message, offset)
                                             : fieldAt<uint32_t>(message, offset);
}

static size_t endOfReference(size_t offset) {
  return offset + (statisticsLayout->hasWideReferences ? sizeof(uint64_t) : sizeof(uint32_t));
}

// Small references are places themselves.
static int placeOfSource(uint64_t reference) {
  if (statisticsLayout->hasWideReferences) return findSourcePlace(reference);
  return reference <= kLastSource ? static_cast<int>(reference) : kNoSourcePlace;
}

// What an error message tells; 0 for another message.
static int32_t errorOf(const void *message, size_t length) {
  if (typeOf(message) != darwin::NSTAT_MSG_TYPE_ERROR || length < sizeof(darwin::nstat_msg_error)) {
    return 0;
  }
  return fieldAt<int32_t>(message, offsetof(darwin::nstat_msg_error, error));
}

static void tracePassedOver(const void *message, size_t length) {
  if (load(g_debug) == 0) return;
  if (const int32_t error = errorOf(message, length); error != 0) {
    fprintf(stderr, "Network statistics: %s\n", strerror(error));
    return;
  }
  fprintf(stderr, "Network statistics: a message of type %u and %zu bytes is passed over\n",
          typeOf(message), length);
}

// The place of the source that a message tells the end of; kNoSourcePlace for another message.
static int placeOfRemoved(const void *message, size_t length) {
  if (typeOf(message) != darwin::NSTAT_MSG_TYPE_SRC_REMOVED ||
      length < endOfReference(kReference)) {
    return kNoSourcePlace;
  }
  return placeOfSource(referenceAt(message, kReference));
}

// After a page of the answer to a poll comes the next one when it is asked for. False after the
// last one, and where it can't be asked for.
static bool askForNextPage(const void *message) {
  static int pages = 0;
  const auto header = fieldAt<darwin::nstat_msg_hdr>(message, 0);
  if (header.context != kQueryContext || !statisticsLayout->tellsLength) return false;
  if ((header.flags & darwin::NSTAT_MSG_HDR_FLAG_CONTINUATION) == 0) {
    pages = 0;
    return false;
  }
  if (pages == kMostPages) return false;
  pages++;
  return queryAll();
}

// Notes an answer that is no count. A round is complete once the owners of what was counted are
// known, for as far as the service tells. Kernels 3248 say "again" where a description is asked for
// between two pages, and go on with the round.
static void noteAnswer(const void *message, size_t length) {
  const uint64_t context = fieldAt<uint64_t>(message, offsetof(darwin::nstat_msg_hdr, context));
  const uint32_t type = typeOf(message);
  const bool isError = type == darwin::NSTAT_MSG_TYPE_ERROR;
  const bool endsRound = (isError && errorOf(message, length) != darwin::DARWIN_EAGAIN) ||
                         type == darwin::NSTAT_MSG_TYPE_SUCCESS;
  if (endsRound && context == kQueryContext) roundsCounted++;
  const bool answersDescription =
      type == darwin::NSTAT_MSG_TYPE_SRC_DESC || (isError && context == kOtherContext);
  if (answersDescription && awaitedDescriptions > 0) awaitedDescriptions--;
  if (awaitedDescriptions == 0) {
    roundsComplete.store(roundsCounted, std::memory_order_release);
  }
}

static void readMessage(const uint8_t *message, size_t length) {
  const uint32_t type = typeOf(message);
  if (const int place = placeOfRemoved(message, length); place != kNoSourcePlace) {
    descriptors[place] = nullptr;
    descriptorsModded[place] = 1;
  }
  if (type == darwin::NSTAT_MSG_TYPE_SUCCESS) {
    if (askForNextPage(message)) return;
  } else if (type != darwin::NSTAT_MSG_TYPE_SRC_ADDED) {
    print_nstat_msg(message, length);
  }
  noteAnswer(message, length);
}

// Kernels that tell no lengths send one message at a time.
static void readDatagram(const uint8_t *datagram, size_t size) {
  if (!statisticsLayout->tellsLength) {
    if (size >= kHeader) readMessage(datagram, size);
    return;
  }
  while (size >= kHeader) {
    const size_t length = fieldAt<uint16_t>(datagram, offsetof(darwin::nstat_msg_hdr, length));
    if (length < kHeader || length > size) {
      tracePassedOver(datagram, size);
      return;
    }
    readMessage(datagram, length);
    datagram += length;
    size -= length;
  }
}

void readNotifications(int socket) {
  uint8_t datagram[kLargestDatagram];
  for (;;) {
    const ssize_t size = read(socket, datagram, sizeof datagram);
    if (size <= 0) return;
    readDatagram(datagram, static_cast<size_t>(size));
  }
}

static void traceDescription(const char *kind, const char *name, size_t available,
                             uint64_t reference, int32_t pid) {
  char shown[kOwnerNameSize];
  makeSafe(shown, sizeof shown, name, std::min(available, kOwnerNameSize));
  fprintf(stderr, "%s SRCREF: %d, PID: %d, NAME: %s\n", kind, static_cast<int>(reference), pid,
          shown);
}

static const StatisticsProvider *findProvider(uint32_t number) {
  for (size_t i = 0; i < statisticsLayout->providerCount; i++) {
    if (statisticsLayout->providers[i].number == number) return &statisticsLayout->providers[i];
  }
  return nullptr;
}

// Files the owner that the descriptor at `descriptor` names. False for a message that does not tell
// one, or of a source that has no place.
static bool fileOwner(const void *message, size_t length, size_t providerOffset,
                      size_t descriptor) {
  if (length < descriptor) return false;
  const StatisticsProvider *provider = findProvider(fieldAt<uint32_t>(message, providerOffset));
  if (provider == nullptr) return false;
  const bool isTCP = provider->descriptor == DescriptorKind::tcp;
  const OwnerFields *owner = isTCP ? ownerInTCP(length - descriptor) : &statisticsLayout->udp;
  if (owner == nullptr || length < descriptor + owner->name) return false;
  const uint64_t reference = referenceAt(message, kReference);
  const int place = placeOfSource(reference);
  if (place == kNoSourcePlace) return false;
  const int32_t pid = fieldAt<int32_t>(message, descriptor + owner->pid);
  store(process_pid_info[place], pid);
  if (load(g_debug) != 0) {
    const size_t name = descriptor + owner->name;
    traceDescription(isTCP ? "TCP" : "UDP", static_cast<const char *>(message) + name,
                     length - name, reference, pid);
  }
  return true;
}

static int32_t fileAddition(const void *message, size_t length) {
  if (length < statisticsLayout->addedSize) return 0;
  const uint64_t reference = referenceAt(message, statisticsLayout->addedReference);
  const int place = placeOfSource(reference);
  if (place == kNoSourcePlace) return 0;
  store(process_pid_info[place], 0);
  if (load(g_debug) != 0) {
    const auto provider = fieldAt<uint32_t>(message, statisticsLayout->addedProvider);
    fprintf(stderr, "Src Added - %ld\n", static_cast<long>(statisticsLayout->addedSize));
    // Kept: spelled like this.
    fprintf(stderr, "PRovider: %d, SrcRef: %d\n", static_cast<int>(provider),
            static_cast<int>(reference));
  }
  return static_cast<int32_t>(darwin::NSTAT_MSG_TYPE_SRC_ADDED);
}

static int32_t fileRemoval(const void *message, size_t length) {
  const int place = placeOfRemoved(message, length);
  if (place == kNoSourcePlace) return 0;
  store(process_pid_info[place], 0);
  if (statisticsLayout->hasWideReferences) freeSourcePlace(referenceAt(message, kReference));
  return static_cast<int32_t>(darwin::NSTAT_MSG_TYPE_SRC_REMOVED);
}

static bool fileCounts(const void *message, size_t length) {
  const size_t end =
      statisticsLayout->counts + offsetof(darwin::nstat_counts, nstat_rxduplicatebytes);
  if (length < end) return false;
  print_counts(message);
  return true;
}

// Counts and description in one.
static bool fileUpdate(const void *message, size_t length) {
  if (statisticsLayout->updateProvider == 0) return false;
  const bool isFiled = fileCounts(message, length);
  return fileOwner(message, length, statisticsLayout->updateProvider,
                   statisticsLayout->updateDescriptor) &&
         isFiled;
}

int32_t print_nstat_msg(const void *message, size_t length) {
  if (length < kHeader) return 0;
  int32_t filed = 0;
  bool isFiled = false;
  switch (typeOf(message)) {
    case darwin::NSTAT_MSG_TYPE_SRC_ADDED:
      filed = fileAddition(message, length);
      isFiled = filed != 0;
      break;
    case darwin::NSTAT_MSG_TYPE_SRC_REMOVED:
      filed = fileRemoval(message, length);
      isFiled = filed != 0;
      break;
    case darwin::NSTAT_MSG_TYPE_SRC_DESC:
      isFiled = fileOwner(message, length, statisticsLayout->descriptionProvider,
                          statisticsLayout->descriptionDescriptor);
      break;
    case darwin::NSTAT_MSG_TYPE_SRC_COUNTS:
      isFiled = fileCounts(message, length);
      break;
    case darwin::NSTAT_MSG_TYPE_SRC_UPDATE:
      isFiled = fileUpdate(message, length);
      break;
    default:
      break;
  }
  if (!isFiled) tracePassedOver(message, length);
  return filed;
}

static void requestDescription(uint64_t reference) {
  const size_t size = endOfReference(kReference);
  const auto header = makeHeader(darwin::NSTAT_MSG_TYPE_GET_SRC_DESC, kOtherContext, size, 0);
  bool isSent = false;
  if (statisticsLayout->hasWideReferences) {
    uint8_t request[kLargestRequest] = {};
    putField(request, 0, header);
    putField(request, kReference, reference);
    isSent = send(request, size);
  } else {
    gsdreq.hdr = header;
    gsdreq.srcref = static_cast<uint32_t>(reference);
    isSent = send(&gsdreq, sizeof gsdreq);
  }
  if (isSent) awaitedDescriptions++;
}

// The place to file counts in. Kept: a small reference for which there is none ends the program.
static int placeToCount(uint64_t reference) {
  if (statisticsLayout->hasWideReferences) return takeSourcePlace(reference);
  const int place = placeOfSource(reference);
  if (place == kNoSourcePlace) {
    endProgram(0, stderr,
               "Too many sources/connections! This is not a bug, but something that will be "
               "handled soon!\n");
  }
  return place;
}

void print_counts(const void *message) {
  using Counts = darwin::nstat_counts;
  const size_t counts = statisticsLayout->counts;
  const uint64_t reference = referenceAt(message, kReference);
  const int place = placeToCount(reference);
  if (place == kNoSourcePlace) return;
  const auto received = fieldAt<uint64_t>(message, counts + offsetof(Counts, nstat_rxbytes));
  const auto sent = fieldAt<uint64_t>(message, counts + offsetof(Counts, nstat_txbytes));
  store(process_ntstat_info[place].received, received);
  store(process_ntstat_info[place].sent, sent);

  const int32_t pid = load(process_pid_info[place]);
  if (pid == 0) {
    // An update tells the owner itself.
    if (typeOf(message) != darwin::NSTAT_MSG_TYPE_SRC_UPDATE) requestDescription(reference);
  } else if (load(g_debug) != 0) {
    const auto packetsIn = fieldAt<uint64_t>(message, counts + offsetof(Counts, nstat_rxpackets));
    const auto packetsOut = fieldAt<uint64_t>(message, counts + offsetof(Counts, nstat_txpackets));
    fprintf(stderr, "PID: %d SRCREF: %d COUNTS: %lld (%lld)/%lld (%lld)\n", pid,
            static_cast<int>(reference), static_cast<long long>(received),
            static_cast<long long>(packetsIn), static_cast<long long>(sent),
            static_cast<long long>(packetsOut));
    fflush(stderr);
  }
}

}  // namespace sondex
