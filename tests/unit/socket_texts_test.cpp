#include "fds/sockets.h"

#include <gtest/gtest.h>
#include <libkern/OSByteOrder.h>

#include <cstring>
#include <map>
#include <string>

#include "proc/process_table.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/sampled_machine.h"
#include "tests/unit/socket_details.h"

namespace {

using namespace sondex;
using sampled::outputOf;
using socket_details::address;
using socket_details::addSocket;
using socket_details::local;
using socket_details::ofKind;
using socket_details::onPort;
using socket_details::setPath;
using socket_details::setProcess;
using socket_details::tcp4;

TEST(SocketKind, OfEveryFamily) {
  const struct {
    int32_t family;
    int32_t type;
    int32_t protocol;
    const char *text;
  } kRows[] = {
      {1, 1, 0, "stream"},   {1, 2, 0, "dgram "},  {1, 3, 0, "UNIX"},     {1, 0, 0, "UNIX"},
      {1, -1, 0, "UNIX"},    {1, 1, 6, "stream"},  {1, 2, 17, "dgram "},  {2, 1, 6, "tcp4  "},
      {2, 2, 6, "tcp4  "},   {2, 2, 17, "udp4  "}, {2, 1, 17, "udp4  "},  {2, 1, 0, "stream"},
      {2, 2, 0, "dgram "},   {2, 2, 1, "dgram "},  {2, 3, 1, "UNIX"},     {2, 3, 255, "UNIX"},
      {27, 3, 0, "NDRV"},    {27, 1, 6, "NDRV"},   {29, 3, 2, "KEY"},     {29, 1, 6, "KEY"},
      {30, 1, 6, "tcp6  "},  {30, 3, 6, "tcp6  "}, {30, 2, 17, "udp6  "}, {30, 1, 0, "stream"},
      {30, 2, 58, "dgram "}, {30, 3, 58, "UNIX"},  {32, 2, 1, "system"},  {32, 2, 2, "system"},
      {32, 1, 6, "system"},
  };
  for (const auto &row : kRows)
    EXPECT_STREQ(socket_type_to_txt(row.family, row.type, row.protocol), row.text)
        << row.family << " " << row.type << " " << row.protocol;
}

TEST(SocketKind, OfAnyOtherFamilyIsItsNumber) {
  const int32_t kKnown[] = {1, 2, 27, 29, 30, 32};
  for (int32_t family = -3; family < 50; family++) {
    if (std::find(std::begin(kKnown), std::end(kKnown), family) != std::end(kKnown)) continue;
    EXPECT_EQ(socket_type_to_txt(family, 1, 6),
              std::string("Unknown type ").append(std::to_string(family)).append("\n"));
  }
  EXPECT_STREQ(socket_type_to_txt(INT32_MIN, 0, 0), "Unknown type -2147483648\n");
  EXPECT_STREQ(socket_type_to_txt(INT32_MAX, 0, 0), "Unknown type 2147483647\n");
}

TEST(TcpState, IsTheStatesWord) {
  const std::map<int32_t, std::string> kWords = {
      {0, "CLOSED"},      {1, "LISTEN"},     {2, "SYN_SENT"},   {3, "SYN_RCVD"},
      {4, "ESTABLISHED"}, {5, "CLOSE_WAIT"}, {6, "FIN_WAIT_1"}, {7, "CLOSING"},
      {8, "LAST_ACK"},    {9, "FIN_WAIT_2"}, {10, "TIME_WAIT"}, {11, "RESERVED"}};
  for (int32_t state = -5; state < 20; state++) {
    const auto word = kWords.find(state);
    EXPECT_EQ(tcpStateToText(state), word != kWords.end() ? word->second : "?!?") << state;
  }
  EXPECT_STREQ(tcpStateToText(INT32_MIN), "?!?");
  EXPECT_STREQ(tcpStateToText(INT32_MAX), "?!?");
}

TEST(IPv4Address, HasItsBytesInMemoryOrder) {
  const auto textOf = [](uint8_t a, uint8_t b, uint8_t c, uint8_t d) -> std::string {
    const uint8_t bytes[] = {a, b, c, d};
    darwin::in_addr made{};
    std::memcpy(&made, bytes, sizeof bytes);
    return print_ipv4addr(&made);
  };
  EXPECT_EQ(textOf(0, 0, 0, 0), "*");
  EXPECT_EQ(textOf(0, 0, 0, 1), "0.0.0.1");
  EXPECT_EQ(textOf(127, 0, 0, 1), "127.0.0.1");
  EXPECT_EQ(textOf(192, 0, 2, 7), "192.0.2.7");
  EXPECT_EQ(textOf(255, 255, 255, 255), "255.255.255.255");
}

TEST(SwappedPort, HasItsBytesChanged) {
  EXPECT_EQ(_OSSwapInt16(0x1234), 0x3412);
  EXPECT_EQ(_OSSwapInt16(0x00FF), 0xFF00);
  EXPECT_EQ(_OSSwapInt16(0), 0);
  EXPECT_EQ(_OSSwapInt16(0xFFFF), 0xFFFF);
}

TEST(EventCodes, OfAnotherVendorAreNumbers) {
  EXPECT_STREQ(event_codes_to_txt(2, 1, 1), "2:1:1");
  EXPECT_STREQ(event_codes_to_txt(0, 0, 0), "0:0:0");
  EXPECT_STREQ(event_codes_to_txt(-1, -1, -1), "-1:-1:-1");
  EXPECT_STREQ(event_codes_to_txt(INT32_MIN, INT32_MIN, INT32_MIN),
               "-2147483648:-2147483648:-2147483648");
}

TEST(EventCodes, OfAppleNameClassAndSubclass) {
  const std::map<int32_t, std::string> kClasses = {
      {0, "ANY:"},        {1, "NETWORK:"},  {2, "IOKIT:"},    {3, "SYSTEM:"},
      {4, "APPLESHARE:"}, {5, "FIREWALL:"}, {6, "IEEE80211:"}};
  const std::map<int32_t, std::map<int32_t, std::string>> kSubclasses = {
      {1,
       {{0, "ANY"},
        {1, "INET"},
        {2, "DL"},
        {3, "NETPOLICY"},
        {4, "SOCKET"},
        {6, "INET6"},
        {7, "ND6"},
        {8, "NECP"},
        {9, "NETAGENT"},
        {10, "LOG"},
        {11, "NETEVENT"},
        {12, "MPTCP"}}},
      {3, {{0, "ANY"}, {3, "MEMORYSTATUS"}}},
      {4, {{0, "ANY"}}},
  };
  for (int32_t kind = -2; kind < 10; kind++) {
    for (int32_t subclass = -3; subclass < 16; subclass++) {
      std::string expected = "APPLE:";
      if (kClasses.count(kind) != 0) expected.append(kClasses.at(kind));
      if (kSubclasses.count(kind) != 0 && kSubclasses.at(kind).count(subclass) != 0) {
        expected.append(kSubclasses.at(kind).at(subclass));
      } else if (subclass != -1) {
        expected.append(std::to_string(subclass));
      }
      EXPECT_EQ(event_codes_to_txt(1, kind, subclass), expected) << kind << " " << subclass;
    }
  }
  EXPECT_STREQ(event_codes_to_txt(1, INT32_MIN, INT32_MIN), "APPLE:-2147483648");
}

class SocketLine : public testing::Test {
 protected:
  SocketLine() {
    table = allocateProcessTable(3);
    setProcess(table[0], 1, "launchd");
    setProcess(table[1], 271, "sshd");
    setProcess(table[2], 300, "mDNSResponder");
    store(g_process_information, table);
    store(num_procs, 3);
  }

