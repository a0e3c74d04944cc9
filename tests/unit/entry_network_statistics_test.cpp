// What the kernel's side of the network-statistics service says, message by message.
#include "host/entry/network_statistics.h"

#include <cstring>

#include "host/darwin/errors.h"
#include "tests/unit/network_machine.h"

namespace darwin {
namespace {

using entry_test::makeSource;
using entry_test::NetworkTest;
using host::NetworkStatistics;

constexpr uint64_t kContext = 77;

// A message in short: type, context, and the words that follow.
struct Said {
  uint32_t type;
  uint64_t context;
  std::vector<uint32_t> words;
  bool operator==(const Said &) const = default;
};

void PrintTo(const Said &said, std::ostream *out) {
  *out << said.type << "/" << said.context;
  for (const uint32_t word : said.words) *out << " " << word;
}

class NetworkService : public NetworkTest {
 protected:
  void ask(uint32_t type, uint32_t word, uint64_t context = kContext) {
    out.clear();
    nstat_msg_query_src_req request{};
    request.hdr.context = context;
    request.hdr.type = type;
    request.srcref = word;
    service.answer(reinterpret_cast<const uint8_t *>(&request), sizeof request, out);
  }

  template <typename T>
  T message(size_t index) const {
    T read{};
    EXPECT_GE(out.at(index).size(), sizeof(T));
    std::memcpy(&read, out.at(index).data(), std::min(out.at(index).size(), sizeof(T)));
    return read;
  }

  // Counts are cut to their reference, descriptions to reference and provider.
  std::vector<Said> said() const {
    std::vector<Said> all;
    for (size_t i = 0; i < out.size(); i++) {
      const auto header = message<nstat_msg_hdr>(i);
      Said each{header.type, header.context, {}};
      const size_t words = header.type == NSTAT_MSG_TYPE_SRC_COUNTS ? 1
                           : header.type == NSTAT_MSG_TYPE_SRC_DESC ? 2
                                                                    : (out[i].size() - 16) / 4;
      for (size_t word = 0; word < words; word++) {
        uint32_t value = 0;
        std::memcpy(&value, out[i].data() + 16 + word * 4, 4);
        each.words.push_back(value);
      }
      all.push_back(each);
    }
    return all;
  }

