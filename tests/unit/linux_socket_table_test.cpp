// The parser of the kernel's socket listings, on made messages, and the table that joins sockets by
// inode. The kernel's own answers are tested with the descriptors.
#include "host/linux/socket_table.h"

#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/netlink_diag.h>
#include <linux/packet_diag.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "darwin/socket.h"
#include "host/darwin/proc_info.h"

namespace host::linux_machine {
namespace {

using std::chrono::milliseconds;

constexpr uint32_t kSequence = 7;

// Messages as the kernel lays them out.
class Messages {
 public:
  template <typename T>
  Messages &message(const T &payload, uint16_t type = SOCK_DIAG_BY_FAMILY, uint16_t flags = 0,
                    uint32_t sequence = kSequence) {
    start_ = bytes_.size();
    nlmsghdr header = {};
    header.nlmsg_type = type;
    header.nlmsg_flags = flags;
    header.nlmsg_seq = sequence;
    append(&header, sizeof(header));
    append(&payload, sizeof(payload));
    return close();
  }
  Messages &attribute(uint16_t type, const void *data, size_t size) {
    const nlattr header = {static_cast<uint16_t>(NLA_HDRLEN + size), type};
    append(&header, sizeof(header));
    append(data, size);
    return close();
  }
  template <typename T>
  Messages &attribute(uint16_t type, const T &value) {
    return attribute(type, &value, sizeof(value));
  }
  Messages &done(int32_t error = 0) { return message(error, NLMSG_DONE, NLM_F_MULTI); }

  std::vector<uint8_t> &bytes() { return bytes_; }
  size_t startOfLast() const { return start_; }

 private:
  void append(const void *data, size_t size) {
    const auto *from = static_cast<const uint8_t *>(data);
    bytes_.insert(bytes_.end(), from, from + size);
  }
  Messages &close() {
    const auto length = static_cast<uint32_t>(bytes_.size() - start_);
    memcpy(bytes_.data() + start_, &length, sizeof(length));
    bytes_.resize((bytes_.size() + NLMSG_ALIGNTO - 1) / NLMSG_ALIGNTO * NLMSG_ALIGNTO);
    return *this;
  }