  static std::string lineOf(const darwin::socket_fdinfo &info) {
    return outputOf([&] { EXPECT_GE(print_socket_fdinfo(&info, 5, 0), 0); });
  }

  DisplayStateGuard guard;
  ProcessRecord *table;
};

TEST_F(SocketLine, OfAListeningSocketIsItsPort) {
  EXPECT_EQ(lineOf(onPort(22)), "tcp4   *:22");
  EXPECT_EQ(lineOf(tcp4("127.0.0.1", 62078, "0.0.0.0", 0, 1)), "tcp4   127.0.0.1:62078");
  EXPECT_EQ(lineOf(tcp4("255.255.255.255", 65535, "0.0.0.0", 4, 1)),
            "tcp4   255.255.255.255:65535");
}

TEST_F(SocketLine, OfAConnectionHasBothEndsAndTheState) {
  EXPECT_EQ(lineOf(tcp4("192.0.2.7", 49152, "198.51.100.20", 443, 4)),
            "tcp4   192.0.2.7:49152->   198.51.100.20:443   ESTABLISHED");
  EXPECT_EQ(lineOf(tcp4("0.0.0.0", 0, "0.0.0.1", 65535, 99)),
            "tcp4   *:0->         0.0.0.1:65535 ?!?");
  EXPECT_EQ(lineOf(tcp4("10.0.0.1", 1, "255.255.255.255", 80, 10)),
            "tcp4   10.0.0.1:1-> 255.255.255.255:80    TIME_WAIT");
}

TEST_F(SocketLine, OfDatagramsHasNoState) {
  darwin::socket_fdinfo info = tcp4("192.0.2.7", 5353, "198.51.100.20", 53, 4);
  info.psi.soi_type = 2;
  info.psi.soi_protocol = 17;
  EXPECT_EQ(lineOf(info), "udp4   192.0.2.7:5353->   198.51.100.20:53   ");
  info.psi.soi_protocol = 1;
  info.psi.soi_type = 3;
  EXPECT_EQ(lineOf(info), "UNIX 192.0.2.7:5353->   198.51.100.20:53   ");
}

TEST_F(SocketLine, ToALocalPortNamesItsOwner) {
  addSocket(table[1], onPort(22));
  addSocket(table[2], onPort(22));
  EXPECT_EQ(lineOf(tcp4("127.0.0.1", 50000, "127.0.0.1", 22, 4)),
            "tcp4   127.0.0.1:50000->       127.0.0.1:22    sshd (PID: 271) ESTABLISHED");
  EXPECT_EQ(lineOf(tcp4("127.0.0.1", 50000, "127.0.0.1", 23, 2)),
            "tcp4   127.0.0.1:50000->       127.0.0.1:23    SYN_SENT");
  EXPECT_EQ(lineOf(tcp4("127.0.0.1", 50000, "127.0.0.2", 22, 4)),
            "tcp4   127.0.0.1:50000->       127.0.0.2:22    ESTABLISHED");
}

TEST_F(SocketLine, ToALocalPortOfDatagramsHasTheOwnerLast) {
  addSocket(table[2], onPort(53));
  darwin::socket_fdinfo info = tcp4("127.0.0.1", 50000, "127.0.0.1", 53, 0);
  info.psi.soi_protocol = 17;
  EXPECT_EQ(lineOf(info),
            "udp4   127.0.0.1:50000->       127.0.0.1:53    mDNSResponder (PID: 300)");
}

TEST_F(SocketLine, OfIPv6NeverShowsAddresses) {
  darwin::socket_fdinfo info = ofKind(30, 1, 6);
  darwin::tcp_sockinfo &tcp = info.psi.soi_proto.pri_tcp;
  tcp.tcpsi_ini.insi_lport = htons(22);
  tcp.tcpsi_state = 1;
  EXPECT_EQ(lineOf(info), "tcp6   [::]:22->            [::]:0     LISTEN");
  std::memset(&tcp.tcpsi_ini.insi_laddr, 0x20, sizeof tcp.tcpsi_ini.insi_laddr);
  std::memset(&tcp.tcpsi_ini.insi_faddr, 0x20, sizeof tcp.tcpsi_ini.insi_faddr);
  tcp.tcpsi_ini.insi_fport = htons(65000);
  tcp.tcpsi_state = 4;
  EXPECT_EQ(lineOf(info), "tcp6   [::]:22->            [::]:65000 ESTABLISHED");
  info.psi.soi_protocol = 17;
  EXPECT_EQ(lineOf(info), "udp6   [::]:22->            [::]:65000");
}

TEST_F(SocketLine, OfIPv6NeverNamesAnOwner) {
  addSocket(table[1], onPort(22));
  darwin::socket_fdinfo info = tcp4("127.0.0.1", 50000, "127.0.0.1", 22, 4);
  info.psi.soi_family = 30;
  EXPECT_EQ(lineOf(info), "tcp6   [::]:50000->            [::]:22    ESTABLISHED");
}

TEST_F(SocketLine, TakesPortsOfSixteenBits) {
  darwin::socket_fdinfo info = onPort(22);
  info.psi.soi_proto.pri_in.insi_lport |= 0x7ABC0000;
  EXPECT_EQ(lineOf(info), "tcp4   *:22");
  info.psi.soi_proto.pri_in.insi_lport = -1;
  EXPECT_EQ(lineOf(info), "tcp4   *:65535");
}

TEST_F(SocketLine, OfAUnixSocketWithoutAPeer) {
  darwin::socket_fdinfo info = local(0x12345678);
  EXPECT_EQ(lineOf(info), "stream 12345678   (LISTENING)  ");
  setPath(info.psi.soi_proto.pri_un.unsi_addr, "/var/run/syslog");
  EXPECT_EQ(lineOf(info), "stream 12345678   (LISTENING)  \t/var/run/syslog");
  info.psi.soi_type = 2;
  EXPECT_EQ(lineOf(info), "dgram  12345678   (LISTENING)  \t/var/run/syslog");
  info.psi.soi_so = 0x1F;
  EXPECT_EQ(lineOf(info), "dgram        1f   (LISTENING)  \t/var/run/syslog");
}

TEST_F(SocketLine, OfAUnixSocketWithAPeer) {
  EXPECT_EQ(lineOf(local(0xfedcba9876543210, 0x42)), "stream fedcba9876543210->      42 ");
  addSocket(table[1], local(0x42));
  darwin::socket_fdinfo info = local(0xfedcba9876543210, 0x42);
  store(g_process_information, nullptr);
  EXPECT_EQ(lineOf(info), "stream fedcba9876543210->      42 ") << "without a table";
}

TEST_F(SocketLine, OfAUnixSocketNamesThePeersOwner) {
  addSocket(table[1], local(0x42));
  addSocket(table[2], local(0x42));
  darwin::socket_fdinfo info = local(0xa0, 0x42);
  EXPECT_EQ(lineOf(info), "stream       a0->      42 sshd (PID: 271)");
  setPath(info.psi.soi_proto.pri_un.unsi_addr, "/own");
  EXPECT_EQ(lineOf(info), "stream       a0->      42 sshd (PID: 271)\t/own");
  setPath(info.psi.soi_proto.pri_un.unsi_caddr, "/peer");
  EXPECT_EQ(lineOf(info), "stream       a0->      42 sshd (PID: 271)\tclient: /peer");
  info.psi.soi_proto.pri_un.unsi_conn_so = 0;
  EXPECT_EQ(lineOf(info), "stream       a0   (LISTENING)  \tclient: /peer");
}

TEST_F(SocketLine, OfAnEventSocketNamesItsFilters) {
  darwin::socket_fdinfo info = ofKind(32, 3, 1);
  info.psi.soi_proto.pri_kern_event = {1, 1, 1};
  EXPECT_EQ(lineOf(info), "system Event:   APPLE:NETWORK:INET");
  info.psi.soi_proto.pri_kern_event = {2, 1, 1};
  EXPECT_EQ(lineOf(info), "system Event:   2:1:1");
  info.psi.soi_proto.pri_kern_event = {1, 5, 0xFFFFFFFF};
  EXPECT_EQ(lineOf(info), "system Event:   APPLE:FIREWALL:");
  info.psi.soi_proto.pri_kern_event = {0xFFFFFFFF, 0x80000000, 7};
  EXPECT_EQ(lineOf(info), "system Event:   -1:-2147483648:7");
}

TEST_F(SocketLine, OfAControlSocketHasItsName) {
  darwin::socket_fdinfo info = ofKind(32, 2, 2);
  EXPECT_EQ(lineOf(info), "system Control:  ");
  std::strcpy(info.psi.soi_proto.pri_kern_ctl.kcsi_name, "com.apple.network.statistics");
  EXPECT_EQ(lineOf(info), "system Control: com.apple.network.statistics ");
}

TEST_F(SocketLine, OfAnyOtherFamilyIsItsKindOnly) {
  EXPECT_EQ(lineOf(ofKind(32, 2, 3)), "system ");
  EXPECT_EQ(lineOf(ofKind(32, 2, 0)), "system ");
  EXPECT_EQ(lineOf(ofKind(27, 3, 6)), "NDRV ");
  EXPECT_EQ(lineOf(ofKind(29, 3, 2)), "KEY ");
  EXPECT_EQ(lineOf(ofKind(17, 3, 0)), "Unknown type 17\n ");
}

TEST_F(SocketLine, EndsTextsThatHaveNoEnd) {
  darwin::socket_fdinfo info = local(0x42);
  setPath(info.psi.soi_proto.pri_un.unsi_caddr, std::string(253, 'p'));
  const std::string before = "stream       42   (LISTENING)  \tclient: ";
  EXPECT_EQ(lineOf(info), std::string(before).append(255 - before.size(), 'p'));

  // The platform's plain address is full at 104 bytes.
  info = local(0x42);
  setPath(info.psi.soi_proto.pri_un.unsi_addr, std::string(104, 'o'));
  EXPECT_EQ(lineOf(info),
            std::string("stream       42   (LISTENING)  \t").append(std::string(104, 'o')));

  info = ofKind(32, 2, 2);
  darwin::kern_ctl_info &control = info.psi.soi_proto.pri_kern_ctl;
  std::memset(&info.psi.soi_proto, 'c', sizeof info.psi.soi_proto);
  EXPECT_EQ(lineOf(info), std::string("system Control: ")
                              .append(std::string(sizeof control.kcsi_name, 'c'))
                              .append(" "));

  setProcess(table[0], 1, std::string(16, 'n'));
  std::memset(table[0].taskAllInfo.pbsd.pbi_name, 'N', sizeof table[0].taskAllInfo.pbsd.pbi_name);
  addSocket(table[0], local(0x99));
  EXPECT_EQ(lineOf(local(0x42, 0x99)),
            std::string("stream       42->      99 ").append(16, 'n').append(" (PID: 1)"));
}

TEST_F(SocketLine, IsCutAtTheBuffersEndBetweenCharacters) {
  darwin::socket_fdinfo info = local(0x42);
  std::string path;
  while (path.size() < 252) path += "\u00e9";  // two bytes each
  setPath(info.psi.soi_proto.pri_un.unsi_addr, path);
  const std::string before = "stream       42   (LISTENING)  \t";
  const std::string line = lineOf(info);
  EXPECT_EQ(line, std::string(before).append(path.substr(0, (255 - before.size()) / 2 * 2)));
}

TEST_F(SocketLine, MakesForeignTextsSafe) {
  darwin::socket_fdinfo info = local(0x42, 0x99);
  setPath(info.psi.soi_proto.pri_un.unsi_addr, "/tmp/\x1b[31m\n\t\x7f\xff\u00e9.sock");
  setProcess(table[0], 7, "ev\x1bil\n");
  addSocket(table[0], local(0x99));
  EXPECT_EQ(lineOf(info), "stream       42->      99 ev?il? (PID: 7)\t/tmp/?[31m????\u00e9.sock");
  info = ofKind(32, 2, 2);
  std::strcpy(info.psi.soi_proto.pri_kern_ctl.kcsi_name, "com\x9b.\rx\x01");
  EXPECT_EQ(lineOf(info), "system Control: com?.?x? ");
  info = local(0x42);
  setPath(info.psi.soi_proto.pri_un.unsi_caddr, "%s%n%d");
  EXPECT_EQ(lineOf(info), "stream       42   (LISTENING)  \tclient: %s%n%d");
}

TEST_F(SocketLine, OfHugeValuesIsOneOfNumbers) {
  darwin::socket_fdinfo info{};
  std::memset(&info, 0xFF, sizeof info);
  EXPECT_EQ(lineOf(info), "Unknown type -1\n ");
  info.psi.soi_family = 2;
  info.psi.soi_protocol = 6;
  EXPECT_EQ(lineOf(info), "tcp4   255.255.255.255:65535-> 255.255.255.255:65535 ?!?");
  info.psi.soi_family = 1;
  const std::string unixLine = lineOf(info);
  EXPECT_EQ(
      unixLine,
      std::string("UNIX ffffffffffffffff->ffffffffffffffff \tclient: ").append(255 - 49, '?'));
}

TEST_F(SocketLine, GoesToTheScreenInFullScreenMode) {
  CursesScreen screen(5, 80);
  const darwin::socket_fdinfo info = onPort(22);
  EXPECT_EQ(outputOf([&] { EXPECT_EQ(print_socket_fdinfo(&info, 5, 0), OK); }), "");
  EXPECT_EQ(CursesScreen::textBeforeCursor(), "tcp4   *:22");
}

TEST_F(SocketLine, LeavesTheTablesAfterwards) {
  addSocket(table[1], local(0x42));
  lineOf(local(0xa0, 0x42));
  store(g_process_information, nullptr);
  retireProcessTable(table);
  EXPECT_EQ(versionOf(table), 0u) << "no reader holds it up";
}

TEST_F(SocketLine, LookUpsDoNotCompareAddresses) {
  addSocket(table[1], tcp4("192.0.2.7", 22, "0.0.0.0", 0, 1));
  const darwin::in_addr any = address("10.1.2.3");
  EXPECT_EQ(lookupIPv4Socket(&any, htons(22)), &table[1]);
  EXPECT_EQ(lookupIPv4Socket(&any, htons(23)), nullptr);
  EXPECT_EQ(lookupUnixSocket(0x42), nullptr);
}

}  // namespace
