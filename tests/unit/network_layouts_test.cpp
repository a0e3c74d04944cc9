// The statistics client in the messages of each family of kernels: what it writes, byte for byte,
// and what it files of messages that are laid down by numbers of their own.
#include "nstat/layouts.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "nstat/accounting.h"
#include "nstat/client.h"
#include "nstat/places.h"
#include "tests/unit/display_state.h"

namespace {

using namespace sondex;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

using Bytes = std::vector<uint8_t>;

uint32_t chosenFor(const char *version) {
  chooseStatisticsLayout(version);
  return statisticsLayout->firstKernel;
}

TEST(ChosenLayout, IsThatOfTheKernelsFamily) {
  DisplayStateGuard guard;
  const struct {
    const char *version;
    uint32_t first;
  } kKernels[] = {
      {"Darwin Kernel Version 14.0.0: root:xnu-2783.3.21~3/RELEASE_ARM64_S5L8960X", 0},
      {"Darwin Kernel Version 14.0.0: root:xnu-2422.1.72~6/RELEASE_ARM_S5L8950X", 0},
      {"xnu-3246.99", 0},
      {"Darwin Kernel Version 15.0.0: root:xnu-3247.1.106~1/RELEASE_ARM64_T7000", 3247},
      {"xnu-3788", 3247},
      {"xnu-3789.1.32~6", 3789},
      {"xnu-4569.9", 3789},
      {"xnu-4570.1.46", 4570},
      {"xnu-4903.221.2", 4570},
      {"xnu-6153.11.26~4", 4570},
      {"xnu-7194.1", 4570},
      {"xnu-7195.0.33~64", 7195},
      {"xnu-8020.140.41", 7195},
      {"xnu-10063.101.15", 7195},
      {"xnu-11417.121.6~1", 7195},
      {"xnu-99999.1", 7195},
      {"xnu-", 0},
      {"xnu-x", 0},
      {"xnu--7195", 0},
      {"xnu-99999999999999999999", 0},
      {"", 0},
      {"7195", 0},
  };
  for (const auto &kernel : kKernels)
    EXPECT_EQ(chosenFor(kernel.version), kernel.first) << kernel.version;
}

// What a family's messages look like.
struct Family {
  const char *version;
  bool isWide;
  size_t added, addedProvider, addedReference;
  size_t removed;
  size_t countsSize, counts;
  size_t provider, descriptor;
  size_t tcp, tcpPID, tcpName;
  size_t udp, udpPID, udpName;
  size_t updateProvider, updateDescriptor;
  std::vector<uint32_t> tcpProviders, udpProviders, others;
};

std::ostream &operator<<(std::ostream &out, const Family &family) {
  return out << family.version;
}

const Family kFamilies[] = {
    {"xnu-3248.60.10",
     false,
     24,
     16,
     20,
     20,
     132,
     20,
     20,
     24,
     260,
     124,
     128,
     212,
     80,
     84,
     132,
     136,
     {2},
     {3},
     {0, 1, 4, 5, 8}},
    {"xnu-3789.70.16",
     true,
     28,
     16,
     20,
     24,
     144,
     32,
     32,
     36,
     260,
     124,
     128,
     212,
     80,
     84,
     144,
     148,
     {2, 3},
     {4, 5},
     {0, 1, 6, 8}},
    {"xnu-6153.141.1",
     true,
     32,
     24,
     16,
     24,
     144,
     32,
     32,
     40,
     304,
     100,
     180,
     256,
     128,
     132,
     144,
     152,
     {2, 3, 8},
     {4, 5},
     {0, 1, 6, 7, 9, 10}},
    {"xnu-8020.140.41",
     true,
     32,
     24,
     16,
     24,
     144,
     32,
     32,
     40,
     336,
     116,
     196,
     272,
     128,
     132,
     144,
     152,
     {2, 3, 8},
     {4, 5},
     {0, 1, 6, 7, 9, 10}},
    {"xnu-11417.121.6",
     true,
     32,
     24,
     16,
     24,
     144,
     32,
     32,
     40,
     344,
     116,
     196,
     280,
     128,
     132,
     144,
     152,
     {2, 3, 8},
     {4, 5},
     {0, 1, 6, 7, 9, 10}},
};

template <typename T>
void put(Bytes &bytes, size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

class Layouts : public testing::TestWithParam<Family> {
 protected:
  Layouts() {
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_) != 0) throw errno;
    store(nstat_socket, ends_[0]);
    store(g_debug, 0);
    // Requests that nobody reads are lost.
    for (const int end : ends_) fcntl(end, F_SETFL, O_NONBLOCK);
    chooseStatisticsLayout(GetParam().version);
  }
  ~Layouts() override {
    store(nstat_socket, -1);
    store(g_debug, 0);
    close(ends_[0]);
    close(ends_[1]);
    std::memset(static_cast<void *>(&gsdreq), 0, sizeof gsdreq);
    std::fill(std::begin(descriptorsModded), std::end(descriptorsModded), 0);
  }

