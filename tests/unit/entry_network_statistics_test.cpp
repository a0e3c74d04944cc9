// What the kernel's side of the network-statistics service says, byte by byte, for each family of
// kernels. Sizes and offsets are numbers here, and requests are written out.
#include "host/entry/network_statistics.h"

#include <cstring>
#include <optional>
#include <string_view>

#include "host/darwin/errors.h"
#include "tests/unit/network_machine.h"

namespace {

using darwin::DARWIN_EIO;
using darwin::DARWIN_EPERM;
using entry_test::makeSource;
using entry_test::NetworkTest;
using host::ClientQueue;
using host::NetworkProvider;
using host::NetworkStatistics;
using Bytes = ClientQueue::Datagram;

// Of hexadecimal digits, with zero bytes behind them.
Bytes bytesOf(std::string_view hex, size_t zeros = 0) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  bytes.resize(bytes.size() + zeros);
  return bytes;
}

template <typename T>
T at(const Bytes &bytes, size_t offset) {
  T value{};
  if (offset + sizeof value > bytes.size()) {
    ADD_FAILURE() << "nothing at " << offset << " of " << bytes.size() << " bytes";
    return value;
  }
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

uint32_t typeOf(const Bytes &message) {
  return at<uint32_t>(message, 8);
}
uint64_t contextOf(const Bytes &message) {
  return at<uint64_t>(message, 0);
}
uint16_t flagsOf(const Bytes &message) {
  return at<uint16_t>(message, 14);
}
std::string textAt(const Bytes &message, size_t offset) {
  return reinterpret_cast<const char *>(message.data() + offset);
}

// How a family lays out its messages: whole sizes, and offsets in a message.
struct Form {
  host::KernelFamily family;
  char set;
  size_t error;  // without the request behind it
  size_t added, addedProvider, addedReference;
  size_t removed;
  size_t counts, received, sent;
  size_t provider;  // in a description
  size_t tcp, tcpPID, tcpEffectivePID, tcpName;
  size_t udp, udpPID, udpEffectivePID, udpName;
  uint8_t udpNumber;
};

std::ostream &operator<<(std::ostream &out, const Form &form) {
  return out << form.family;
}

// clang-format off
const Form kForms[] = {
    {2422, 'A', 20, 24, 16, 20, 20, 132, 28, 44, 20, 276, 148, 224, 152, 232, 104, 180, 108, 3},
    {2782, 'A', 20, 24, 16, 20, 20, 132, 28, 44, 20, 276, 148, 224, 152, 232, 104, 180, 108, 3},
    {3248, 'B', 20, 24, 16, 20, 20, 132, 28, 44, 20, 284, 148, 224, 152, 236, 104, 180, 108, 3},
    {3789, 'C', 20, 28, 16, 20, 24, 144, 40, 56, 32, 296, 160, 236, 164, 248, 116, 192, 120, 4},
    {4570, 'D', 24, 32, 24, 16, 24, 144, 40, 56, 32, 344, 140, 144, 220, 296, 168, 236, 172, 4},
    {4903, 'D', 24, 32, 24, 16, 24, 144, 40, 56, 32, 344, 140, 144, 220, 296, 168, 236, 172, 4},
    {6153, 'D', 24, 32, 24, 16, 24, 144, 40, 56, 32, 344, 140, 144, 220, 296, 168, 236, 172, 4},
    {7195, 'E', 24, 32, 24, 16, 24, 144, 40, 56, 32, 376, 156, 160, 236, 312, 168, 236, 172, 4},
    {8020, 'E', 24, 32, 24, 16, 24, 144, 40, 56, 32, 376, 156, 160, 236, 312, 168, 236, 172, 4},
    {8792, 'E', 24, 32, 24, 16, 24, 144, 40, 56, 32, 376, 156, 160, 236, 312, 168, 236, 172, 4},
    {10002, 'E', 24, 32, 24, 16, 24, 144, 40, 56, 32, 384, 156, 160, 236, 320, 168, 236, 172, 4},
    {11417, 'E', 24, 32, 24, 16, 24, 144, 40, 56, 32, 384, 156, 160, 236, 320, 168, 236, 172, 4},
    {12000, 'E', 24, 32, 24, 16, 24, 144, 40, 56, 32, 384, 156, 160, 236, 320, 168, 236, 172, 4},
};
// clang-format on

const Form &formOf(host::KernelFamily family) {
  for (const Form &form : kForms) {
    if (form.family == family) return form;
  }
  throw std::invalid_argument("no such family here");
}

// Context 2.
Bytes addAll(char set, uint32_t provider, uint64_t filter = 0) {
  const Bytes number = {static_cast<uint8_t>(provider), static_cast<uint8_t>(provider >> 8),
                        static_cast<uint8_t>(provider >> 16), static_cast<uint8_t>(provider >> 24)};
  Bytes request;
  size_t numberAt = 16;
  size_t filterAt = 20;
  if (set == 'A') request = bytesOf("0200000000000000ea03000000000000", 4);
  if (set == 'B') request = bytesOf("0200000000000000ea0300001c000000", 12);
  if (set >= 'C') request = bytesOf("0200000000000000ea03000038000000", 40);
  if (set >= 'D') {
    numberAt = 32;
    filterAt = 16;
  }
  std::copy(number.begin(), number.end(), request.begin() + static_cast<ptrdiff_t>(numberAt));
  if (set != 'A') std::memcpy(request.data() + filterAt, &filter, sizeof filter);
  return request;
}

// Of type 1004 or 1005.
Bytes aboutOne(char set, uint16_t type, uint64_t reference, uint64_t context = 7) {
  Bytes request(set <= 'B' ? 20 : 24);
  std::memcpy(request.data(), &context, 8);
  std::memcpy(request.data() + 8, &type, 2);
  std::memcpy(request.data() + 16, &reference, set <= 'B' ? 4 : 8);
  return request;
}

// Context 1005.
Bytes queryAll(char set, uint8_t flags) {
  if (set == 'A') return bytesOf("ed03000000000000ec03000000000000ffffffff");
  Bytes request = set == 'B' ? bytesOf("ed03000000000000ec03000014000300ffffffff")
                             : bytesOf("ed03000000000000ec03000018000300ffffffffffffffff");
  request[14] = flags;
  return request;
}

Bytes withContext(Bytes request, uint8_t context) {
  request[0] = context;
  request[1] = 0;
  return request;
}

class NetworkService : public NetworkTest {
 protected:
  void speakAs(host::KernelFamily family, uint64_t first = 1) {
    form = formOf(family);
    service.emplace(family, first, queue);
  }

  // What it says when nothing of it was read before.
  std::vector<Bytes> ask(const Bytes &request) {
    service->answer(request.data(), request.size());
    return read();
  }
  std::vector<Bytes> sweep() {
    service->sweep();
    return read();
  }
  std::vector<Bytes> read() {
    std::vector<Bytes> datagrams;
    for (; !queue.isEmpty(); queue.pop()) datagrams.push_back(queue.front());
    return datagrams;
  }

  // Datagrams that may share messages; each is as long as it says.
  static std::vector<Bytes> apart(const std::vector<Bytes> &datagrams) {
    std::vector<Bytes> messages;
    for (const Bytes &datagram : datagrams) {
      for (size_t start = 0; start < datagram.size();) {
        size_t length = at<uint16_t>(datagram, start + 12);
        if (length == 0) length = datagram.size();  // of set A
        if (length < 16 || start + length > datagram.size()) {
          ADD_FAILURE() << length << " bytes at " << start << " of " << datagram.size();
          return messages;
        }
        const auto from = datagram.begin() + static_cast<ptrdiff_t>(start);
        messages.emplace_back(from, from + static_cast<ptrdiff_t>(length));
        start += length;
      }
    }
    return messages;
  }

  uint64_t referenceIn(const Bytes &message) const {
    const size_t offset = typeOf(message) == 10001 ? form.addedReference : 16;
    return form.set <= 'B' ? at<uint32_t>(message, offset) : at<uint64_t>(message, offset);
  }

  // Types, those about a source with its reference: "10001:1 0".
  std::string told(const std::vector<Bytes> &messages) const {
    std::string text;
    for (const Bytes &message : messages) {
      text += (text.empty() ? "" : " ") + std::to_string(typeOf(message));
      if (typeOf(message) >= 10001) text += ":" + std::to_string(referenceIn(message));
    }
    return text;
  }

  void expectHeader(const Bytes &message, uint32_t type, uint64_t context, uint16_t flags,
                    size_t size) const {
    EXPECT_EQ(typeOf(message), type);
    EXPECT_EQ(contextOf(message), context);
    EXPECT_EQ(message.size(), size);
    EXPECT_EQ(at<uint16_t>(message, 12), form.set == 'A' ? 0 : size);
    EXPECT_EQ(flagsOf(message), form.set == 'A' ? 0 : flags);
  }

  void expectError(const std::vector<Bytes> &messages, uint32_t error, const Bytes &request) const {
    ASSERT_EQ(messages.size(), 1u);
    const size_t copied = form.set == 'A' ? 0 : request.size();
    expectHeader(messages[0], 1, contextOf(request), 0, form.error + copied);
    EXPECT_EQ(at<uint32_t>(messages[0], 16), error);
    if (copied == 0) return;
    // As the kernel put it right: its length is true, and if it was not its flags are gone.
    Bytes corrected = request;
    if (at<uint16_t>(request, 12) != request.size()) {
      corrected[12] = static_cast<uint8_t>(request.size());
      corrected[13] = corrected[14] = corrected[15] = 0;
    }
    EXPECT_EQ(Bytes(messages[0].begin() + static_cast<ptrdiff_t>(form.error), messages[0].end()),
              corrected);
  }

  // As many TCP sources of process 5, with keys from 1.
  void setMany(uint64_t count) {
    std::vector<host::NetworkSource> sources;
    for (uint64_t key = 1; key <= count; key++) sources.push_back(makeSource(key, 5, key, 2 * key));
    machine.setSources(std::move(sources));
  }

  void subscribeToMany(uint64_t count) {
    setMany(count);
    queue.setLimit(1 << 20);
    EXPECT_EQ(ask(addAll(form.set, 2)).size(), count + 1);
    queue.setLimit(8192);
  }

  ClientQueue queue;
  Form form{};
  std::optional<NetworkStatistics> service;
};

// ---

class OfEachFamily : public NetworkService, public testing::WithParamInterface<Form> {
 protected:
  OfEachFamily() { speakAs(GetParam().family); }
};

std::string nameOf(const testing::TestParamInfo<Form> &row) {
  return std::to_string(row.param.family);
}

INSTANTIATE_TEST_SUITE_P(NetworkService, OfEachFamily, testing::ValuesIn(kForms), nameOf);

TEST_P(OfEachFamily, TellsOfSourcesTheirOwnersCountsAndEnds) {
  machine.setSources(
      {makeSource(10, 321, 1000, 2000), makeSource(11, 322, 3000, 4000, NetworkProvider::udp)});
  EXPECT_FALSE(service->hasSubscriptions());
  std::vector<Bytes> said = ask(addAll(form.set, 2));
  EXPECT_TRUE(service->hasSubscriptions());
  ASSERT_EQ(told(said), "10001:1 0");
  expectHeader(said[0], 10001, 0, 0, form.added);
  EXPECT_EQ(at<uint32_t>(said[0], form.addedProvider), 2u);
  expectHeader(said[1], 0, 2, 0, 16);
  said = ask(addAll(form.set, form.udpNumber));
  ASSERT_EQ(told(said), "10001:2 0");
  EXPECT_EQ(at<uint32_t>(said[0], form.addedProvider), form.udpNumber);

  said = ask(aboutOne(form.set, 1005, 1));
  ASSERT_EQ(told(said), "10003:1");
  expectHeader(said[0], 10003, 7, 0, form.tcp);
  EXPECT_EQ(at<uint32_t>(said[0], form.provider), 2u);
  EXPECT_EQ(at<int32_t>(said[0], form.tcpPID), 321);
  EXPECT_EQ(at<int32_t>(said[0], form.tcpEffectivePID), 321);
  EXPECT_EQ(textAt(said[0], form.tcpName), "process321");
  said = ask(aboutOne(form.set, 1005, 2));
  ASSERT_EQ(told(said), "10003:2");
  expectHeader(said[0], 10003, 7, 0, form.udp);
  EXPECT_EQ(at<uint32_t>(said[0], form.provider), form.udpNumber);
  EXPECT_EQ(at<int32_t>(said[0], form.udpPID), 322);
  EXPECT_EQ(at<int32_t>(said[0], form.udpEffectivePID), 322);
  EXPECT_EQ(textAt(said[0], form.udpName), "process322");

  machine.setSources(
      {makeSource(10, 321, 1500, 2000), makeSource(11, 322, 3000, 4700, NetworkProvider::udp)});
  const std::vector<Bytes> counts = apart(ask(queryAll(form.set, 0)));
  ASSERT_EQ(told(counts), "10004:2 10004:1 0") << "the newest first";
  const uint64_t context = form.family >= 11215 ? 0 : 1005;
  expectHeader(counts[0], 10004, context, 0, form.counts);
  EXPECT_EQ(at<uint64_t>(counts[0], form.received - 8), 30u);
  EXPECT_EQ(at<uint64_t>(counts[0], form.received), 3000u);
  EXPECT_EQ(at<uint64_t>(counts[0], form.sent - 8), 47u);
  EXPECT_EQ(at<uint64_t>(counts[0], form.sent), 4700u);
  EXPECT_EQ(at<uint64_t>(counts[1], form.received), 1500u);
  expectHeader(counts[2], 0, 1005, 0, 16);

  machine.setSources({makeSource(11, 322, 3000, 4700, NetworkProvider::udp)});
  said = sweep();
  ASSERT_EQ(told(said), "10004:1 10003:1 10002:1");
  expectHeader(said[0], 10004, 0, 4, form.counts);
  EXPECT_EQ(at<uint64_t>(said[0], form.received), 1500u);
  expectHeader(said[1], 10003, 0, 4, form.tcp);
  expectHeader(said[2], 10002, 0, 0, form.removed);
  EXPECT_EQ(sweep().size(), 0u);
}

TEST_P(OfEachFamily, AnswersAboutOneSource) {
  machine.setSources({makeSource(10, 321, 1000, 2000)});
  ask(addAll(form.set, 2));
  const std::vector<Bytes> said = ask(aboutOne(form.set, 1004, 1));
  ASSERT_EQ(told(said), "10004:1") << "without success";
  expectHeader(said[0], 10004, 7, 0, form.counts);
  for (const uint16_t type : {uint16_t{1004}, uint16_t{1005}}) {
    for (const uint64_t unknown : {0u, 2u, 1024u}) {
      expectError(ask(aboutOne(form.set, type, unknown)), 2, aboutOne(form.set, type, unknown));
    }
  }
}

TEST_P(OfEachFamily, RefusesWhatIsShortOrUnknown) {
  for (const Bytes &whole : {addAll(form.set, 2), aboutOne(form.set, 1004, 1)}) {
    Bytes request = whole;
    while (request.size() > 16) {
      request.pop_back();
      expectError(ask(request), 22, request);
    }
    request.pop_back();
    EXPECT_EQ(ask(request).size(), 0u) << "without a header there is nobody to answer";
  }
  for (const uint16_t type : std::vector<uint16_t>{0, 1, 1001, 1006, 10004}) {
    expectError(ask(aboutOne(form.set, type, 1)), 22, aboutOne(form.set, type, 1));
  }
}

TEST_P(OfEachFamily, HasTheProvidersOfItsTime) {
  // Their errors by number; 0 is success.
  std::vector<uint32_t> errors = {2, 45, 0, 0, 45, 45, 2};
  if (form.set == 'B') errors = {2, 45, 0, 0, 45, 2, 2};
  if (form.set >= 'C') errors = {2, 45, 0, 0, 0, 0, 45, 2, 2};
  if (form.family >= 6153) errors = {2, 45, 0, 0, 0, 0, 45, 2, 0, 2};
  if (form.family >= 8019) errors = {2, 45, 0, 0, 0, 0, 45, 2, 0, 0, 0, 2};
  for (uint32_t number = 0; number < errors.size(); number++) {
    const std::vector<Bytes> said = ask(addAll(form.set, number));
    if (errors[number] == 0) {
      EXPECT_EQ(told(said), "0") << number;
      expectError(ask(addAll(form.set, number)), 37, addAll(form.set, number));
    } else {
      expectError(said, errors[number], addAll(form.set, number));
    }
  }
  expectError(ask(addAll(form.set, 0xFFFFFFFF)), 2, addAll(form.set, 0xFFFFFFFF));
}

TEST_P(OfEachFamily, TellsOfAProcesssOwnProtocolsUnderTheirNumbers) {
  machine.setSources({makeSource(1, 11, 1, 1, NetworkProvider::userlandTCP),
                      makeSource(2, 12, 1, 1, NetworkProvider::userlandUDP),
                      makeSource(3, 13, 1, 1, NetworkProvider::quic)});
  ask(addAll(form.set, 2));
  if (form.set <= 'B') {
    EXPECT_EQ(told(ask(addAll(form.set, 3))), "0") << "there are none";
    return;
  }
  EXPECT_EQ(told(ask(addAll(form.set, 4))), "0");
  EXPECT_EQ(told(ask(addAll(form.set, 3))), "10001:1 0");
  EXPECT_EQ(told(ask(addAll(form.set, 5))), "10001:2 0");
  std::vector<Bytes> said = ask(aboutOne(form.set, 1005, 1));
  EXPECT_EQ(said[0].size(), form.tcp);
  EXPECT_EQ(at<uint32_t>(said[0], form.provider), 3u);
  EXPECT_EQ(at<int32_t>(said[0], form.tcpPID), 11);
  said = ask(aboutOne(form.set, 1005, 2));
  EXPECT_EQ(said[0].size(), form.udp);
  EXPECT_EQ(at<uint32_t>(said[0], form.provider), 5u);
  EXPECT_EQ(at<int32_t>(said[0], form.udpPID), 12);
  if (form.family < 6153) return;
  EXPECT_EQ(told(ask(addAll(form.set, 8))), "10001:3 0");
  said = ask(aboutOne(form.set, 1005, 3));
  EXPECT_EQ(said[0].size(), form.tcp);
  EXPECT_EQ(at<uint32_t>(said[0], form.provider), 8u);
  EXPECT_EQ(at<int32_t>(said[0], form.tcpPID), 13);
}

TEST_P(OfEachFamily, MistakesTheRequestsOfOthers) {
  const auto errorOf = [this](char set) {
    speakAs(form.family);
    const std::vector<Bytes> said = ask(addAll(set, 2));
    return typeOf(said.at(0)) == 0 ? 0 : at<uint32_t>(said[0], 16);
  };
  const bool isLater = form.set > 'B';
  EXPECT_EQ(errorOf('A'), form.set == 'A' ? 0u : 22u);
  EXPECT_EQ(errorOf('B'), isLater ? 22u : 0u);
  EXPECT_EQ(errorOf('C'), form.set > 'C' ? 2u : 0u);
  EXPECT_EQ(errorOf('D'), form.set > 'C' ? 0u : 2u);
}

TEST_P(OfEachFamily, DescriptorsHaveNothingButTheOwner) {
  host::NetworkSource source = makeSource(10, 321, 1, 1);
  source.process = std::string(100, 'n');
  machine.setSources({source});
  ask(addAll(form.set, 2));
  const Bytes said = ask(aboutOne(form.set, 1005, 1)).at(0);
  EXPECT_EQ(textAt(said, form.tcpName), std::string(63, 'n'));
  // What is read from any other place is no PID.
  const size_t descriptor = form.set <= 'B' ? 24 : form.set == 'C' ? 36 : 40;
  for (size_t offset = descriptor + (form.set == 'A' ? 64 : 0); offset < form.tcp; offset += 4) {
    const bool isName = offset + 4 > form.tcpName && offset < form.tcpName + 64;
    if (offset == form.tcpPID || offset == form.tcpEffectivePID || isName) continue;
    EXPECT_LT(at<int32_t>(said, offset), 0) << offset;
  }
}

TEST_F(NetworkService, TheOldestDescriptorsHaveAddressesToo) {
  speakAs(2782);
  host::NetworkSource source = makeSource(20, 321, 1, 1);
  source.local = {2, {192, 168, 1, 7}, 0x1234, 0};
  source.remote = {30, {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9}, 80, 4};
  source.interfaceIndex = 3;
  source.state = 4;
  machine.setSources({source});
  ask(addAll('A', 2));
  const Bytes said = ask(aboutOne('A', 1005, 1)).at(0);
  EXPECT_EQ(Bytes(said.begin() + 24, said.begin() + 52), bytesOf("10021234c0a80107", 20));
  EXPECT_EQ(Bytes(said.begin() + 52, said.begin() + 80),
            bytesOf("1c1e005000000000fe80000000000000000000000000000904000000"));
  EXPECT_EQ(at<uint32_t>(said, 80), 3u);
  EXPECT_EQ(at<uint32_t>(said, 84), 4u);
}

// --- References.

TEST_F(NetworkService, NarrowReferencesAreUsedAgain) {
  for (const auto family : std::vector<host::KernelFamily>{2782, 3248}) {
    speakAs(family, 5000);
    machine.setSources({makeSource(10, 5, 1, 1), makeSource(11, 6, 1, 1)});
    EXPECT_EQ(told(ask(addAll(form.set, 2))), "10001:1 10001:2 0");
    machine.setSources({makeSource(11, 6, 1, 1), makeSource(12, 7, 1, 1), makeSource(13, 8, 1, 1)});
    EXPECT_EQ(told(sweep()), "10004:1 10003:1 10002:1 10001:1 10001:3");
    for (uint64_t key = 100; key < 3000; key++) {
      machine.setSources({makeSource(key, 6, 1, 1)});
      sweep();
    }
    const std::vector<Bytes> said = ask(queryAll(form.set, 0));
    EXPECT_LE(referenceIn(said.at(0)), 4u);
  }
}

TEST_F(NetworkService, WideReferencesAreNeverUsedAgain) {
  for (const auto family : std::vector<host::KernelFamily>{3789, 4903, 10002}) {
    speakAs(family);
    machine.setSources({makeSource(10, 5, 1, 1)});
    EXPECT_EQ(told(ask(addAll(form.set, 2))), "10001:1 0");
    machine.setSources({makeSource(11, 6, 1, 1)});
    EXPECT_EQ(told(sweep()), "10004:1 10003:1 10002:1 10001:2");
    machine.setSources({makeSource(12, 6, 1, 1)});
    EXPECT_EQ(told(sweep()), "10004:2 10003:2 10002:2 10001:3");
  }
}

TEST_F(NetworkService, WideReferencesGoBeyond32Bits) {
  speakAs(8020, 4294967299);
  machine.setSources({makeSource(10, 5, 70, 1), makeSource(11, 6, 80, 1)});
  EXPECT_EQ(told(ask(addAll('E', 2))), "10001:4294967299 10001:4294967300 0");
  const std::vector<Bytes> said = ask(aboutOne('E', 1004, 4294967299));
  ASSERT_EQ(told(said), "10004:4294967299");
  EXPECT_EQ(at<uint64_t>(said[0], 40), 70u);
  expectError(ask(aboutOne('E', 1004, 3)), 2, aboutOne('E', 1004, 3));
  EXPECT_EQ(told(apart(ask(queryAll('E', 3)))), "10004:4294967300 10004:4294967299 0");
}

TEST_F(NetworkService, OldKernelsReadTheLowHalfOfAReference) {
  speakAs(2782);
  machine.setSources({makeSource(10, 5, 70, 1)});
  ask(addAll('A', 2));
  EXPECT_EQ(told(ask(aboutOne('C', 1004, 1))), "10004:1");
  EXPECT_EQ(told(ask(aboutOne('C', 1004, 0xFFFFFFFFFFFFFFFF))), "10004:1 0");
}

// --- Sources that come, go, and change.

TEST_F(NetworkService, QueryAllTellsOfANewSourceFirst) {
  speakAs(2782);
  machine.setSources({makeSource(10, 5, 1, 2)});
  ask(addAll('A', 2));
  machine.setSources({makeSource(10, 5, 1, 2), makeSource(12, 7, 5, 6)});
  EXPECT_EQ(told(ask(queryAll('A', 0))), "10001:2 10004:2 10004:1 0");
}

TEST_F(NetworkService, ASourceFoundGoneIsRemovedAfterSuccess) {
  for (const auto family : std::vector<host::KernelFamily>{2782, 4903}) {
    speakAs(family);
    machine.setSources({makeSource(10, 5, 1000, 2), makeSource(11, 6, 1, 1)});
    ask(addAll(form.set, 2));
    machine.setSources({makeSource(11, 6, 2, 1)});
    const std::vector<Bytes> said = ask(queryAll(form.set, 0));
    ASSERT_EQ(told(said), "10004:2 10004:1 10003:1 0 10002:1");
    expectHeader(said[1], 10004, 1005, 0, form.counts);
    EXPECT_EQ(at<uint64_t>(said[1], form.received), 1000u);
    expectHeader(said[2], 10003, 0, 0, form.tcp);
    EXPECT_EQ(told(ask(queryAll(form.set, 0))), "10004:2 0");
    EXPECT_EQ(told(sweep()), "");
    expectError(ask(aboutOne(form.set, 1005, 1)), 2, aboutOne(form.set, 1005, 1));
  }
}

TEST_F(NetworkService, AChangeOfOwnerIsANewSource) {
  speakAs(4903);
  machine.setSources({makeSource(10, 5, 1000, 2000)});
  ask(addAll('D', 2));
  machine.setSources({makeSource(10, 50, 1000, 2000)});
  EXPECT_EQ(told(ask(queryAll('D', 0))), "10001:2 10004:2 10004:1 10003:1 0 10002:1");
  EXPECT_EQ(at<int32_t>(ask(aboutOne('D', 1005, 2)).at(0), 140), 50);
}

TEST_F(NetworkService, ARepeatedSourceIsOne) {
  speakAs(4903);
  machine.setSources({makeSource(30, 5, 1, 1), makeSource(30, 5, 1, 1)});
  EXPECT_EQ(told(ask(addAll('D', 2))), "10001:1 0");
  EXPECT_EQ(told(ask(queryAll('D', 0))), "10004:1 0");
}

TEST_F(NetworkService, AMachineThatFailsKeepsWhatWasKnown) {
  speakAs(4903);
  machine.setSources({makeSource(10, 5, 1, 2)});
  ask(addAll('D', 2));
  machine.sourcesRefusal = DARWIN_EIO;
  EXPECT_EQ(told(ask(queryAll('D', 0))), "10004:1 0");
  EXPECT_EQ(told(sweep()), "");
}

TEST_F(NetworkService, ARefusalOfTheMachineCanBeTriedAgain) {
  speakAs(4903);
  machine.sourcesRefusal = DARWIN_EIO;
  expectError(ask(addAll('D', 2)), 5, addAll('D', 2));
  machine.sourcesRefusal = host::kAnswered;
  EXPECT_EQ(told(ask(addAll('D', 2))), "0");
}

// --- Privilege.

TEST_F(NetworkService, RefusesThoseWhoMayNotSubscribe) {
  speakAs(10002);
  machine.setSources({makeSource(10, 5, 1, 2)});
  machine.subscriptionRefusal = DARWIN_EPERM;
  expectError(ask(addAll('E', 2)), 1, addAll('E', 2));
  expectError(ask(addAll('E', 11)), 2, addAll('E', 11));
  expectError(ask(addAll('E', 6)), 45, addAll('E', 6));
  EXPECT_FALSE(service->hasSubscriptions());
  EXPECT_EQ(told(ask(queryAll('E', 3))), "0") << "the connection stays";
  machine.subscriptionRefusal = host::kAnswered;
  ask(addAll('E', 2));
  machine.subscriptionRefusal = DARWIN_EPERM;
  expectError(ask(addAll('E', 2)), 1, addAll('E', 2));
}

TEST_F(NetworkService, SubflowsAreForRoot) {
  machine.user = 501;
  speakAs(8020);
  EXPECT_EQ(told(ask(addAll('E', 10))), "0");
  speakAs(8792);
  expectError(ask(addAll('E', 10)), 1, addAll('E', 10));
  EXPECT_EQ(told(ask(addAll('E', 8))), "0");
}

// --- Flags, shared datagrams and pages.

// 28 counts of 144 bytes, or 31 of 132, are the most that fit 4096.
TEST_F(NetworkService, SharesDatagrams) {
  const struct {
    host::KernelFamily family;
    uint8_t flags;
    std::vector<size_t> sizes;
  } kRows[] = {{3248, 1, {4092, 1188, 16}},
               {3789, 1, {4032, 1728, 16}},
               {6153, 1, {4032, 1728, 16}},
               {11417, 1, {4032, 1728, 16}},
               {11417, 0, {4032, 1728, 16}}};
  for (const auto &row : kRows) {
    speakAs(row.family);
    subscribeToMany(40);
    const std::vector<Bytes> said = ask(queryAll(form.set, row.flags));
    std::vector<size_t> sizes;
    for (const Bytes &datagram : said) sizes.push_back(datagram.size());
    EXPECT_EQ(sizes, row.sizes) << row.family;
    const std::vector<Bytes> messages = apart(said);
    ASSERT_EQ(messages.size(), 41u) << row.family;
    for (uint64_t i = 0; i < 40; i++) {
      expectHeader(messages[i], 10004, 0, 0, form.counts);
      EXPECT_EQ(referenceIn(messages[i]), 40 - i);
      EXPECT_EQ(at<uint64_t>(messages[i], form.received), 40 - i);
    }
    expectHeader(messages[40], 0, 1005, 0, 16);
  }
}

TEST_F(NetworkService, AWrongLengthTakesTheFlagsAway) {
  speakAs(4903);
  subscribeToMany(3);
  Bytes request = queryAll('D', 1);
  EXPECT_EQ(ask(request).size(), 2u);
  request[12] = 20;
  EXPECT_EQ(ask(request).size(), 4u);
  request[12] = 0;
  EXPECT_EQ(ask(request).size(), 4u);
}

TEST_F(NetworkService, DescribesAllAtOnce) {
  speakAs(4903);
  subscribeToMany(20);
  Bytes request = queryAll('D', 1);
  request[8] = 0xed;  // 1005
  const std::vector<Bytes> said = ask(request);
  ASSERT_EQ(said.size(), 3u);
  EXPECT_EQ(said[0].size(), 11u * 344);
  const std::vector<Bytes> messages = apart(said);
  ASSERT_EQ(messages.size(), 21u);
  expectHeader(messages[0], 10003, 0, 0, 344);
  EXPECT_EQ(referenceIn(messages[19]), 1u);
}

TEST_F(NetworkService, APageEndsAfterFiftySources) {
  for (const auto family : std::vector<host::KernelFamily>{4570, 6153, 8020, 11417}) {
    speakAs(family);
    subscribeToMany(120);
    uint64_t next = 120;
    for (const size_t count : {50, 50, 20}) {
      const std::vector<Bytes> messages = apart(ask(queryAll(form.set, 3)));
      ASSERT_EQ(messages.size(), count + 1) << family;
      for (size_t i = 0; i < count; i++) EXPECT_EQ(referenceIn(messages[i]), next--);
      expectHeader(messages[count], 0, 1005, count == 50 ? 2 : 0, 16);
    }
    EXPECT_EQ(apart(ask(queryAll(form.set, 3))).size(), 51u) << "the next round";
  }
}

TEST_F(NetworkService, EarlyPagesAreTwiceAsLong) {
  for (const auto family : std::vector<host::KernelFamily>{3248, 3789}) {
    speakAs(family);
    subscribeToMany(120);
    queue.setLimit(1 << 20);
    EXPECT_EQ(apart(ask(queryAll(form.set, 3))).size(), 101u);
    EXPECT_EQ(apart(ask(queryAll(form.set, 3))).size(), 21u);
  }
}

TEST_F(NetworkService, TheLastPageMayBeEmptyAndTakesWhatCame) {
  speakAs(4903);
  subscribeToMany(50);
  std::vector<Bytes> messages = apart(ask(queryAll('D', 3)));
  EXPECT_EQ(flagsOf(messages.at(50)), 2);
  messages = apart(ask(queryAll('D', 3)));
  ASSERT_EQ(told(messages), "0");
  EXPECT_EQ(flagsOf(messages[0]), 0);
  apart(ask(queryAll('D', 3)));
  setMany(51);
  EXPECT_EQ(told(apart(ask(queryAll('D', 3)))), "10001:51 10004:51 0");
}

TEST_F(NetworkService, AnotherContextDropsARound) {
  speakAs(4903);
  subscribeToMany(60);
  EXPECT_EQ(apart(ask(queryAll('D', 3))).size(), 51u);
  const std::vector<Bytes> messages = apart(ask(withContext(queryAll('D', 3), 9)));
  ASSERT_EQ(messages.size(), 52u);
  expectHeader(messages[0], 1, 1005, 0, 24);
  EXPECT_EQ(at<uint32_t>(messages[0], 16), 35u);
  EXPECT_EQ(referenceIn(messages[1]), 60u) << "it starts anew";
  EXPECT_EQ(apart(ask(withContext(queryAll('D', 3), 9))).size(), 11u);
}

TEST_F(NetworkService, ContextZeroStartsNoRound) {
  speakAs(4903);
  subscribeToMany(3);
  EXPECT_EQ(told(apart(ask(queryAll('D', 3)))), "10004:3 10004:2 10004:1 0");
  EXPECT_EQ(told(apart(ask(withContext(queryAll('D', 3), 0)))), "0") << "all are old";
  EXPECT_EQ(told(apart(ask(withContext(queryAll('D', 1), 0)))), "10004:3 10004:2 10004:1 0");
}

TEST_F(NetworkService, TheFirstKernelWithPagesTellsOfAnOpenRound) {
  speakAs(3248);
  subscribeToMany(120);
  queue.setLimit(1 << 20);
  ask(queryAll('B', 3));
  std::vector<Bytes> said = ask(aboutOne('B', 1004, 1));
  ASSERT_EQ(told(said), "1 10004:1");
  expectHeader(said[0], 1, 1005, 0, 20);
  EXPECT_EQ(at<uint32_t>(said[0], 16), 35u);
  EXPECT_EQ(apart(ask(queryAll('B', 3))).size(), 21u) << "and goes on";
  EXPECT_EQ(told(ask(aboutOne('B', 1004, 1))), "10004:1");

  speakAs(4903);
  subscribeToMany(120);
  ask(queryAll('D', 3));
  EXPECT_EQ(told(ask(aboutOne('D', 1004, 1))), "10004:1");
}

// --- Filters.

TEST_F(NetworkService, AFilterKeepsSilentAboutNewSources) {
  for (const auto family : std::vector<host::KernelFamily>{3248, 3789, 4903, 10002}) {
    speakAs(family);
    machine.setSources({makeSource(10, 5, 100, 2)});
    EXPECT_EQ(told(ask(addAll(form.set, 2, 0x100000))), "0");
    machine.setSources({makeSource(10, 5, 100, 2), makeSource(11, 6, 3, 4)});
    EXPECT_EQ(told(apart(ask(queryAll(form.set, 1)))), "10004:2 10004:1 0");
    machine.setSources({makeSource(11, 6, 3, 4)});
    const std::vector<Bytes> said = sweep();
    if (form.set <= 'C') {
      EXPECT_EQ(told(said), "10004:1 10003:1 10002:1");
      continue;
    }
    ASSERT_EQ(told(said), "10006:1 10002:1");
    expectHeader(said[0], 10006, 0, 4, family == 4903 ? 152 + 304 : 152 + 344);
    EXPECT_EQ(at<uint64_t>(said[0], 40), 100u);
    EXPECT_EQ(at<uint32_t>(said[0], 144), 2u);
    EXPECT_EQ(at<int32_t>(said[0], family == 4903 ? 252 : 268), 5);
    EXPECT_EQ(textAt(said[0], family == 4903 ? 332 : 348), "process5");
  }
}

// --- A queue that is full.

// 43 counts of 144 bytes leave 2,000 of 8,192.
TEST_F(NetworkService, SingleCountsEndWithAFullQueue) {
  for (const auto family : std::vector<host::KernelFamily>{3789, 4903, 10002}) {
    speakAs(family);
    subscribeToMany(120);
    const Bytes request = queryAll(form.set, 0);
    const std::vector<Bytes> said = ask(request);
    ASSERT_EQ(said.size(), 44u) << family;
    EXPECT_EQ(referenceIn(said[42]), 78u);
    expectError({said[43]}, 55, request);
  }
}

TEST_F(NetworkService, TheOldestKernelsGoOnWithAFullQueue) {
  speakAs(2782);
  subscribeToMany(120);
  const std::vector<Bytes> said = ask(queryAll('A', 0));
  ASSERT_EQ(said.size(), 48u);  // 47 counts of 132 bytes leave 1,988
  EXPECT_EQ(referenceIn(said[46]), 74u);
  expectHeader(said[47], 0, 1005, 0, 16);
}

TEST_F(NetworkService, SharedDatagramsAreLostWithoutASign) {
  speakAs(4903);
  subscribeToMany(120);
  const std::vector<Bytes> said = ask(queryAll('D', 1));
  ASSERT_EQ(said.size(), 3u);
  EXPECT_EQ(apart(said).size(), 28u + 28 + 1);
  expectHeader(said[2], 0, 1005, 0, 16);
  queue.setLimit(65536);
  EXPECT_EQ(apart(ask(queryAll('D', 1))).size(), 121u);
}

// 192 of 32 bytes leave 2,048 of 8,192; one more and the rest are refused.
TEST_F(NetworkService, ASourceThatCanNotBeToldOfIsNotListed) {
  speakAs(4903);
  setMany(300);
  std::vector<Bytes> said = ask(addAll('D', 2));
  ASSERT_EQ(said.size(), 194u);
  EXPECT_EQ(referenceIn(said[192]), 193u);
  expectHeader(said[193], 0, 2, 0, 16);
  EXPECT_EQ(told(sweep()), "") << "it is not offered again";
  queue.setLimit(1 << 20);
  EXPECT_EQ(ask(queryAll('D', 0)).size(), 194u);
  setMany(301);
  EXPECT_EQ(told(sweep()), "10001:194") << "later ones are";
}

TEST_F(NetworkService, AProcesssOwnSourcesThatCanNotBeToldOfAreAnError) {
  std::vector<host::NetworkSource> sources;
  for (uint64_t key = 1; key <= 300; key++) {
    sources.push_back(makeSource(key, 5, 1, 1, NetworkProvider::userlandTCP));
  }
  machine.setSources(sources);
  speakAs(6153);
  EXPECT_EQ(typeOf(ask(addAll('D', 3)).at(193)), 0u);
  speakAs(10002);
  std::vector<Bytes> said = ask(addAll('E', 3));
  ASSERT_EQ(said.size(), 194u);
  expectError({said[193]}, 55, addAll('E', 3));
  expectError(ask(addAll('E', 3)), 37, addAll('E', 3));
  sources.push_back(makeSource(301, 5, 1, 1, NetworkProvider::userlandTCP));
  machine.setSources(sources);
  EXPECT_EQ(told(sweep()), "10001:194") << "the subscription stays";
}

TEST_F(NetworkService, LateKernelsSayThatTheLastCountsWereLost) {
  for (const auto family : std::vector<host::KernelFamily>{6153, 10002}) {
    speakAs(family);
    subscribeToMany(1);
    machine.setSources({});
    queue.setUnread(8000);
    const std::vector<Bytes> said = sweep();
    queue.setUnread(0);
    ASSERT_EQ(told(said), "10002:1");
    expectHeader(said[0], 10002, 0, family == 10002 ? 8 : 0, 24);
  }
}

TEST_F(NetworkService, AFullQueueRefusesOneAnswerWithAnError) {
  speakAs(4903);
  subscribeToMany(1);
  queue.setUnread(6200);
  expectError(ask(aboutOne('D', 1005, 1)), 55, aboutOne('D', 1005, 1));
  queue.setUnread(8192);
  EXPECT_EQ(told(ask(aboutOne('D', 1005, 1))), "") << "nothing fits any more";
}

}  // namespace
