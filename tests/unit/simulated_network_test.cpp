// What a simulated device says about its network: interfaces, Wi-Fi and the traffic of sockets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "darwin/socket.h"
#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/simulator/device_file.h"
#include "simulated_device.h"

namespace simulated_test {
namespace {

using host::NetworkSource;
using host::WirelessNetwork;
using host::simulator::CloseDescriptor;
using host::simulator::ExitProcess;
using host::simulator::ForkProcess;
using host::simulator::Interface;
using host::simulator::NetworkStack;
using host::simulator::OpenDescriptor;
using host::simulator::Socket;
using host::simulator::StopProcess;
using host::simulator::TrafficCounters;
using host::simulator::WiFi;
using testing::ElementsAre;

TEST(SimulatedInterfacesTest, AreNumberedAndCount) {
  Device given = device();
  Interface loopback;
  loopback.name = "lo0";
  loopback.type = 24;
  loopback.flags = 0x8049;
  loopback.mtu = 16384;
  Interface wifi;
  wifi.name = "en0";
  wifi.speed = 866'700'000;
  wifi.receivedPackets = Figure::growing(10, 2);
  wifi.receivedBytes = Figure::growing(1000, 100);
  wifi.sentPackets = Figure::growing(5, 1);
  wifi.sentBytes = Figure::growing(700, 50);
  given.interfaces = {loopback, wifi};
  SimulatedMachine machine(given);
  machine.advance(3s);

  std::vector<host::NetworkInterface> list(7);
  ASSERT_EQ(machine.interfaces(list), kAnswered);
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].name, "lo0");
  EXPECT_EQ(list[0].index, 1);
  EXPECT_EQ(list[0].type, 24);
  EXPECT_EQ(list[0].flags, 0x8049U);
  EXPECT_EQ(list[0].mtu, 16384U);
  EXPECT_EQ(list[1].name, "en0");
  EXPECT_EQ(list[1].index, 2);
  EXPECT_EQ(list[1].type, 6);
  EXPECT_EQ(list[1].speed, 866'700'000U);
  EXPECT_EQ(list[1].receivedPackets, 16U);
  EXPECT_EQ(list[1].receivedBytes, 1300U);
  EXPECT_EQ(list[1].sentPackets, 8U);
  EXPECT_EQ(list[1].sentBytes, 850U);
}

TEST(SimulatedWirelessTest, AnswersForItsInterfaceAlone) {
  Device given = device();
  given.wifi = WiFi{};
  given.wifi->interface = "en1";
  given.wifi->name = "Home";
  given.wifi->channel = 36;
  given.wifi->channelFlags = 0x414;
  given.wifi->signal = -52;
  SimulatedMachine machine(given);
  WirelessNetwork network;
  EXPECT_EQ(machine.wirelessNetwork("en0", network), darwin::DARWIN_ENXIO);
  EXPECT_EQ(machine.wirelessNetwork("", network), darwin::DARWIN_ENXIO);
  ASSERT_EQ(machine.wirelessNetwork("en1", network), kAnswered);
  EXPECT_TRUE(network.connected);
  EXPECT_EQ(network.name, "Home");
  EXPECT_EQ(network.channel, 36U);
  EXPECT_EQ(network.channelFlags, 0x414U);
  EXPECT_EQ(network.signal, -52);
  EXPECT_THAT(network.radios, ElementsAre(-52));
}

TEST(SimulatedWirelessTest, HasSeveralRadiosOrNoNetwork) {
  Device given = device();
  given.wifi = WiFi{};
  given.wifi->name = "Home";
  given.wifi->perRadio = {-50, -61};
  SimulatedMachine machine(given);
  WirelessNetwork network;
  ASSERT_EQ(machine.wirelessNetwork("en0", network), kAnswered);
  EXPECT_THAT(network.radios, ElementsAre(-50, -61));

  given.wifi->name.reset();
  SimulatedMachine lonely(given);
  ASSERT_EQ(lonely.wirelessNetwork("en0", network), kAnswered);
  EXPECT_FALSE(network.connected);
  EXPECT_EQ(network.name, "");

  SimulatedMachine without{device()};
  EXPECT_EQ(without.wirelessNetwork("en0", network), darwin::DARWIN_ENXIO);
}

TrafficCounters traffic(uint64_t perSecond) {
  TrafficCounters made;
  made.receivedPackets = Figure::growing(1, static_cast<int64_t>(perSecond));
  made.receivedBytes = Figure::growing(100, static_cast<int64_t>(perSecond * 1000));
  made.sentPackets = Figure::growing(2, static_cast<int64_t>(perSecond));
  made.sentBytes = Figure::growing(200, static_cast<int64_t>(perSecond * 500));
  return made;
}

Socket tcpSocket(uint64_t perSecond = 1) {
  Socket made;
  made.kind = darwin::SOCKINFO_TCP;
  made.family = darwin::DARWIN_AF_INET;
  made.protocol = 6;
  made.local = {{10, 0, 0, 5}, 50000};
  made.remote = {{192, 0, 2, 9}, 443};
  made.tcpState = darwin::TSI_S_ESTABLISHED;
  made.traffic = traffic(perSecond);
  return made;
}