  const Family &family() const { return GetParam(); }
  // Small where only small ones are given out, and else more than 32 bits hold.
  uint64_t reference(uint64_t number) const {
    return family().isWide ? (uint64_t{5} << 32) + number : number;
  }

  // Whatever is not said is neither zero nor a pid.
  Bytes message(uint32_t type, size_t size, size_t fill = 0xEE) const {
    Bytes bytes(size, static_cast<uint8_t>(fill));
    put(bytes, 0, uint64_t{0});
    put(bytes, 8, type);
    put(bytes, 12, static_cast<uint16_t>(size));
    put(bytes, 14, uint16_t{0});
    return bytes;
  }
  void putReference(Bytes &bytes, size_t offset, uint64_t value) const {
    if (family().isWide) {
      put(bytes, offset, value);
    } else {
      put(bytes, offset, static_cast<uint32_t>(value));
    }
  }
  Bytes about(uint32_t type, size_t size, uint64_t value) const {
    Bytes bytes = message(type, size);
    putReference(bytes, 16, value);
    return bytes;
  }
  Bytes removed(uint64_t value) const { return about(10002, family().removed, value); }
  void putCounts(Bytes &bytes, uint64_t received, uint64_t sent) const {
    put(bytes, family().counts + 8, received);
    put(bytes, family().counts + 24, sent);
  }
  Bytes counts(uint64_t value, uint64_t received, uint64_t sent) const {
    Bytes bytes = about(10004, family().countsSize, value);
    putCounts(bytes, received, sent);
    return bytes;
  }
  Bytes description(uint64_t value, uint32_t provider, bool isTCP, int32_t pid) const {
    const Family &is = family();
    Bytes bytes = about(10003, is.descriptor + (isTCP ? is.tcp : is.udp), value);
    put(bytes, is.provider, provider);
    putOwner(bytes, is.descriptor, isTCP, pid);
    return bytes;
  }
  Bytes tcp(uint64_t value, int32_t pid) const {
    return description(value, family().tcpProviders[0], true, pid);
  }
  void putOwner(Bytes &bytes, size_t descriptor, bool isTCP, int32_t pid) const {
    const Family &is = family();
    const std::string name = "owner" + std::to_string(pid);
    put(bytes, descriptor + (isTCP ? is.tcpPID : is.udpPID), pid);
    std::memcpy(bytes.data() + descriptor + (isTCP ? is.tcpName : is.udpName), name.c_str(),
                name.size() + 1);
  }

  static int32_t file(const Bytes &bytes) { return print_nstat_msg(bytes.data(), bytes.size()); }
  // Sends all, ends the connection, and lets the client read.
  void feed(const std::vector<Bytes> &datagrams) {
    for (const Bytes &datagram : datagrams) {
      ASSERT_EQ(write(ends_[1], datagram.data(), datagram.size()),
                static_cast<ssize_t>(datagram.size()));
    }
    shutdown(ends_[1], SHUT_WR);
    readNotifications(ends_[0]);
  }
  // The next request that the client has written; empty when there is none.
  Bytes request() const {
    uint8_t buffer[100];
    const ssize_t length = read(ends_[1], buffer, sizeof buffer);
    return {buffer, buffer + (length > 0 ? length : 0)};
  }
  Bytes success(uint64_t context, uint16_t flags) const {
    Bytes bytes = message(0, 16);
    put(bytes, 0, context);
    put(bytes, 14, flags);
    return bytes;
  }
  Bytes query() const {
    Bytes bytes = message(1004, family().isWide ? 24 : 20, 0xFF);
    put(bytes, 0, uint64_t{1005});
    put(bytes, 14, uint16_t{3});
    return bytes;
  }