  std::vector<uint8_t> bytes_;
  size_t start_ = 0;
};

struct Parsed {
  std::vector<DiagSocket> sockets;
  std::string names;
  DumpProgress progress;
};

Parsed parse(const std::vector<uint8_t> &bytes, SocketSource source) {
  Parsed parsed;
  parseSockets(bytes.data(), bytes.size(), source, kSequence, parsed.sockets, parsed.names,
               parsed.progress);
  return parsed;
}

inet_diag_msg internetMessage(uint8_t family, uint32_t inode) {
  inet_diag_msg message = {};
  message.idiag_family = family;
  message.idiag_state = TCP_ESTABLISHED;
  message.id.idiag_sport = htons(22);
  message.id.idiag_dport = htons(40000);
  message.id.idiag_src[0] = htonl(0x7f000001);
  message.id.idiag_dst[0] = htonl(0x0a000002);
  message.idiag_rqueue = 11;
  message.idiag_wqueue = 12;
  message.idiag_inode = inode;
  return message;
}

unix_diag_msg unixMessage(uint32_t inode) {
  unix_diag_msg message = {};
  message.udiag_family = AF_UNIX;
  message.udiag_type = SOCK_STREAM;
  message.udiag_state = TCP_ESTABLISHED;
  message.udiag_ino = inode;
  return message;
}

TEST(SocketParser, ReadsTcpSockets) {
  const uint32_t memory[] = {1, 212992, 3, 16384, 5, 6, 7, 8, 9};
  Messages messages;
  messages.message(internetMessage(AF_INET, 501)).attribute(INET_DIAG_SKMEMINFO, memory);
  messages.message(internetMessage(AF_INET, 502)).done();
  const Parsed parsed = parse(messages.bytes(), SocketSource::tcp4);
  EXPECT_TRUE(parsed.progress.done);
  EXPECT_FALSE(parsed.progress.malformed);
  EXPECT_FALSE(parsed.progress.interrupted);
  ASSERT_EQ(parsed.sockets.size(), 2u);
  const DiagSocket &socket = parsed.sockets[0];
  EXPECT_EQ(socket.inode, 501u);
  EXPECT_EQ(socket.source, SocketSource::tcp4);
  EXPECT_EQ(socket.state, TCP_ESTABLISHED);
  EXPECT_EQ(socket.type, SOCK_STREAM);
  EXPECT_EQ(socket.localPort, htons(22));
  EXPECT_EQ(socket.foreignPort, htons(40000));
  EXPECT_EQ(socket.localAddress[0], 127);
  EXPECT_EQ(socket.localAddress[3], 1);
  EXPECT_EQ(socket.foreignAddress[0], 10);
  EXPECT_EQ(socket.receiveQueue, 11u);
  EXPECT_EQ(socket.sendQueue, 12u);
  EXPECT_EQ(socket.receiveLimit, 212992u);
  EXPECT_EQ(socket.sendLimit, 16384u);
  EXPECT_EQ(parsed.sockets[1].inode, 502u);
  EXPECT_EQ(parsed.sockets[1].receiveLimit, 0u);
}

TEST(SocketParser, ReadsIPv6OnlyAndRawProtocol) {
  Messages dual;
  dual.message(internetMessage(AF_INET6, 1)).attribute(INET_DIAG_SKV6ONLY, uint8_t{0});
  dual.message(internetMessage(AF_INET6, 2)).attribute(INET_DIAG_SKV6ONLY, uint8_t{1});
  const Parsed tcp = parse(dual.bytes(), SocketSource::tcp6);
  ASSERT_EQ(tcp.sockets.size(), 2u);
  EXPECT_FALSE(tcp.progress.done);
  EXPECT_FALSE(tcp.sockets[0].ipv6Only);
  EXPECT_TRUE(tcp.sockets[1].ipv6Only);

  Messages raw;
  raw.message(internetMessage(AF_INET, 3)).attribute(INET_DIAG_PROTOCOL, uint8_t{IPPROTO_ICMP});
  const Parsed parsed = parse(raw.bytes(), SocketSource::raw4);
  ASSERT_EQ(parsed.sockets.size(), 1u);
  EXPECT_EQ(parsed.sockets[0].protocol, IPPROTO_ICMP);
  EXPECT_EQ(parsed.sockets[0].type, SOCK_RAW);
  EXPECT_EQ(parsed.sockets[0].localPort, 0);
}

TEST(SocketParser, ReadsUnixNamesAndPeers) {
  Messages messages;
  messages.message(unixMessage(10))
      .attribute(UNIX_DIAG_NAME, "/run/a", 7)
      .attribute(UNIX_DIAG_PEER, uint32_t{11})
      .attribute(UNIX_DIAG_RQLEN, unix_diag_rqlen{3, 4});
  messages.message(unixMessage(12)).attribute(UNIX_DIAG_NAME, "\0abstract", 9);
  const Parsed parsed = parse(messages.bytes(), SocketSource::unixDomain);
  ASSERT_EQ(parsed.sockets.size(), 2u);
  EXPECT_EQ(parsed.sockets[0].peerInode, 11u);
  EXPECT_EQ(parsed.sockets[0].receiveQueue, 3u);
  EXPECT_EQ(parsed.sockets[0].sendQueue, 4u);
  EXPECT_EQ(parsed.sockets[0].nameStart, 0u);
  EXPECT_EQ(parsed.sockets[0].nameLength, 7u);
  EXPECT_EQ(parsed.sockets[1].nameStart, 7u);
  EXPECT_EQ(parsed.sockets[1].nameLength, 9u);
  EXPECT_EQ(parsed.names, std::string("/run/a\0\0abstract", 16));
}

TEST(SocketParser, CutsUnixNamesThatAreTooLong) {
  const std::string name(300, 'x');
  Messages messages;
  messages.message(unixMessage(1)).attribute(UNIX_DIAG_NAME, name.data(), name.size());
  const Parsed parsed = parse(messages.bytes(), SocketSource::unixDomain);
  ASSERT_EQ(parsed.sockets.size(), 1u);
  EXPECT_EQ(parsed.sockets[0].nameLength, 108u);
  EXPECT_EQ(parsed.names.size(), 108u);
}

TEST(SocketParser, ReadsNetlinkAndPacketSockets) {
  netlink_diag_msg netlink = {};
  netlink.ndiag_family = AF_NETLINK;
  netlink.ndiag_type = SOCK_RAW;
  netlink.ndiag_protocol = NETLINK_GENERIC;
  netlink.ndiag_portid = 4711;
  netlink.ndiag_ino = 20;
  Messages first;
  first.message(netlink);
  const Parsed one = parse(first.bytes(), SocketSource::netlink);
  ASSERT_EQ(one.sockets.size(), 1u);
  EXPECT_EQ(one.sockets[0].inode, 20u);
  EXPECT_EQ(one.sockets[0].protocol, NETLINK_GENERIC);
  EXPECT_EQ(one.sockets[0].portID, 4711u);
  EXPECT_EQ(one.sockets[0].type, SOCK_RAW);

  packet_diag_msg packet = {};
  packet.pdiag_family = AF_PACKET;
  packet.pdiag_type = SOCK_DGRAM;
  packet.pdiag_ino = 21;
  packet_diag_info info = {};
  info.pdi_index = 3;
  Messages second;
  second.message(packet).attribute(PACKET_DIAG_INFO, info);
  const Parsed two = parse(second.bytes(), SocketSource::packet);
  ASSERT_EQ(two.sockets.size(), 1u);
  EXPECT_EQ(two.sockets[0].inode, 21u);
  EXPECT_EQ(two.sockets[0].type, SOCK_DGRAM);
  EXPECT_EQ(two.sockets[0].interfaceIndex, 3u);
}

TEST(SocketParser, SkipsSocketsWithoutInodeAndForeignSequences) {
  Messages messages;
  messages.message(internetMessage(AF_INET, 0));
  messages.message(internetMessage(AF_INET, 9), SOCK_DIAG_BY_FAMILY, 0, kSequence - 1);
  messages.message(int32_t{0}, NLMSG_DONE, 0, kSequence - 1);
  messages.message(internetMessage(AF_INET, 8));
  const Parsed parsed = parse(messages.bytes(), SocketSource::tcp4);
  EXPECT_FALSE(parsed.progress.done);
  EXPECT_FALSE(parsed.progress.malformed);
  ASSERT_EQ(parsed.sockets.size(), 1u);
  EXPECT_EQ(parsed.sockets[0].inode, 8u);
}

TEST(SocketParser, StopsAtDone) {
  Messages messages;
  messages.done().message(internetMessage(AF_INET, 8));
  const Parsed parsed = parse(messages.bytes(), SocketSource::tcp4);
  EXPECT_TRUE(parsed.progress.done);
  EXPECT_EQ(parsed.progress.error, 0);
  EXPECT_TRUE(parsed.sockets.empty());
}

TEST(SocketParser, ReportsErrorsAndInterruptions) {
  nlmsgerr refusal = {};
  refusal.error = -ENOENT;
  Messages refused;
  refused.message(refusal, NLMSG_ERROR);
  Parsed parsed = parse(refused.bytes(), SocketSource::raw4);
  EXPECT_TRUE(parsed.progress.done);
  EXPECT_EQ(parsed.progress.error, ENOENT);

  Messages ended;
  parsed = parse(ended.done(-EINVAL).bytes(), SocketSource::raw4);
  EXPECT_TRUE(parsed.progress.done);
  EXPECT_EQ(parsed.progress.error, EINVAL);

  Messages strange;
  parsed = parse(strange.done(INT32_MIN).bytes(), SocketSource::raw4);
  EXPECT_TRUE(parsed.progress.done);
  EXPECT_EQ(parsed.progress.error, 0);

  Messages interrupted;
  interrupted.message(internetMessage(AF_INET, 8), SOCK_DIAG_BY_FAMILY, NLM_F_DUMP_INTR).done();
  parsed = parse(interrupted.bytes(), SocketSource::tcp4);
  EXPECT_TRUE(parsed.progress.done);
  EXPECT_TRUE(parsed.progress.interrupted);
  EXPECT_EQ(parsed.sockets.size(), 1u);
}

TEST(SocketParser, RefusesImpossibleLengths) {
  for (const uint32_t length : {0u, 1u, 15u, 1000u, 0xfffffffcu, 0xffffffffu}) {
    Messages messages;
    messages.message(internetMessage(AF_INET, 8)).message(internetMessage(AF_INET, 9));
    memcpy(messages.bytes().data() + messages.startOfLast(), &length, sizeof(length));
    const Parsed parsed = parse(messages.bytes(), SocketSource::tcp4);
    EXPECT_TRUE(parsed.progress.malformed) << length;
    EXPECT_EQ(parsed.sockets.size(), 1u) << length;
  }
}

TEST(SocketParser, RefusesShortPayloadsAndOtherFamilies) {
  Messages brief;
  brief.message(uint32_t{AF_INET});
  EXPECT_TRUE(parse(brief.bytes(), SocketSource::tcp4).progress.malformed);
  Messages other;
  other.message(internetMessage(AF_INET6, 8));
  const Parsed parsed = parse(other.bytes(), SocketSource::tcp4);
  EXPECT_TRUE(parsed.progress.malformed);
  EXPECT_TRUE(parsed.sockets.empty());
}

TEST(SocketParser, IgnoresAttributesThatDoNotFit) {
  for (const uint16_t length : {uint16_t{0}, uint16_t{3}, uint16_t{200}, uint16_t{0xffff}}) {
    Messages messages;
    messages.message(unixMessage(10)).attribute(UNIX_DIAG_PEER, uint32_t{11});
    memcpy(messages.bytes().data() + NLMSG_HDRLEN + sizeof(unix_diag_msg), &length, sizeof(length));
    const Parsed parsed = parse(messages.bytes(), SocketSource::unixDomain);
    EXPECT_FALSE(parsed.progress.malformed);
    ASSERT_EQ(parsed.sockets.size(), 1u);
    EXPECT_EQ(parsed.sockets[0].peerInode, 0u);
  }
}

TEST(SocketParser, StandsAnyLengthAlignmentAndDamage) {
  Messages messages;
  messages.message(unixMessage(10)).attribute(UNIX_DIAG_NAME, "/run/a", 7);
  messages.message(unixMessage(12)).attribute(UNIX_DIAG_PEER, uint32_t{10}).done();
  const std::vector<uint8_t> &good = messages.bytes();
  for (size_t size = 0; size < good.size(); size++) {
    const Parsed parsed = parse({good.begin(), good.begin() + static_cast<ptrdiff_t>(size)},
                                SocketSource::unixDomain);
    EXPECT_FALSE(parsed.progress.done && size + NLMSG_HDRLEN < good.size()) << size;
    EXPECT_LE(parsed.sockets.size(), 2u);
  }
  for (size_t at = 0; at < good.size(); at++) {
    for (const uint8_t value : {uint8_t{0}, uint8_t{1}, uint8_t{0x7f}, uint8_t{0xff}}) {
      std::vector<uint8_t> damaged = good;
      damaged[at] = value;
      const Parsed parsed = parse(damaged, SocketSource::unixDomain);
      EXPECT_LE(parsed.sockets.size(), 2u) << at;
      for (const DiagSocket &socket : parsed.sockets) {
        EXPECT_LE(size_t{socket.nameStart} + socket.nameLength, parsed.names.size());
      }
    }
  }
  std::vector<uint8_t> shifted = good;
  shifted.insert(shifted.begin(), 0);
  Parsed parsed;
  parseSockets(shifted.data() + 1, good.size(), SocketSource::unixDomain, kSequence, parsed.sockets,
               parsed.names, parsed.progress);
  EXPECT_TRUE(parsed.progress.done);
  EXPECT_EQ(parsed.sockets.size(), 2u);
}

// A machine whose sockets and time the test sets.
class SocketTableTest : public testing::Test {
 protected:
  DiagSocket &add(SocketSource source, uint32_t inode) {
    DiagSocket &socket = kernel_.emplace_back();
    socket.source = source;
    socket.inode = inode;
    return socket;
  }
  void name(DiagSocket &socket, std::string_view text) {
    socket.nameStart = static_cast<uint32_t>(names_.size());
    socket.nameLength = static_cast<uint32_t>(text.size());
    names_ += text;
  }
  darwin::socket_info describe(uint64_t inode, bool known = true) {
    darwin::socket_info info = {};
    EXPECT_EQ(table_.describe(inode, info), known) << inode;
    EXPECT_EQ(info.soi_so, inode);
    return info;
  }