  NetworkStatistics service;
  std::deque<NetworkStatistics::Datagram> out;
};

TEST_F(NetworkService, AddAllTellsOfEachSourceAndThenOfSuccess) {
  machine.setSources({makeSource(10, 5, 1, 2), makeSource(11, 6, 3, 4, NSTAT_PROVIDER_UDP),
                      makeSource(12, 7, 5, 6)});
  EXPECT_FALSE(service.hasSubscriptions());
  ask(NSTAT_MSG_TYPE_ADD_ALL_SRCS, NSTAT_PROVIDER_TCP);
  EXPECT_EQ(said(), (std::vector<Said>{{10001, 0, {2, 1}}, {10001, 0, {2, 2}}, {0, kContext, {}}}));
  EXPECT_EQ(out[0].size(), 24u);
  EXPECT_EQ(out[2].size(), 16u);
  EXPECT_TRUE(service.hasSubscriptions());
  ask(NSTAT_MSG_TYPE_ADD_ALL_SRCS, NSTAT_PROVIDER_UDP);
  EXPECT_EQ(said(), (std::vector<Said>{{10001, 0, {3, 3}}, {0, kContext, {}}}));
}

TEST_F(NetworkService, ProvidersThatCanNotBeAdded) {
  const struct {
    uint32_t provider;
    uint32_t error;
  } kRows[] = {{0, 2}, {1, 45}, {4, 45}, {5, 45}, {6, 2}, {0xFFFFFFFF, 2}};
  for (const auto &row : kRows) {
    ask(NSTAT_MSG_TYPE_ADD_ALL_SRCS, row.provider);
    EXPECT_EQ(said(), (std::vector<Said>{{1, kContext, {row.error}}})) << row.provider;
    EXPECT_EQ(out[0].size(), 20u);
  }
  ask(NSTAT_MSG_TYPE_ADD_ALL_SRCS, NSTAT_PROVIDER_TCP);
  ask(NSTAT_MSG_TYPE_ADD_ALL_SRCS, NSTAT_PROVIDER_TCP);
  EXPECT_EQ(said(), (std::vector<Said>{{1, kContext, {37}}})) << "twice the same";
}

TEST_F(NetworkService, ARefusalOfTheMachineCanBeTriedAgain) {
  machine.sourcesRefusal = DARWIN_EPERM;
  ask(NSTAT_MSG_TYPE_ADD_ALL_SRCS, NSTAT_PROVIDER_TCP);
  EXPECT_EQ(said(), (std::vector<Said>{{1, kContext, {1}}}));
  machine.sourcesRefusal = host::kAnswered;
  ask(NSTAT_MSG_TYPE_ADD_ALL_SRCS, NSTAT_PROVIDER_TCP);
  EXPECT_EQ(said(), (std::vector<Said>{{0, kContext, {}}}));
}

class SubscribedService : public NetworkService {
 protected:
  SubscribedService() {
    machine.setSources({makeSource(10, 5, 1000, 2000), makeSource(11, 6, 3000, 4000)});
    ask(NSTAT_MSG_TYPE_ADD_ALL_SRCS, NSTAT_PROVIDER_TCP);
    ask(NSTAT_MSG_TYPE_ADD_ALL_SRCS, NSTAT_PROVIDER_UDP);
    out.clear();
  }
};

TEST_F(SubscribedService, QueryAllGivesAllCountsAndSuccess) {
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  EXPECT_EQ(said(),
            (std::vector<Said>{{10004, kContext, {1}}, {10004, kContext, {2}}, {0, kContext, {}}}));
  ASSERT_EQ(out[0].size(), 132u);
  const auto counts = message<nstat_msg_src_counts>(1);
  EXPECT_EQ(uint64_t{counts.counts.nstat_rxbytes}, 3000u);
  EXPECT_EQ(uint64_t{counts.counts.nstat_rxpackets}, 30u);
  EXPECT_EQ(uint64_t{counts.counts.nstat_txbytes}, 4000u);
  EXPECT_EQ(uint64_t{counts.counts.nstat_txpackets}, 40u);
}

TEST_F(SubscribedService, QueryAllTellsOfANewSourceFirst) {
  machine.setSources({makeSource(10, 5, 1, 2), makeSource(11, 6, 3, 4), makeSource(12, 7, 5, 6)});
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  EXPECT_EQ(said(), (std::vector<Said>{{10001, 0, {2, 3}},
                                       {10004, kContext, {1}},
                                       {10004, kContext, {2}},
                                       {10004, kContext, {3}},
                                       {0, kContext, {}}}));
}

TEST_F(SubscribedService, ASourceThatIsGoneIsToldOfForTheLastTime) {
  machine.setSources({makeSource(11, 6, 3001, 4000)});
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  EXPECT_EQ(said(), (std::vector<Said>{{10004, kContext, {1}},
                                       {10003, 0, {1, 2}},
                                       {10002, 0, {1}},
                                       {10004, kContext, {2}},
                                       {0, kContext, {}}}));
  EXPECT_EQ(uint64_t{message<nstat_msg_src_counts>(0).counts.nstat_rxbytes}, 1000u);
  EXPECT_EQ(uint64_t{message<nstat_msg_src_counts>(3).counts.nstat_rxbytes}, 3001u);
  ask(NSTAT_MSG_TYPE_GET_SRC_DESC, 1);
  EXPECT_EQ(said(), (std::vector<Said>{{1, kContext, {2}}})) << "it is not known any more";
}

TEST_F(SubscribedService, ReferencesStaySmall) {
  // The lowest free one is taken, after its removal was said.
  machine.setSources({makeSource(11, 6, 1, 1), makeSource(12, 7, 1, 1), makeSource(13, 8, 1, 1)});
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  const std::vector<Said> all = said();
  ASSERT_GE(all.size(), 5u);
  EXPECT_EQ(all[2], (Said{10002, 0, {1}}));
  EXPECT_EQ(all[3], (Said{10001, 0, {2, 1}}));
  EXPECT_EQ(all[4], (Said{10001, 0, {2, 3}}));
  // However long it goes on.
  for (uint64_t key = 100; key < 3000; key++) {
    machine.setSources({makeSource(key, 6, 1, 1)});
    ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  }
  const auto last = message<nstat_msg_src_counts>(out.size() - 2);
  EXPECT_LE(uint32_t{last.srcref}, 4u);
}

TEST_F(SubscribedService, AChangeOfOwnerIsANewSource) {
  machine.setSources({makeSource(10, 50, 1000, 2000), makeSource(11, 6, 3000, 4000)});
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  EXPECT_EQ(said(), (std::vector<Said>{{10004, kContext, {1}},
                                       {10003, 0, {1, 2}},
                                       {10002, 0, {1}},
                                       {10001, 0, {2, 1}},
                                       {10004, kContext, {1}},
                                       {10004, kContext, {2}},
                                       {0, kContext, {}}}));
  ask(NSTAT_MSG_TYPE_GET_SRC_DESC, 1);
  EXPECT_EQ(message<nstat_msg_src_description>(0).srcref, 1u);
  uint32_t pid = 0;
  std::memcpy(&pid, out[0].data() + 148, 4);
  EXPECT_EQ(pid, 50u);
}

TEST_F(SubscribedService, QueryOfOneGivesItsCountsOnly) {
  ask(NSTAT_MSG_TYPE_QUERY_SRC, 2);
  EXPECT_EQ(said(), (std::vector<Said>{{10004, kContext, {2}}}));
  for (const uint32_t unknown : {0u, 3u, 1024u}) {
    ask(NSTAT_MSG_TYPE_QUERY_SRC, unknown);
    EXPECT_EQ(said(), (std::vector<Said>{{1, kContext, {2}}}));
  }
}

TEST_F(SubscribedService, DescriptionOfTcp) {
  host::NetworkSource source = makeSource(20, 321, 1, 1);
  source.process = "server";
  source.local = {DARWIN_AF_INET, {192, 168, 1, 7}, 0x1234, 0};
  source.remote = {DARWIN_AF_INET6, {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9}, 80, 4};
  source.interfaceIndex = 3;
  source.state = 4;
  machine.setSources({source});
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  ask(NSTAT_MSG_TYPE_GET_SRC_DESC, 1, 5);
  EXPECT_EQ(said(), (std::vector<Said>{{10003, 5, {1, 2}}}));
  ASSERT_EQ(out[0].size(), 276u);
  const uint8_t *bytes = out[0].data();
  const uint8_t local[] = {16, 2, 0x12, 0x34, 192, 168, 1, 7};
  EXPECT_EQ(std::memcmp(bytes + 24, local, sizeof local), 0);
  const uint8_t remote[] = {28, 30, 0, 80, 0, 0, 0, 0, 0xfe, 0x80, 0, 0, 0, 0,
                            0,  0,  0, 0,  0, 0, 0, 0, 0,    9,    4, 0, 0, 0};
  EXPECT_EQ(std::memcmp(bytes + 52, remote, sizeof remote), 0);
  int32_t pid = 0;
  std::memcpy(&pid, bytes + 148, 4);
  EXPECT_EQ(pid, 321);
  EXPECT_STREQ(reinterpret_cast<const char *>(bytes + 152), "server");
  EXPECT_EQ(bytes[80], 3);  // interface
  EXPECT_EQ(bytes[84], 4);  // state
}

TEST_F(SubscribedService, DescriptionOfUdpAndOfLongNames) {
  host::NetworkSource source = makeSource(20, 321, 1, 1, NSTAT_PROVIDER_UDP);
  source.process = std::string(100, 'n');
  machine.setSources({source});
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  ask(NSTAT_MSG_TYPE_GET_SRC_DESC, 1);
  EXPECT_EQ(said(), (std::vector<Said>{{10003, kContext, {1, 3}}}));
  ASSERT_EQ(out[0].size(), 232u);
  int32_t pid = 0;
  std::memcpy(&pid, out[0].data() + 104, 4);
  EXPECT_EQ(pid, 321);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(out[0].data() + 108)), std::string(63, 'n'));
}