 private:
  DisplayStateGuard guard_;
  int ends_[2];
};

TEST_P(Layouts, RequestsForAllSources) {
  const bool isLate = family().addedReference == 16;
  const size_t size = family().isWide ? 56 : 28;
  std::vector<uint32_t> providers = family().tcpProviders;
  providers.insert(providers.end(), family().udpProviders.begin(), family().udpProviders.end());
  std::sort(providers.begin(), providers.end());
  subscribeToAll();
  for (const uint32_t provider : providers) {
    Bytes expected = message(1002, size, 0);
    put(expected, 0, uint64_t{2});
    put(expected, isLate ? 32 : 16, provider);
    EXPECT_EQ(request(), expected) << provider;
  }
  EXPECT_THAT(request(), IsEmpty());
}

TEST_P(Layouts, RequestForAllCounts) {
  queryAll();
  EXPECT_EQ(request(), query());
}

TEST_P(Layouts, RequestForADescription) {
  file(counts(reference(7), 1, 2));
  Bytes expected = message(1005, family().isWide ? 24 : 20, 0);
  put(expected, 0, uint64_t{2});
  putReference(expected, 16, reference(7));
  EXPECT_EQ(request(), expected);
  EXPECT_THAT(request(), IsEmpty());
}

TEST_P(Layouts, BytesOfEachProviderCountForTheOwner) {
  uint64_t number = 1;
  int32_t pid = 300;
  const auto check = [&](uint32_t provider, bool isTCP) {
    file(counts(reference(number), 1000 * number, 0x100000001 + number));
    file(description(reference(number), provider, isTCP, ++pid));
    NetworkTotals totals{};
    ASSERT_TRUE(sumSources(pid, &totals)) << provider;
    EXPECT_EQ(totals.received, 1000 * number);
    EXPECT_EQ(totals.sent, 0x100000001 + number);
    number++;
  };
  for (const uint32_t provider : family().tcpProviders) check(provider, true);
  for (const uint32_t provider : family().udpProviders) check(provider, false);
}

TEST_P(Layouts, OtherProvidersHaveNoOwner) {
  file(counts(reference(7), 1, 2));
  for (const uint32_t provider : family().others) {
    file(description(reference(7), provider, true, 321));
    file(description(reference(7), provider, false, 321));
    EXPECT_EQ(getNTStatInfo(321), nullptr) << provider;
  }
}

TEST_P(Layouts, UpdatesTellCountsAndOwnerAtOnce) {
  const Family &is = family();
  for (const bool isTCP : {true, false}) {
    const uint64_t source = reference(isTCP ? 1 : 2);
    const int32_t pid = isTCP ? 321 : 322;
    Bytes update = about(10006, is.updateDescriptor + (isTCP ? is.tcp : is.udp), source);
    put(update, is.updateProvider, (isTCP ? is.tcpProviders : is.udpProviders)[0]);
    putCounts(update, 50, 60);
    putOwner(update, is.updateDescriptor, isTCP, pid);
    file(update);
    NetworkTotals totals{};
    ASSERT_TRUE(sumSources(pid, &totals));
    EXPECT_EQ(totals.received, 50u);
    EXPECT_EQ(totals.sent, 60u);
  }
  EXPECT_THAT(request(), IsEmpty()) << "who owns it was told";
}

TEST_P(Layouts, WhatIsShorterThanItsFieldsIsPassedOver) {
  file(counts(reference(7), 5, 6));
  file(tcp(reference(7), 321));
  const auto cut = [](Bytes bytes, size_t size) {
    bytes.resize(size);
    return bytes;
  };
  const Bytes other = counts(reference(7), 9, 9);
  for (size_t size = 0; size < family().counts + 32; size++) file(cut(other, size));
  const Bytes description = tcp(reference(7), 99);
  const bool isTold = family().tcp >= 304;
  const size_t least =
      family().descriptor + (isTold ? (family().tcp < 336 ? 304 : 336) : family().tcpName);
  // A shorter one of the last layout may be a whole one of the layout before.
  for (size_t size = 0; size < std::min(least, family().descriptor + 304); size++) {
    file(cut(description, size));
  }
  const Bytes udp = this->description(reference(7), family().udpProviders[0], false, 98);
  for (size_t size = 0; size < family().descriptor + family().udpName; size++) file(cut(udp, size));
  for (size_t size = 0; size < family().removed; size++) {
    EXPECT_EQ(file(cut(removed(reference(7)), size)), 0);
  }
  NetworkTotals totals{};
  ASSERT_TRUE(sumSources(321, &totals));
  EXPECT_EQ(totals.received, 5u);
}

