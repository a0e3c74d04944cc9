#include "host/linux/tcp_totals.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/tcp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "darwin/socket.h"
#include "host/darwin/proc_info.h"
#include "tests/unit/netlink_bytes.h"

namespace {

using namespace host;
using namespace host::linux_machine;
using namespace std::chrono_literals;
using netlink_test::Bytes;
using testing::ElementsAre;
using testing::IsEmpty;

inet_diag_msg message(uint8_t family) {
  inet_diag_msg made{};
  made.idiag_family = family;
  made.idiag_state = 1;
  made.idiag_inode = 4711;
  made.id.idiag_sport = htons(8080);
  made.id.idiag_dport = htons(40000);
  made.id.idiag_cookie[0] = 7;
  made.id.idiag_cookie[1] = 1;
  made.id.idiag_if = 3;
  const uint8_t local[] = {127, 0, 0, 1};
  const uint8_t remote[] = {10, 0, 0, 9};
  std::memcpy(made.id.idiag_src, local, 4);
  std::memcpy(made.id.idiag_dst, remote, 4);
  return made;
}

tcp_info totals() {
  tcp_info made{};
  made.tcpi_segs_in = 11;
  made.tcpi_segs_out = 12;
  made.tcpi_bytes_received = 0x100000000ULL;
  made.tcpi_bytes_acked = 77;
  made.tcpi_bytes_sent = 1000;
  made.tcpi_bytes_retrans = 100;
  return made;
}

std::vector<uint8_t> cut(const tcp_info &info, size_t size) {
  const auto *first = reinterpret_cast<const uint8_t *>(&info);
  return {first, first + size};
}

TEST(TcpSocketMessage, IsTakenApart) {
  Bytes payload;
  payload.add(message(AF_INET)).attribute(INET_DIAG_INFO, cut(totals(), sizeof(tcp_info)));
  TcpSocket socket;
  ASSERT_TRUE(parseTcpSocket(payload.span(), socket));
  EXPECT_EQ(socket.cookie, 0x100000007ULL);
  EXPECT_EQ(socket.inode, 4711u);
  EXPECT_EQ(socket.state, 1);
  EXPECT_EQ(socket.localPort, 8080);
  EXPECT_EQ(socket.remotePort, 40000);
  EXPECT_EQ(socket.interfaceIndex, 3u);
  EXPECT_EQ(socket.localAddress[0], 127);
  EXPECT_EQ(socket.remoteAddress[3], 9);
  EXPECT_EQ(socket.receivedPackets, 11u);
  EXPECT_EQ(socket.sentPackets, 12u);
  EXPECT_EQ(socket.receivedBytes, 0x100000000ULL);
  EXPECT_EQ(socket.sentBytes, 900u) << "what is sent again counts once";
}

TEST(TcpSocketMessage, OfOlderKernels) {
  TcpSocket socket;
  Bytes withoutSent;
  withoutSent.add(message(AF_INET))
      .attribute(INET_DIAG_INFO, cut(totals(), offsetof(tcp_info, tcpi_bytes_sent)));
  ASSERT_TRUE(parseTcpSocket(withoutSent.span(), socket));
  EXPECT_EQ(socket.sentBytes, 77u);
  Bytes withoutTotals;
  withoutTotals.add(message(AF_INET)).attribute(INET_DIAG_INFO, cut(totals(), 104));
  ASSERT_TRUE(parseTcpSocket(withoutTotals.span(), socket));
  EXPECT_EQ(socket.sentBytes, 0u);
  EXPECT_EQ(socket.receivedBytes, 0u);
  tcp_info strange = totals();
  strange.tcpi_bytes_retrans = 5000;
  Bytes negative;
  negative.add(message(AF_INET)).attribute(INET_DIAG_INFO, cut(strange, sizeof strange));
  ASSERT_TRUE(parseTcpSocket(negative.span(), socket));
  EXPECT_EQ(socket.sentBytes, 0u);
}

TEST(TcpSocketMessage, ThatIsNone) {
  TcpSocket socket;
  EXPECT_FALSE(parseTcpSocket({}, socket));
  Bytes otherFamily;
  otherFamily.add(message(AF_UNIX));
  EXPECT_FALSE(parseTcpSocket(otherFamily.span(), socket));
  Bytes whole;
  whole.add(message(AF_INET));
  EXPECT_FALSE(parseTcpSocket({whole.span().bytes, whole.size() - 1}, socket));
  EXPECT_TRUE(parseTcpSocket(whole.span(), socket));
  // A length that leads out of the message.
  Bytes broken;
  broken.add(message(AF_INET)).add(nlattr{5000, INET_DIAG_INFO});
  EXPECT_TRUE(parseTcpSocket(broken.span(), socket));
}

TcpSocket makeSocket(uint32_t inode, uint64_t received = 0, uint64_t sent = 0) {
  TcpSocket socket;
  socket.cookie = inode + 1000;
  socket.inode = inode;
  socket.family = AF_INET;
  socket.state = 1;
  socket.receivedBytes = received;
  socket.sentBytes = sent;
  return socket;
}

bool noneIsKnown(int32_t) {
  return false;
}

class Totals : public testing::Test {
 protected:
  TcpTotals totals{{[this](std::vector<TcpSocket> &out) {
                      dumps++;
                      out = sockets;
                      return answers;
                    },
                    [this](SocketOwners &wanted, const HasKnownSockets &) {
                      searches++;
                      for (auto &[inode, pid] : wanted) {
                        if (holders.contains(inode)) pid = holders.at(inode);
                      }
                    },
                    [this](int32_t pid) {
                      names++;
                      return "name" + std::to_string(pid);
                    },
                    [this] { return now; }}};

