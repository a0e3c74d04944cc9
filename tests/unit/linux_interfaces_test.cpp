#include "host/linux/interfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "darwin/interfaces.h"
#include "tests/unit/netlink_bytes.h"

namespace {

using namespace host;
using namespace host::linux_machine;
using netlink_test::Bytes;

TEST(InterfaceType, OfHardware) {
  const struct {
    uint16_t hardware;
    uint8_t type;
  } kRows[] = {{1, 6},    {772, 24}, {512, 23}, {768, 23},    {769, 23},   {776, 23}, {778, 23},
               {823, 23}, {256, 23}, {801, 6},  {0xFFFE, 23}, {0xFFFF, 6}, {280, 6},  {0, 6}};
  for (const auto &row : kRows) EXPECT_EQ(interfaceType(row.hardware), row.type) << row.hardware;
}

TEST(InterfaceFlags, HaveDarwinsNumbers) {
  EXPECT_EQ(interfaceFlags(0), 0u);
  EXPECT_EQ(interfaceFlags(IFF_UP | IFF_BROADCAST | IFF_RUNNING), 0x43u);
  EXPECT_EQ(interfaceFlags(IFF_MULTICAST), 0x8000u);
  EXPECT_EQ(interfaceFlags(IFF_LOOPBACK | IFF_POINTOPOINT | IFF_NOARP | IFF_PROMISC | IFF_ALLMULTI),
            0x398u);
  // Darwin has other meanings for these.
  EXPECT_EQ(interfaceFlags(IFF_MASTER | IFF_SLAVE | IFF_LOWER_UP | IFF_DORMANT | IFF_DYNAMIC), 0u);
}

TEST(InterfaceSpeed, InBitsPerSecond) {
  EXPECT_EQ(interfaceSpeed("1000\n"), 1000000000u);
  EXPECT_EQ(interfaceSpeed("400000\n"), 400000000000u);
  EXPECT_EQ(interfaceSpeed("-1\n"), 0u);
  EXPECT_EQ(interfaceSpeed("\n"), 0u);
  EXPECT_EQ(interfaceSpeed("fast\n"), 0u);
}

ifinfomsg link() {
  ifinfomsg made{};
  made.ifi_index = 7;
  made.ifi_type = ARPHRD_LOOPBACK;
  made.ifi_flags = IFF_UP | IFF_LOOPBACK;
  return made;
}

TEST(InterfaceMessage, IsTakenApart) {
  rtnl_link_stats64 traffic{};
  traffic.rx_packets = 1;
  traffic.tx_packets = 2;
  traffic.rx_bytes = 3;
  traffic.tx_bytes = 0x100000004ULL;
  traffic.rx_errors = 5;
  traffic.tx_errors = 6;
  traffic.rx_dropped = 7;
  traffic.multicast = 8;
  traffic.collisions = 9;
  Bytes payload;
  payload.add(link())
      .attribute(IFLA_IFNAME, std::string("lo\0", 3))
      .number(IFLA_MTU, uint32_t{65536})
      .number(IFLA_STATS64, traffic);
  NetworkInterface interface;
  ASSERT_TRUE(parseInterface(payload.span(), interface));
  EXPECT_EQ(interface.name, "lo");
  EXPECT_EQ(interface.index, 7);
  EXPECT_EQ(interface.type, darwin::IFT_LOOP);
  EXPECT_EQ(interface.flags, 9u);
  EXPECT_EQ(interface.mtu, 65536u);
  EXPECT_EQ(interface.receivedPackets, 1u);
  EXPECT_EQ(interface.sentPackets, 2u);
  EXPECT_EQ(interface.receivedBytes, 3u);
  EXPECT_EQ(interface.sentBytes, 0x100000004ULL);
  EXPECT_EQ(interface.receivedErrors, 5u);
  EXPECT_EQ(interface.sentErrors, 6u);
  EXPECT_EQ(interface.droppedOnInput, 7u);
  EXPECT_EQ(interface.receivedMulticasts, 8u);
  EXPECT_EQ(interface.collisions, 9u);
}

TEST(InterfaceMessage, ThatIsNone) {
  NetworkInterface interface;
  interface.name = "before";
  EXPECT_FALSE(parseInterface({}, interface));
  Bytes nameless;
  nameless.add(link());
  EXPECT_FALSE(parseInterface(nameless.span(), interface));
  EXPECT_FALSE(parseInterface({nameless.span().bytes, nameless.size() - 1}, interface));
  EXPECT_EQ(interface.name, "before");
  // Attributes cut short.
  Bytes broken;
  broken.add(link())
      .attribute(IFLA_IFNAME, "x")
      .attribute(IFLA_MTU, "a")
      .attribute(IFLA_STATS64, std::string(12, '\1'))
      .add(nlattr{400, IFLA_IFNAME});
  ASSERT_TRUE(parseInterface(broken.span(), interface));
  EXPECT_EQ(interface.name, "x");
  EXPECT_EQ(interface.mtu, 0u);
  EXPECT_EQ(interface.receivedPackets, 0x0101010101010101ULL);
  EXPECT_EQ(interface.sentPackets, 0x01010101ULL);
}

TEST(LiveInterfaces, AreThoseOfProc) {
  std::set<std::string> names;
  std::ifstream table("/proc/net/dev");
  for (std::string line; std::getline(table, line);) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const size_t start = line.find_first_not_of(' ');
    names.insert(line.substr(start, colon - start));
  }
  Interfaces interfaces;
  std::vector<NetworkInterface> list;
  ASSERT_EQ(interfaces.list(list), kAnswered);
  std::set<std::string> listed;
  for (const NetworkInterface &interface : list) {
    listed.insert(interface.name);
    if (interface.name != "lo") continue;
    EXPECT_EQ(interface.type, darwin::IFT_LOOP);
    EXPECT_EQ(interface.receivedBytes, interface.sentBytes);
    EXPECT_GT(interface.mtu, 0u);
    EXPECT_GT(interface.index, 0u);
  }
  EXPECT_EQ(listed, names);
  ASSERT_EQ(interfaces.list(list), kAnswered);
  EXPECT_EQ(list.size(), names.size());
}

}  // namespace