TEST_P(Layouts, ADatagramHoldsSeveralMessages) {
  Bytes datagram;
  for (uint64_t number = 1; number <= 3; number++) {
    const Bytes each = counts(reference(number), 100 * number, 0);
    datagram.insert(datagram.end(), each.begin(), each.end());
  }
  const Bytes whole = tcp(reference(1), 321);
  Bytes cut = counts(reference(2), 999, 0);
  const Bytes both = [&] {
    Bytes bytes = counts(reference(1), 150, 0);
    bytes.insert(bytes.end(), cut.begin(), cut.end() - 1);
    return bytes;
  }();
  Bytes endless = counts(reference(3), 998, 0);
  put(endless, 12, uint16_t{0});
  feed({datagram, whole, tcp(reference(2), 322), tcp(reference(3), 323), both, endless});
  EXPECT_EQ(getRXBytesForProcess(321), 150) << "before one that is cut";
  EXPECT_EQ(getRXBytesForProcess(322), 200) << "that one is not";
  EXPECT_EQ(getRXBytesForProcess(323), 300) << "nor one without a length";
}

TEST_P(Layouts, PagesAreAskedForUntilTheLast) {
  feed({success(2, 0), success(2, 2), success(1005, 2), success(1005, 2), success(1005, 0)});
  EXPECT_EQ(request(), query());
  EXPECT_EQ(request(), query());
  EXPECT_THAT(request(), IsEmpty());
}

TEST_P(Layouts, RemovedSourcesCountForNobody) {
  file(counts(reference(7), 5, 6));
  file(tcp(reference(7), 321));
  file(counts(reference(8), 7, 8));
  file(tcp(reference(8), 321));
  feed({removed(reference(7)), removed(reference(1000))});
  EXPECT_EQ(getRXBytesForProcess(321), 7);
  const int place = family().isWide ? 0 : 7;
  EXPECT_EQ(descriptorsModded[place], 1);
}

TEST_P(Layouts, TracesWhatIsFiledAndWhatIsNot) {
  store(g_debug, 1);
  CaptureStderr();
  file(counts(reference(7), 10, 20));
  file(tcp(reference(7), 321));
  file(description(reference(7), family().udpProviders[0], false, 322));
  file(tcp(reference(9), 323));
  file(message(4711, 40));
  Bytes refused = message(1, 24);
  put(refused, 16, uint32_t{1});
  file(refused);
  const std::string said = GetCapturedStderr();
  EXPECT_THAT(said, testing::StartsWith("TCP SRCREF: 7, PID: 321, NAME: owner321\n"
                                        "UDP SRCREF: 7, PID: 322, NAME: owner322\n"));
  EXPECT_THAT(said, testing::EndsWith("Network statistics: a message of type 4711 and 40 bytes is "
                                      "passed over\n"
                                      "Network statistics: Operation not permitted\n"));
  if (family().isWide) {
    EXPECT_THAT(said, testing::HasSubstr("a message of type 10003 and")) << "of no known source";
  }
}

std::string nameOf(const testing::TestParamInfo<Family> &info) {
  std::string name(info.param.version);
  name = name.substr(4, name.find('.') - 4);
  return "OfKernel" + name;
}

INSTANTIATE_TEST_SUITE_P(Kernels, Layouts, testing::ValuesIn(kFamilies), nameOf);

using WideReferences = Layouts;