Socket udpSocket() {
  Socket made;
  made.kind = darwin::SOCKINFO_IN;
  made.family = darwin::DARWIN_AF_INET6;
  made.type = 2;
  made.protocol = 17;
  made.isIPv6 = true;
  made.isIPv4 = false;
  made.local = {{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 5353};
  made.traffic = traffic(1);
  return made;
}

Process holding(int32_t pid, std::vector<Descriptor> descriptors) {
  Process made = process(pid);
  made.descriptors = std::move(descriptors);
  return made;
}

std::vector<NetworkSource> sourcesOf(SimulatedMachine &machine) {
  std::vector<NetworkSource> sources;
  EXPECT_EQ(machine.networkSources(sources), kAnswered);
  return sources;
}

std::vector<uint64_t> keysOf(SimulatedMachine &machine) {
  std::vector<uint64_t> keys;
  for (const NetworkSource &source : sourcesOf(machine)) keys.push_back(source.key);
  return keys;
}

TEST(SimulatedSourcesTest, TellOwnerEndsStateAndTraffic) {
  Process browser = process(80, "com.apple.WebKit.Networking");
  browser.descriptors = {descriptor(3, tcpSocket(2)), descriptor(4, udpSocket())};
  SimulatedMachine machine(device({process(1), browser}));
  EXPECT_EQ(machine.networkStatistics(), kAnswered);
  machine.advance(10s);

  const std::vector<NetworkSource> sources = sourcesOf(machine);
  ASSERT_EQ(sources.size(), 2U);
  const NetworkSource &tcp = sources[0];
  EXPECT_EQ(tcp.provider, host::NetworkProvider::tcp);
  EXPECT_EQ(tcp.pid, 80);
  EXPECT_EQ(tcp.process, "com.apple.WebKi");
  EXPECT_EQ(tcp.local.family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(tcp.local.address, (std::array<uint8_t, 16>{10, 0, 0, 5}));
  EXPECT_EQ(tcp.local.port, 50000);
  EXPECT_EQ(tcp.remote.family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(tcp.remote.address, (std::array<uint8_t, 16>{192, 0, 2, 9}));
  EXPECT_EQ(tcp.remote.port, 443);
  EXPECT_EQ(tcp.state, darwin::TSI_S_ESTABLISHED);
  EXPECT_EQ(tcp.receivedPackets, 21U);
  EXPECT_EQ(tcp.receivedBytes, 20100U);
  EXPECT_EQ(tcp.sentPackets, 22U);
  EXPECT_EQ(tcp.sentBytes, 10200U);

  const NetworkSource &udp = sources[1];
  EXPECT_EQ(udp.provider, host::NetworkProvider::udp);
  EXPECT_EQ(udp.local.family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(udp.local.address[0], 0xfe);
  EXPECT_EQ(udp.local.address[15], 1);
  EXPECT_EQ(udp.local.port, 5353);
  EXPECT_EQ(udp.remote.family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(udp.remote.port, 0);
  EXPECT_NE(udp.key, tcp.key);
}

TEST(SimulatedSourcesTest, WhatIsNotCountedIsNotListed) {
  Socket quiet = tcpSocket();
  quiet.traffic.reset();
  Process ended = holding(82, {descriptor(3, tcpSocket())});
  ended.status = darwin::SZOMB;
  SimulatedMachine machine(device({holding(81, {descriptor(3, quiet)}), ended}));
  EXPECT_TRUE(sourcesOf(machine).empty());
}

TEST(SimulatedSourcesTest, AreCountedByTheStackThatTheyBelongTo) {
  Socket userlandTCP = tcpSocket();
  userlandTCP.stack = NetworkStack::userland;
  Socket userlandUDP = udpSocket();
  userlandUDP.stack = NetworkStack::userland;
  Socket quic = udpSocket();
  quic.stack = NetworkStack::quic;
  SimulatedMachine machine(device({holding(
      81, {descriptor(3, userlandTCP), descriptor(4, userlandUDP), descriptor(5, quic)})}));
  const std::vector<NetworkSource> sources = sourcesOf(machine);
  ASSERT_EQ(sources.size(), 3U);
  EXPECT_EQ(sources[0].provider, host::NetworkProvider::userlandTCP);
  EXPECT_EQ(sources[1].provider, host::NetworkProvider::userlandUDP);
  EXPECT_EQ(sources[2].provider, host::NetworkProvider::quic);
}

TEST(SimulatedSourcesTest, BeginWithTheReferenceOfTheDevice) {
  Device given = device();
  given.kernel.firstSource = 4294967400;
  EXPECT_EQ(SimulatedMachine(given).firstNetworkReference(), 4294967400U);
  EXPECT_EQ(SimulatedMachine(device()).firstNetworkReference(), 1U);
}

TEST(SimulatedSourcesTest, ADeviceMayTellOfNone) {
  Device given = device({holding(81, {descriptor(3, tcpSocket())})});
  given.tellsInBackground = false;
  SimulatedMachine machine(given);
  EXPECT_EQ(machine.networkStatistics(), kAnswered);
  EXPECT_TRUE(sourcesOf(machine).empty());
}

TEST(SimulatedSourcesTest, EveryCallerIsToldOfAll) {
  Device given = device({holding(81, {descriptor(3, tcpSocket())})});
  given.caller = 501;
  SimulatedMachine machine(given);
  EXPECT_EQ(machine.networkStatistics(), kAnswered);
  EXPECT_EQ(sourcesOf(machine).size(), 1U);
}

TEST(SimulatedSourcesTest, KeysStayAndAreNotUsedAgain) {
  SimulatedMachine machine(
      device({holding(81, {descriptor(3, tcpSocket()), descriptor(4, tcpSocket())})}));
  const std::vector<uint64_t> first = keysOf(machine);
  machine.advance(5s);
  EXPECT_EQ(keysOf(machine), first);
  std::set<uint64_t> seen(first.begin(), first.end());
  ASSERT_EQ(seen.size(), 2U);
  EXPECT_EQ(seen.count(0), 0U);

  // The same number and the same handle, each time another socket.
  Descriptor again = descriptor(3, tcpSocket());
  again.handle = 0x5000;
  for (int i = 0; i < 3; ++i) {
    machine.happen(CloseDescriptor{81, 3});
    EXPECT_EQ(keysOf(machine).size(), 1U);
    machine.happen(OpenDescriptor{81, again});
    const std::vector<uint64_t> keys = keysOf(machine);
    ASSERT_EQ(keys.size(), 2U);
    EXPECT_TRUE(seen.insert(keys[0]).second) << i;
    EXPECT_EQ(keys[1], first[1]);
  }
}

TEST(SimulatedSourcesTest, AForkSharesItsParentsSockets) {
  SimulatedMachine machine(device({process(1), holding(81, {descriptor(3, tcpSocket())})}));
  const std::vector<uint64_t> keys = keysOf(machine);
  machine.happen(ForkProcess{81, 90});
  EXPECT_EQ(keysOf(machine), keys);
  EXPECT_EQ(sourcesOf(machine)[0].pid, 81);
  machine.advance(10s);
  machine.happen(ExitProcess{81, 0, false});
  ASSERT_EQ(keysOf(machine), keys);
  EXPECT_EQ(sourcesOf(machine)[0].pid, 90);
  EXPECT_EQ(sourcesOf(machine)[0].receivedPackets, 11U);
  machine.happen(ExitProcess{90, 0, false});
  EXPECT_TRUE(sourcesOf(machine).empty());
}

TEST(SimulatedSourcesTest, FiguresCountByTheProcesssOwnClock) {
  SimulatedMachine machine(device({holding(81, {descriptor(3, tcpSocket())})}));
  machine.advance(2s);
  machine.happen(StopProcess{81});
  machine.advance(30s);
  EXPECT_EQ(sourcesOf(machine)[0].receivedPackets, 3U);
  machine.happen(OpenDescriptor{81, descriptor(4, tcpSocket())});
  EXPECT_EQ(sourcesOf(machine)[1].receivedPackets, 1U);
}

TEST(SimulatedSourcesTest, AnEndWithoutAnAddressIsOfTheOthersFamily) {
  Socket listening = tcpSocket();
  listening.isIPv6 = true;
  listening.local = {{}, 80};
  listening.remote = {};
  listening.tcpState = darwin::TSI_S_LISTEN;
  Socket halfway = listening;
  halfway.remote = {{192, 0, 2, 9}, 443};
  SimulatedMachine machine(
      device({holding(81, {descriptor(3, listening), descriptor(4, halfway)})}));
  const std::vector<NetworkSource> sources = sourcesOf(machine);
  ASSERT_EQ(sources.size(), 2U);
  EXPECT_EQ(sources[0].local.family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(sources[0].local.port, 80);
  EXPECT_EQ(sources[0].state, darwin::TSI_S_LISTEN);
  EXPECT_EQ(sources[1].local.family, darwin::DARWIN_AF_INET);
}

// One more, and the program ends on it.
TEST(DevicesThatComeWithTheProgram, HaveNoMoreSourcesThanTheProgramHasRoomFor) {
  bool isCrowdThere = false;
  for (const auto &file : std::filesystem::directory_iterator(SONDEX_DEVICES_DIR)) {
    auto read = host::simulator::readDeviceFile(file.path().string());
    ASSERT_TRUE(std::holds_alternative<Device>(read)) << file.path();
    SimulatedMachine machine(std::move(std::get<Device>(read)));
    std::vector<NetworkSource> sources;
    ASSERT_EQ(machine.networkSources(sources), kAnswered);
    EXPECT_LT(sources.size(), 1024u) << file.path();
    if (file.path().stem() == "crowd") {
      isCrowdThere = true;
      EXPECT_EQ(sources.size(), 999u);
    }
  }
  EXPECT_TRUE(isCrowdThere);
}

}  // namespace
}  // namespace simulated_test