TEST_F(SubscribedService, SweepTellsOnlyOfChanges) {
  service.sweep(out);
  EXPECT_TRUE(out.empty());
  ask(NSTAT_MSG_TYPE_QUERY_SRC, 1);
  ask(NSTAT_MSG_TYPE_GET_SRC_DESC, 1);
  out.clear();
  // Of the first the client knows counts and owner, of the second nothing.
  machine.setSources({makeSource(12, 7, 5, 6)});
  service.sweep(out);
  EXPECT_EQ(said(), (std::vector<Said>{{10002, 0, {1}},
                                       {10004, 0, {2}},
                                       {10003, 0, {2, 2}},
                                       {10002, 0, {2}},
                                       {10001, 0, {2, 1}}}));
}

TEST_F(SubscribedService, AMachineThatFailsKeepsWhatWasKnown) {
  machine.sourcesRefusal = DARWIN_EIO;
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  EXPECT_EQ(said(),
            (std::vector<Said>{{10004, kContext, {1}}, {10004, kContext, {2}}, {0, kContext, {}}}));
}

TEST_F(SubscribedService, OtherTypesAndShortRequestsAreInvalid) {
  for (const uint32_t type : {0u, 1u, 1001u, 1003u, 1006u, 10004u, 0xFFFFFFFFu}) {
    ask(type, 1);
    EXPECT_EQ(said(), (std::vector<Said>{{1, kContext, {22}}})) << type;
  }
  nstat_msg_query_src_req request{};
  request.hdr.context = 9;
  request.hdr.type = NSTAT_MSG_TYPE_QUERY_SRC;
  request.srcref = NSTAT_SRC_REF_ALL;
  const auto *bytes = reinterpret_cast<const uint8_t *>(&request);
  out.clear();
  service.answer(bytes, 19, out);
  EXPECT_EQ(said(), (std::vector<Said>{{1, 9, {22}}}));
  out.clear();
  service.answer(bytes, 15, out);
  service.answer(bytes, 0, out);
  EXPECT_TRUE(out.empty()) << "without a header there is nobody to answer";
}

TEST_F(SubscribedService, ARepeatedSourceIsOne) {
  machine.setSources({makeSource(30, 5, 1, 1), makeSource(30, 5, 1, 1)});
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  ask(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  EXPECT_EQ(said(), (std::vector<Said>{{10004, kContext, {1}}, {0, kContext, {}}}));
}

}  // namespace
}  // namespace darwin