  std::vector<DiagSocket> kernel_;
  std::string names_;
  int readings_ = 0;
  milliseconds duration_{0};  // of a reading
  std::chrono::steady_clock::time_point now_{std::chrono::hours(1)};
  SocketTable table_{{[this](std::vector<DiagSocket> &sockets, std::string &names) {
                       readings_++;
                       now_ += duration_;
                       names += names_;
                       sockets.insert(sockets.end(), kernel_.begin(), kernel_.end());
                     }},
                     [this] { return now_; }};
};

TEST_F(SocketTableTest, MapsTcpStates) {
  const struct {
    uint8_t linux;
    int32_t darwin;
  } states[] = {{TCP_ESTABLISHED, darwin::TSI_S_ESTABLISHED},
                {TCP_SYN_SENT, darwin::TSI_S_SYN_SENT},
                {TCP_SYN_RECV, darwin::TSI_S_SYN_RECEIVED},
                {TCP_FIN_WAIT1, darwin::TSI_S_FIN_WAIT_1},
                {TCP_FIN_WAIT2, darwin::TSI_S_FIN_WAIT_2},
                {TCP_TIME_WAIT, darwin::TSI_S_TIME_WAIT},
                {TCP_CLOSE, darwin::TSI_S_CLOSED},
                {TCP_CLOSE_WAIT, darwin::TSI_S__CLOSE_WAIT},
                {TCP_LAST_ACK, darwin::TSI_S_LAST_ACK},
                {TCP_LISTEN, darwin::TSI_S_LISTEN},
                {TCP_CLOSING, darwin::TSI_S_CLOSING},
                {12, darwin::TSI_S_SYN_RECEIVED},
                {13, darwin::TSI_S_CLOSED},
                {0, darwin::TSI_S_CLOSED},
                {255, darwin::TSI_S_CLOSED}};
  for (const auto &state : states) add(SocketSource::tcp4, 100u + state.linux).state = state.linux;
  for (const auto &state : states) {
    EXPECT_EQ(describe(100u + state.linux).soi_proto.pri_tcp.tcpsi_state, state.darwin)
        << int{state.linux};
  }
}

TEST_F(SocketTableTest, FillsIPv4InTheLastFourBytes) {
  DiagSocket &socket = add(SocketSource::tcp4, 5);
  socket.type = SOCK_STREAM;
  socket.state = TCP_ESTABLISHED;
  socket.localPort = htons(22);
  socket.foreignPort = htons(40000);
  socket.localAddress = {127, 0, 0, 1};
  socket.foreignAddress = {10, 0, 0, 2};
  socket.receiveQueue = 5;
  socket.sendQueue = 6;
  socket.receiveLimit = 7;
  socket.sendLimit = 8;
  const darwin::socket_info info = describe(5);
  EXPECT_EQ(info.soi_family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(info.soi_type, darwin::DARWIN_SOCK_STREAM);
  EXPECT_EQ(info.soi_protocol, darwin::DARWIN_IPPROTO_TCP);
  EXPECT_EQ(info.soi_kind, darwin::SOCKINFO_TCP);
  EXPECT_EQ(info.soi_options, 0);
  EXPECT_EQ(info.soi_rcv.sbi_cc, 5u);
  EXPECT_EQ(info.soi_snd.sbi_cc, 6u);
  EXPECT_EQ(info.soi_rcv.sbi_hiwat, 7u);
  EXPECT_EQ(info.soi_snd.sbi_hiwat, 8u);
  const darwin::in_sockinfo &internet = info.soi_proto.pri_tcp.tcpsi_ini;
  EXPECT_EQ(internet.insi_vflag, darwin::INI_IPV4);
  EXPECT_EQ(internet.insi_lport, htons(22));
  EXPECT_EQ(internet.insi_fport, htons(40000));
  EXPECT_EQ(internet.insi_laddr.ina_46.i46a_addr4.s_addr, htonl(0x7f000001));
  EXPECT_EQ(internet.insi_faddr.ina_46.i46a_addr4.s_addr, htonl(0x0a000002));
  EXPECT_EQ(internet.insi_laddr.ina_46.i46a_pad32[2], 0u);
}

TEST_F(SocketTableTest, TellsIPv6FromMappedAndDualSockets) {
  DiagSocket plain;
  plain.source = SocketSource::udp6;
  plain.inode = 1;
  plain.localAddress[15] = 1;
  DiagSocket mapped = plain;
  mapped.inode = 2;
  mapped.localAddress = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 0, 0, 9};
  mapped.foreignAddress = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 0, 0, 8};
  DiagSocket dual;
  dual.source = SocketSource::tcp6;
  dual.inode = 3;
  dual.ipv6Only = false;
  DiagSocket only = dual;
  only.inode = 4;
  only.ipv6Only = true;
  kernel_ = {plain, mapped, dual, only};