  // "PID:received" of each source.
  std::vector<std::string> list(const SocketOwners &owners) {
    sources.clear();
    EXPECT_EQ(totals.list(owners, noneIsKnown, sources), kAnswered);
    std::vector<std::string> all;
    for (const NetworkSource &source : sources) {
      all.push_back(std::to_string(source.pid) + ":" + std::to_string(source.receivedBytes));
    }
    return all;
  }

  std::vector<TcpSocket> sockets;
  bool answers = true;
  SocketOwners holders;
  std::chrono::steady_clock::time_point now{1h};
  int dumps = 0;
  int searches = 0;
  int names = 0;
  std::vector<NetworkSource> sources;
};

TEST_F(Totals, SocketsWithKnownOwners) {
  TcpSocket socket = makeSocket(10, 5, 6);
  socket.receivedPackets = 3;
  socket.sentPackets = 4;
  socket.localAddress = {127, 0, 0, 1};
  socket.localPort = 80;
  socket.remotePort = 81;
  socket.interfaceIndex = 2;
  sockets = {socket};
  EXPECT_THAT(list({{10, 77}}), ElementsAre("77:5"));
  const NetworkSource &source = sources[0];
  EXPECT_EQ(source.key, 1010u);
  EXPECT_EQ(source.provider, host::NetworkProvider::tcp);
  EXPECT_EQ(source.process, "name77");
  EXPECT_EQ(source.local.family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(source.local.address[0], 127);
  EXPECT_EQ(source.local.port, 80);
  EXPECT_EQ(source.remote.port, 81);
  EXPECT_EQ(source.interfaceIndex, 2u);
  EXPECT_EQ(source.state, darwin::TSI_S_ESTABLISHED);
  EXPECT_EQ(source.receivedPackets, 3u);
  EXPECT_EQ(source.sentPackets, 4u);
  EXPECT_EQ(source.sentBytes, 6u);
  EXPECT_EQ(searches, 0);
}

TEST_F(Totals, AddressesOfIPv6AndOfIPv4WithinIt) {
  TcpSocket own = makeSocket(10);
  own.family = AF_INET6;
  own.localAddress[15] = 1;
  TcpSocket mapped = makeSocket(11);
  mapped.family = AF_INET6;
  mapped.localAddress = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 1, 2, 3};
  mapped.remoteAddress = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 1, 2, 4};
  sockets = {own, mapped};
  list({{10, 1}, {11, 1}});
  EXPECT_EQ(sources[0].local.family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(sources[0].local.address[15], 1);
  EXPECT_EQ(sources[1].local.family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(sources[1].local.address[0], 10);
  EXPECT_EQ(sources[1].remote.address[3], 4);
  EXPECT_EQ(sources[1].remote.address[4], 0);
}

TEST_F(Totals, TheKernelIsAskedOnceASecond) {
  sockets = {makeSocket(10, 5)};
  list({{10, 77}});
  sockets = {makeSocket(10, 6)};
  now += 899ms;
  EXPECT_THAT(list({{10, 77}}), ElementsAre("77:5"));
  EXPECT_EQ(dumps, 1);
  now += 1ms;
  EXPECT_THAT(list({{10, 77}}), ElementsAre("77:6"));
  EXPECT_EQ(dumps, 2);
  EXPECT_EQ(names, 1);
}

TEST_F(Totals, OwnersAreSearchedForWhenNoPassShowedThem) {
  sockets = {makeSocket(10, 5), makeSocket(11, 6)};
  holders = {{10, 77}};
  EXPECT_THAT(list({}), IsEmpty());
  now += 1s;
  EXPECT_THAT(list({}), IsEmpty());
  EXPECT_EQ(searches, 0);
  now += 1s;
  EXPECT_THAT(list({}), ElementsAre("77:5"));
  EXPECT_EQ(searches, 1);
  // What was found stays, what was not is not searched for every time.
  for (int second = 1; second < 10; second++) {
    now += 1s;
    EXPECT_THAT(list({}), ElementsAre("77:5"));
  }
  EXPECT_EQ(searches, 1);
  holders = {{10, 78}, {11, 79}};
  now += 1s;
  EXPECT_THAT(list({}), ElementsAre("78:5", "79:6"));
  EXPECT_EQ(searches, 2);
}

TEST_F(Totals, OwnersThatAreNotFoundAreSearchedForEverMoreSeldom) {
  sockets = {makeSocket(10, 5)};
  list({});
  now += 2s;
  for (const auto wait : {10s, 20s, 40s, 80s, 160s, 300s, 300s}) {
    list({});
    const int before = searches;
    now += wait - 1s;
    list({});
    EXPECT_EQ(searches, before) << wait.count();
    now += 1s;
  }
  holders = {{10, 77}};
  EXPECT_THAT(list({}), ElementsAre("77:5"));
  const int before = searches;
  now += 10s;
  list({});
  EXPECT_EQ(searches, before + 1) << "what was found is looked at again soon";
}

TEST_F(Totals, APassSavesTheSearch) {
  sockets = {makeSocket(10, 5)};
  list({});
  now += 2s;
  EXPECT_THAT(list({{10, 77}}), ElementsAre("77:5"));
  EXPECT_EQ(searches, 0);
}

TEST_F(Totals, AKernelThatDoesNotAnswer) {
  answers = false;
  EXPECT_EQ(totals.list({}, noneIsKnown, sources), darwin::DARWIN_ENOTSUP);
  answers = true;
  sockets = {makeSocket(10, 5)};
  EXPECT_THAT(list({{10, 77}}), ElementsAre("77:5")) << "it is asked again at once";
}

TEST(LiveTotals, ASocketOfThisProcessIsFound) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(listen(listener, 1), 0);
  struct stat file {};
  ASSERT_EQ(fstat(listener, &file), 0);

  SocketOwners wanted{{file.st_ino, 0}, {UINT64_MAX, 0}};
  searchOwners(wanted, [](int32_t pid) { return pid == getpid(); });
  EXPECT_EQ(wanted[file.st_ino], 0) << "of this one all were known";
  searchOwners(wanted, noneIsKnown);
  EXPECT_EQ(wanted[file.st_ino], getpid());
  EXPECT_EQ(wanted[UINT64_MAX], 0);

  TcpTotals totals;
  std::vector<NetworkSource> sources;
  ASSERT_EQ(totals.list({{file.st_ino, getpid()}}, noneIsKnown, sources), kAnswered);
  const auto own = std::find_if(sources.begin(), sources.end(),
                                [](const NetworkSource &source) { return source.pid == getpid(); });
  ASSERT_NE(own, sources.end());
  EXPECT_EQ(own->state, darwin::TSI_S_LISTEN);
  EXPECT_EQ(own->process, processName(getpid()));
  EXPECT_FALSE(own->process.empty());
  close(listener);
}

TEST(LiveTotals, AProcessThatIsNotThereHasNoName) {
  EXPECT_EQ(processName(-5), "");
}

}  // namespace
