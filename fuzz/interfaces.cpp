// The interface list as the kernel answers it. Bits of the first byte say: 1 whether the rest is
// what the messages of a well-formed list are made of, rather than a list; 2 and 4 whether the
// kernel asked for more room, or less; 8 whether it fails in the end.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "darwin/interfaces.h"
#include "darwin/sysctl.h"
#include "fuzz/input.h"
#include "screens/network_summary.h"

using fuzz::check;

namespace {

std::string g_list;
size_t g_announced = 0;
bool g_fails = false;

struct Totals {
  uint64_t receivedPackets = 0;
  uint64_t receivedBytes = 0;
  uint64_t sentPackets = 0;
  uint64_t sentBytes = 0;
};

template <typename Value>
void append(const Value &value) {
  g_list.append(reinterpret_cast<const char *>(&value), sizeof value);
}

// Interfaces, and messages of other kinds between them.
Totals makeList(fuzz::Input &input) {
  Totals totals;
  while (!input.isEmpty()) {
    darwin::if_msghdr2 message = {};
    const uint8_t kind = input.byte();
    const std::string behind(static_cast<size_t>(kind >> 3) * 4, '\xA5');
    message.ifm_type = (kind & 1) != 0 ? 12 : darwin::RTM_IFINFO2;
    const bool isLocal = (kind & 2) != 0;
    message.ifm_data.ifi_type = !isLocal ? 6 : (kind & 4) != 0 ? darwin::IFT_LOOP : darwin::IFT_PPP;
    message.ifm_data.ifi_ipackets = input.number<uint16_t>();
    message.ifm_data.ifi_ibytes = input.number<uint64_t>();
    message.ifm_data.ifi_opackets = input.number<uint16_t>();
    message.ifm_data.ifi_obytes = input.number<uint64_t>();
    message.ifm_msglen = static_cast<uint16_t>(sizeof message + behind.size());
    append(message);
    g_list += behind;
    if (message.ifm_type != darwin::RTM_IFINFO2 || isLocal) continue;
    totals.receivedPackets += message.ifm_data.ifi_ipackets;
    totals.receivedBytes += message.ifm_data.ifi_ibytes;
    totals.sentPackets += message.ifm_data.ifi_opackets;
    totals.sentBytes += message.ifm_data.ifi_obytes;
  }
  return totals;
}

}  // namespace

extern "C" int __wrap_sysctl(int *name, unsigned int count, void *old, size_t *size, void *,
                             size_t) {
  check(count == 6 && name[4] == darwin::DARWIN_NET_RT_IFLIST2);
  if (old == nullptr) {
    *size = g_announced;
    return 0;
  }
  if (g_fails || *size < g_list.size()) {
    errno = ENOMEM;
    return -1;
  }
  std::memcpy(old, g_list.data(), g_list.size());
  *size = g_list.size();
  return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  unsetenv("INCLUDE_LOOPBACK");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Input input(data, size);
  const uint8_t how = input.byte();
  g_list.clear();
  Totals expected;
  const bool isMade = (how & 1) != 0;
  if (isMade) {
    expected = makeList(input);
  } else {
    g_list = input.rest();
  }
  // As much as there is, more, or less: interfaces come and go between the two questions.
  g_announced = g_list.size();
  if ((how & 2) != 0) g_announced += 100;
  if ((how & 4) != 0) g_announced /= 2;
  g_fails = (how & 8) != 0;

  const bool isRead = !g_fails && g_list.size() <= g_announced;
  const sondex::NetworkSample *sample = sondex::sample_networks();
  check((sample != nullptr) == isRead);
  if (sample == nullptr) return 0;
  const sondex::NetworkSample first = *sample;
  check(!isMade ||
        (first.receivedPackets == expected.receivedPackets &&
         first.receivedBytes == expected.receivedBytes &&
         first.sentPackets == expected.sentPackets && first.sentBytes == expected.sentBytes));
  sample = sondex::sample_networks();
  check(sample != nullptr && sample->receivedBytes == first.receivedBytes &&
        sample->sentBytes == first.sentBytes && sample->receivedBytesPerSecond == 0 &&
        sample->sentBytesPerSecond == 0);
  return 0;
}