  darwin::socket_info info = describe(1);
  EXPECT_EQ(info.soi_family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(info.soi_protocol, darwin::DARWIN_IPPROTO_UDP);
  EXPECT_EQ(info.soi_kind, darwin::SOCKINFO_IN);
  EXPECT_EQ(info.soi_proto.pri_in.insi_vflag, darwin::INI_IPV6);
  EXPECT_EQ(info.soi_proto.pri_in.insi_laddr.ina_6.octets[15], 1);

  info = describe(2);
  EXPECT_EQ(info.soi_family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(info.soi_proto.pri_in.insi_vflag, darwin::INI_IPV4);
  EXPECT_EQ(info.soi_proto.pri_in.insi_laddr.ina_46.i46a_pad32[2], 0u);
  EXPECT_EQ(info.soi_proto.pri_in.insi_laddr.ina_46.i46a_addr4.s_addr, htonl(0x0a000009));
  EXPECT_EQ(info.soi_proto.pri_in.insi_faddr.ina_46.i46a_addr4.s_addr, htonl(0x0a000008));

  EXPECT_EQ(describe(3).soi_proto.pri_in.insi_vflag, darwin::INI_IPV4 | darwin::INI_IPV6);
  EXPECT_EQ(describe(4).soi_proto.pri_in.insi_vflag, darwin::INI_IPV6);
}

TEST_F(SocketTableTest, ListeningQueuesAreCounts) {
  DiagSocket &socket = add(SocketSource::tcp4, 5);
  socket.state = TCP_LISTEN;
  socket.receiveQueue = 2;
  socket.sendQueue = 100000;
  const darwin::socket_info info = describe(5);
  EXPECT_EQ(info.soi_options, 0x2);
  EXPECT_EQ(info.soi_qlen, 2);
  EXPECT_EQ(info.soi_qlimit, INT16_MAX);
  EXPECT_EQ(info.soi_rcv.sbi_cc, 0u);
  EXPECT_EQ(info.soi_snd.sbi_cc, 0u);
}

TEST_F(SocketTableTest, JoinsUnixPeers) {
  DiagSocket &server = add(SocketSource::unixDomain, 30);
  server.type = SOCK_STREAM;
  server.state = TCP_ESTABLISHED;
  server.peerInode = 31;
  name(server, std::string_view("/run/server\0", 12));
  DiagSocket &client = add(SocketSource::unixDomain, 31);
  client.type = SOCK_STREAM;
  client.peerInode = 30;
  DiagSocket &lonely = add(SocketSource::unixDomain, 32);
  lonely.peerInode = 99;

  darwin::socket_info info = describe(30);
  EXPECT_EQ(info.soi_family, darwin::DARWIN_AF_UNIX);
  EXPECT_EQ(info.soi_kind, darwin::SOCKINFO_UN);
  EXPECT_EQ(info.soi_proto.pri_un.unsi_conn_so, 31u);
  EXPECT_STREQ(info.soi_proto.pri_un.unsi_addr.ua_sun.sun_path, "/run/server");
  EXPECT_EQ(info.soi_proto.pri_un.unsi_addr.ua_sun.sun_len, 13);
  EXPECT_EQ(info.soi_proto.pri_un.unsi_addr.ua_sun.sun_family, darwin::DARWIN_AF_UNIX);
  EXPECT_EQ(info.soi_proto.pri_un.unsi_caddr.ua_sun.sun_path[0], '\0');

  info = describe(31);
  EXPECT_EQ(info.soi_proto.pri_un.unsi_conn_so, 30u);
  EXPECT_EQ(info.soi_proto.pri_un.unsi_addr.ua_sun.sun_path[0], '\0');
  EXPECT_STREQ(info.soi_proto.pri_un.unsi_caddr.ua_sun.sun_path, "/run/server");

  EXPECT_EQ(describe(32).soi_proto.pri_un.unsi_conn_so, 99u);
}

TEST_F(SocketTableTest, ShowsAbstractAndLongUnixNames) {
  name(add(SocketSource::unixDomain, 1), std::string_view("\0a\0b", 4));
  const std::string longest(108, 'p');
  name(add(SocketSource::unixDomain, 2), longest);
  DiagSocket &wrong = add(SocketSource::unixDomain, 3);
  wrong.nameStart = 1000000;
  wrong.nameLength = 5;

  EXPECT_STREQ(describe(1).soi_proto.pri_un.unsi_addr.ua_sun.sun_path, "@a@b");
  const darwin::un_sockinfo_address address = describe(2).soi_proto.pri_un.unsi_addr;
  EXPECT_EQ(address.ua_sun.sun_len, 106);
  EXPECT_EQ(std::string(address.ua_dummy + 2), std::string(104, 'p'));
  EXPECT_EQ(describe(3).soi_proto.pri_un.unsi_addr.ua_sun.sun_path[0], '\0');
}

TEST_F(SocketTableTest, ShowsNetlinkAsControlSockets) {
  DiagSocket &route = add(SocketSource::netlink, 1);
  route.protocol = NETLINK_ROUTE;
  route.portID = 4711;
  route.type = SOCK_RAW;
  add(SocketSource::netlink, 2).protocol = 31;
  const darwin::socket_info info = describe(1);
  EXPECT_EQ(info.soi_family, darwin::DARWIN_AF_SYSTEM);
  EXPECT_EQ(info.soi_protocol, darwin::SYSPROTO_CONTROL);
  EXPECT_EQ(info.soi_kind, darwin::SOCKINFO_KERN_CTL);
  EXPECT_EQ(info.soi_proto.pri_kern_ctl.kcsi_unit, 4711u);
  EXPECT_STREQ(info.soi_proto.pri_kern_ctl.kcsi_name, "netlink:route");
  EXPECT_STREQ(describe(2).soi_proto.pri_kern_ctl.kcsi_name, "netlink:31");
}

TEST_F(SocketTableTest, ShowsPacketSocketsByInterface) {
  DiagSocket &bound = add(SocketSource::packet, 1);
  bound.interfaceIndex = if_nametoindex("lo");
  ASSERT_NE(bound.interfaceIndex, 0u);
  add(SocketSource::packet, 2);
  add(SocketSource::packet, 3).interfaceIndex = UINT32_MAX;
  const darwin::socket_info info = describe(1);
  EXPECT_EQ(info.soi_family, darwin::DARWIN_AF_NDRV);
  EXPECT_EQ(info.soi_kind, darwin::SOCKINFO_NDRV);
  EXPECT_STREQ(info.soi_proto.pri_ndrv.ndrvsi_if_name, "lo");
  EXPECT_STREQ(describe(2).soi_proto.pri_ndrv.ndrvsi_if_name, "");
  EXPECT_STREQ(describe(3).soi_proto.pri_ndrv.ndrvsi_if_name, "");
}

TEST_F(SocketTableTest, ShowsAMultipathSocketOnce) {
  add(SocketSource::tcp4, 6).localPort = htons(1);
  add(SocketSource::mptcp4, 6).localPort = htons(2);
  const darwin::socket_info info = describe(6);
  EXPECT_EQ(info.soi_protocol, darwin::DARWIN_IPPROTO_TCP);
  EXPECT_EQ(info.soi_proto.pri_in.insi_lport, htons(2));
}

TEST_F(SocketTableTest, ReadsOncePerPass) {
  add(SocketSource::tcp4, 1);
  add(SocketSource::tcp4, 2);
  describe(1);
  describe(2);
  EXPECT_EQ(readings_, 1);
  table_.beginPass();
  EXPECT_EQ(readings_, 1);
  describe(1);
  describe(2);
  EXPECT_EQ(readings_, 2);
}

// What is within the machine is listed first, which costs less.
TEST_F(SocketTableTest, AsksNoFurtherThanForTheSocket) {
  std::array<int, 2> asked = {};
  const auto giving = [&asked](size_t which, uint32_t inode) {
    return [&asked, which, inode](std::vector<DiagSocket> &sockets, std::string &) {
      asked[which]++;
      sockets.emplace_back().inode = inode;
    };
  };
  SocketTable table({giving(0, 10), giving(1, 20)}, [this] { return now_; });
  darwin::socket_info info = {};
  EXPECT_TRUE(table.describe(10, info));
  EXPECT_EQ(asked, (std::array{1, 0}));
  EXPECT_TRUE(table.describe(20, info));
  EXPECT_FALSE(table.describe(30, info));
  EXPECT_EQ(asked, (std::array{1, 1}));
  now_ += milliseconds(30);
  EXPECT_FALSE(table.describe(30, info));
  EXPECT_EQ(asked, (std::array{2, 2}));
  table.beginPass();
  EXPECT_TRUE(table.describe(10, info));
  EXPECT_EQ(asked, (std::array{3, 2}));
}

TEST_F(SocketTableTest, LooksAgainForUnknownSocketsButNotAtOnce) {
  describe(1, false);
  EXPECT_EQ(readings_, 1);
  add(SocketSource::tcp4, 1);
  now_ += milliseconds(29);
  describe(1, false);
  EXPECT_EQ(readings_, 1);
  now_ += milliseconds(1);
  describe(1);
  EXPECT_EQ(readings_, 2);
  describe(2, false);
  EXPECT_EQ(readings_, 2);
}

TEST_F(SocketTableTest, DoesNotTrustAnOldReading) {
  add(SocketSource::tcp4, 1);
  describe(1);
  now_ += milliseconds(249);
  describe(1);
  EXPECT_EQ(readings_, 1);
  now_ += milliseconds(1);
  describe(1);
  EXPECT_EQ(readings_, 2);
}

TEST_F(SocketTableTest, ALongReadingIsUsedForLonger) {
  duration_ = milliseconds(40);
  add(SocketSource::tcp4, 1);
  describe(1);
  now_ += milliseconds(399);
  describe(1);
  describe(2, false);
  EXPECT_EQ(readings_, 1);
  now_ += milliseconds(1);
  describe(2, false);
  EXPECT_EQ(readings_, 2);
  // A new pass is worth a reading whenever it begins.
  table_.beginPass();
  describe(1);
  EXPECT_EQ(readings_, 3);
}

// One question after the other about sockets that no reading has, as of processes in another
// network namespace.
TEST_F(SocketTableTest, UnknownSocketsCostAFixedShare) {
  constexpr milliseconds kQuestion(1);
  constexpr int kQuestions = 10000;
  duration_ = milliseconds(20);
  const auto start = now_;
  for (int i = 0; i < kQuestions; i++) {
    describe(1000u + static_cast<unsigned>(i), false);
    now_ += kQuestion;
  }
  EXPECT_LE(now_ - start, kQuestion * kQuestions * 12 / 10);
}

TEST(ProtocolCounts, SayWhetherThereAreSockets) {
  constexpr std::string_view kTable =
      "protocol  size sockets  memory press maxhdr  slab module     cl co di ac io in de sh\n"
      "MPTCPv6   2064      3     222   no       0   yes  kernel      y  y  y  n  y  y  y  y\n"
      "UDPv6     1472      0       0   NI       0   yes  kernel      y  y  y  n  y  y  y  n\n"
      "MPTCP     1896      0     222   no       0   yes  kernel      y  y  y  n  y  y  y  y\n"
      "TCP       2248     12       1   no     320   yes  kernel      y  y  y  y  y  y  y  y\n";
  EXPECT_FALSE(countsSockets(kTable, "MPTCP"));
  EXPECT_TRUE(countsSockets(kTable, "MPTCPv6"));
  EXPECT_TRUE(countsSockets(kTable, "TCP"));
  EXPECT_FALSE(countsSockets(kTable, "UDPv6"));
  EXPECT_FALSE(countsSockets(kTable, "SCTP")) << "a protocol that is not there has none";
  EXPECT_TRUE(countsSockets("", "MPTCP")) << "nothing is known";
  EXPECT_TRUE(countsSockets("another kind of text\n", "MPTCP"));
  EXPECT_TRUE(countsSockets(kTable.substr(0, kTable.find("MPTCP ") + 5), "MPTCP")) << "cut short";
}

TEST(UnlistedSocket, IsKnownByItsProtocolName) {
  const struct {
    const char *name;
    int32_t family, type, protocol, kind;
    uint8_t vflag;
  } sockets[] = {
      {"TCP", darwin::DARWIN_AF_INET, 1, 6, darwin::SOCKINFO_TCP, darwin::INI_IPV4},
      {"TCPv6", darwin::DARWIN_AF_INET6, 1, 6, darwin::SOCKINFO_TCP, darwin::INI_IPV6},
      {"MPTCP", darwin::DARWIN_AF_INET, 1, 6, darwin::SOCKINFO_TCP, darwin::INI_IPV4},
      {"UDP", darwin::DARWIN_AF_INET, 2, 17, darwin::SOCKINFO_IN, darwin::INI_IPV4},
      {"UDPv6", darwin::DARWIN_AF_INET6, 2, 17, darwin::SOCKINFO_IN, darwin::INI_IPV6},
      {"RAW", darwin::DARWIN_AF_INET, 3, 0, darwin::SOCKINFO_IN, darwin::INI_IPV4},
      {"UNIX-STREAM", darwin::DARWIN_AF_UNIX, 1, 0, darwin::SOCKINFO_UN, 0},
      {"PACKET", darwin::DARWIN_AF_NDRV, 0, 0, darwin::SOCKINFO_NDRV, 0},
  };
  for (const auto &socket : sockets) {
    darwin::socket_info info = {};
    EXPECT_TRUE(isListedProtocol(socket.name)) << socket.name;
    describeUnlisted(socket.name, info);
    EXPECT_EQ(info.soi_family, socket.family) << socket.name;
    EXPECT_EQ(info.soi_type, socket.type) << socket.name;
    EXPECT_EQ(info.soi_protocol, socket.protocol) << socket.name;
    EXPECT_EQ(info.soi_kind, socket.kind) << socket.name;
    EXPECT_EQ(info.soi_proto.pri_in.insi_vflag, socket.vflag) << socket.name;
  }
  darwin::socket_info info = {};
  describeUnlisted("NETLINK", info);
  EXPECT_EQ(info.soi_family, darwin::DARWIN_AF_SYSTEM);
  EXPECT_STREQ(info.soi_proto.pri_kern_ctl.kcsi_name, "netlink");
  for (const char *name : {"AF_VSOCK", "SCTP", "TCPv", "tcp"}) {
    darwin::socket_info other = {};
    EXPECT_FALSE(isListedProtocol(name)) << name;
    describeUnlisted(name, other);
    EXPECT_EQ(other.soi_family, darwin::DARWIN_AF_SYSTEM) << name;
    EXPECT_EQ(other.soi_protocol, darwin::SYSPROTO_CONTROL) << name;
    EXPECT_EQ(other.soi_kind, darwin::SOCKINFO_KERN_CTL) << name;
    EXPECT_STREQ(other.soi_proto.pri_kern_ctl.kcsi_name, name);
  }
}

}  // namespace
}  // namespace host::linux_machine
