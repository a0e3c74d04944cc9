#include "screens/network_summary.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include "darwin/interfaces.h"
#include "darwin/socket.h"
#include "darwin/sysctl.h"
#include "terminal/ending.h"

namespace sondex {

constexpr uint64_t kMicrosecondsPerSecond = 1000000;

static NetworkSample network_sample;

static bool countsLoopback() {
  static int choice = -1;
  if (choice < 0) choice = getenv("INCLUDE_LOOPBACK") != nullptr ? 1 : 0;
  return choice != 0;
}

// The interface list, to be freed by the caller; null when it can't be read.
static uint8_t *readInterfaces(size_t *size) {
  int name[] = {
      darwin::DARWIN_CTL_NET, darwin::DARWIN_AF_ROUTE, 0, 0, darwin::DARWIN_NET_RT_IFLIST2, 0};
  constexpr unsigned int kNumbers = sizeof name / sizeof name[0];
  if (darwin::sysctl(name, kNumbers, nullptr, size, nullptr, 0) != 0) return nullptr;
  const size_t room = *size;
  uint8_t *list = static_cast<uint8_t *>(malloc(room > 0 ? room : 1));
  if (list == nullptr) {
    endProgram(1, stdout, "malloc failed\n");
  }
  if (darwin::sysctl(name, kNumbers, list, size, nullptr, 0) != 0 || *size > room) {
    free(list);
    return nullptr;
  }
  return list;
}

static void addInterface(const darwin::if_msghdr2 &message) {
  const uint8_t type = message.ifm_data.ifi_type;
  const bool isLocal = type == darwin::IFT_LOOP || type == darwin::IFT_PPP;
  if (isLocal && !countsLoopback()) return;
  network_sample.receivedPackets += message.ifm_data.ifi_ipackets;
  network_sample.receivedBytes += message.ifm_data.ifi_ibytes;
  network_sample.sentPackets += message.ifm_data.ifi_opackets;
  network_sample.sentBytes += message.ifm_data.ifi_obytes;
}

static void addInterfaces(const uint8_t *list, size_t size) {
  struct {
    uint16_t length;
    uint8_t version;
    uint8_t type;
  } start;
  for (size_t at = 0; size - at >= sizeof start; at += start.length) {
    memcpy(&start, list + at, sizeof start);
    if (start.length < sizeof start || start.length > size - at) return;
    darwin::if_msghdr2 message;
    if (start.type != darwin::RTM_IFINFO2 || start.length < sizeof message) continue;
    memcpy(&message, list + at, sizeof message);
    addInterface(message);
  }
}

// Kept: at the first call `elapsed` is the time since the epoch, and the total the growth.
static uint64_t perSecond(uint64_t now, uint64_t before, int64_t elapsed) {
  if (now < before || elapsed <= 0) return 0;
  const uint64_t growth = now - before;
  const uint64_t microseconds = static_cast<uint64_t>(elapsed);
  if (growth <= UINT64_MAX / kMicrosecondsPerSecond) {
    return kMicrosecondsPerSecond * growth / microseconds;
  }
  // More than 16 TiB: what is lost below a second does not show.
  const uint64_t seconds = microseconds / kMicrosecondsPerSecond;
  return seconds > 0 ? growth / seconds : growth;
}

const NetworkSample *sample_networks() {
  countsLoopback();
  const NetworkSample before = network_sample;
  network_sample.receivedPackets = 0;
  network_sample.receivedBytes = 0;
  network_sample.sentPackets = 0;
  network_sample.sentBytes = 0;

  size_t size = 0;
  uint8_t *list = readInterfaces(&size);
  if (list == nullptr) return nullptr;
  addInterfaces(list, size);
  free(list);

  timeval now = {};
  gettimeofday(&now, nullptr);
  network_sample.seconds = static_cast<uint64_t>(now.tv_sec);
  network_sample.microseconds = static_cast<uint64_t>(now.tv_usec);
  const int64_t elapsed =
      static_cast<int64_t>((network_sample.seconds - before.seconds) * kMicrosecondsPerSecond +
                           network_sample.microseconds - before.microseconds);
  network_sample.sentBytesPerSecond =
      perSecond(network_sample.sentBytes, before.sentBytes, elapsed);
  network_sample.receivedBytesPerSecond =
      perSecond(network_sample.receivedBytes, before.receivedBytes, elapsed);
  return &network_sample;
}

}  // namespace sondex