TEST_P(WideReferences, HavePlacesForAsManySourcesAsAreSummed) {
  CaptureStderr();
  for (uint64_t number = 0; number < 1030; number++) file(counts(reference(number), 1, 1));
  EXPECT_EQ(GetCapturedStderr(),
            "More than 1024 network sources: the bytes of the others are not counted\n");
  for (uint64_t number = 0; number < 1030; number++) file(tcp(reference(number), 321));
  EXPECT_EQ(getRXBytesForProcess(321), 1024);
  // Whose place is free is taken by the next.
  file(removed(reference(500)));
  file(removed(reference(3)));
  EXPECT_EQ(getRXBytesForProcess(321), 1022);
  file(counts(reference(2000), 7, 7));
  EXPECT_EQ(findSourcePlace(reference(2000)), 3) << "the smallest";
  EXPECT_EQ(getRXBytesForProcess(321), 1022) << "its owner is not known";
  file(tcp(reference(2000), 322));
  EXPECT_EQ(getRXBytesForProcess(322), 7);
}

TEST_P(WideReferences, ADescriptionThatComesLateTakesNoPlace) {
  file(counts(reference(7), 5, 6));
  file(removed(reference(7)));
  file(tcp(reference(7), 321));
  EXPECT_EQ(findSourcePlace(reference(7)), kNoSourcePlace);
  EXPECT_EQ(getNTStatInfo(321), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Kernels, WideReferences, testing::Values(kFamilies[1], kFamilies[4]),
                         nameOf);

// Of one revision, whose TCP descriptors differ: each is known by its size.
using OtherDescriptor = Layouts;

TEST_P(OtherDescriptor, IsReadWhereItHasTheOwner) {
  file(counts(reference(7), 5, 6));
  const Bytes bytes = tcp(reference(7), 321);
  chooseStatisticsLayout(family().tcp == 304 ? "xnu-7195.0" : "xnu-6153.141");
  file(bytes);
  EXPECT_EQ(getRXBytesForProcess(321), 5);
}

INSTANTIATE_TEST_SUITE_P(Kernels, OtherDescriptor, testing::Values(kFamilies[2], kFamilies[3]),
                         nameOf);

// Whole requests as the kernels' own structures make them.
Bytes hex(std::string_view digits, size_t zeros = 0, std::string_view rest = "", size_t more = 0) {
  Bytes bytes;
  const auto add = [&bytes](std::string_view text) {
    for (size_t i = 0; i < text.size(); i += 2) {
      bytes.push_back(static_cast<uint8_t>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
    }
  };
  add(digits);
  bytes.insert(bytes.end(), zeros, 0);
  add(rest);
  bytes.insert(bytes.end(), more, 0);
  return bytes;
}

TEST(WholeRequests, OfEachLayout) {
  DisplayStateGuard guard;
  const struct {
    const char *version;
    Bytes addAll, query;
  } kRequests[] = {
      {"xnu-2782.40.9", hex("0200000000000000ea0300000000000002000000"),
       hex("ed03000000000000ec03000000000000ffffffff")},
      {"xnu-3248.60.10", hex("0200000000000000ea0300001c000000020000000000000000000000"),
       hex("ed03000000000000ec03000014000300ffffffff")},
      {"xnu-3789.70.16", hex("0200000000000000ea0300003800000002", 39),
       hex("ed03000000000000ec03000018000300ffffffffffffffff")},
      {"xnu-6153.141.1", hex("0200000000000000ea03000038000000", 16, "02", 23),
       hex("ed03000000000000ec03000018000300ffffffffffffffff")},
      {"xnu-11417.121.6", hex("0200000000000000ea03000038000000", 16, "02", 23),
       hex("ed03000000000000ec03000018000300ffffffffffffffff")},
  };
  for (const auto &expected : kRequests) {
    SCOPED_TRACE(expected.version);
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    store(nstat_socket, ends[0]);
    chooseStatisticsLayout(expected.version);
    subscribeToAll();
    queryAll();
    shutdown(ends[0], SHUT_WR);
    std::vector<Bytes> requests;
    uint8_t buffer[100];
    for (ssize_t length; (length = read(ends[1], buffer, sizeof buffer)) > 0;) {
      requests.emplace_back(buffer, buffer + length);
    }
    ASSERT_GE(requests.size(), 3u);
    EXPECT_EQ(requests.front(), expected.addAll);
    EXPECT_EQ(requests.back(), expected.query);
    store(nstat_socket, -1);
    close(ends[0]);
    close(ends[1]);
  }
}

}  // namespace
