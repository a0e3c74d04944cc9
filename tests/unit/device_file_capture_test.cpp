// The keys of a device file by which a captured machine is told as exactly as it was seen:
// addresses, refusals, memory piece by piece, traffic of whole processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/darwin/errors.h"
#include "tests/unit/device_file_text.h"
#include "tests/unit/simulated_device.h"

namespace {

using namespace device_file_test;
using namespace simulated_test;
using host::NetworkSource;
using host::simulator::File;
using host::simulator::Region;
using host::simulator::Socket;
using testing::ElementsAre;

// Two processes whose descriptors are these.
SimulatedMachine machineOf(const std::string &first, const std::string &second,
                           const std::string &top = "") {
  return SimulatedMachine(deviceOf(top + "[[process]]\nname = \"a\"\npid = 1\n" + first +
                                   "\n[[process]]\nname = \"b\"\npid = 2\n" + second + "\n"));
}

darwin::socket_info socketAt(SimulatedMachine &machine, pid_t pid, int number) {
  darwin::socket_fdinfo info{};
  EXPECT_EQ(machine.socketDescriptor(pid, number, info), kAnswered);
  return info.psi;
}

TEST(CapturedSocket, HasTheAddressesThatItIsGiven) {
  SimulatedMachine machine = machineOf(
      "descriptors = [{ type = \"unix\", address = \"0xffffff8012345600\", "
      "peer-address = \"0xffffff8012345700\" }, { type = \"unix\", address = 5 }]",
      "descriptors = [{ type = \"unix\", address = \"0xffffff8012345700\", path = \"/there\" }]");
  const darwin::socket_info connected = socketAt(machine, 1, 0);
  EXPECT_EQ(connected.soi_so, 0xffffff8012345600);
  EXPECT_EQ(connected.soi_proto.pri_un.unsi_conn_so, 0xffffff8012345700);
  EXPECT_EQ(connected.soi_state, 2);
  EXPECT_STREQ(connected.soi_proto.pri_un.unsi_caddr.ua_sun.sun_path, "/there");
  EXPECT_EQ(socketAt(machine, 1, 1).soi_so, 5U);
  // It is not told of the one that names it: all that is known of it is said.
  EXPECT_EQ(socketAt(machine, 2, 0).soi_proto.pri_un.unsi_conn_so, 0U);
  EXPECT_EQ(socketAt(machine, 2, 0).soi_state, 0);
}

TEST(CapturedSocket, HasAPeerThatNothingElseHas) {
  SimulatedMachine machine = machineOf(
      "descriptors = [{ type = \"unix\", peer-address = \"0xf00\" }, "
      "{ type = \"pipe\", address = 16, peer-address = 17 }]",
      "");
  EXPECT_EQ(socketAt(machine, 1, 0).soi_proto.pri_un.unsi_conn_so, 0xF00U);
  darwin::pipe_fdinfo pipe{};
  ASSERT_EQ(machine.pipeDescriptor(1, 1, pipe), kAnswered);
  EXPECT_EQ(pipe.pipeinfo.pipe_handle, 16U);
  EXPECT_EQ(pipe.pipeinfo.pipe_peerhandle, 17U);
}

TEST(CapturedSocket, MayBeOfAKindThatIsNotNamed) {
  const Socket socket = std::get<Socket>(
      descriptorOf("type = \"socket\", family = 40, socket-type = 5, protocol = 9").object);
  EXPECT_EQ(socket.kind, 0);
  EXPECT_EQ(socket.family, 40);
  EXPECT_EQ(socket.type, 5);
  EXPECT_EQ(socket.protocol, 9);
  const Socket plain = std::get<Socket>(descriptorOf("type = \"socket\"").object);
  EXPECT_EQ(plain.family, 0);
  EXPECT_EQ(plain.type, 1);
}

TEST(CapturedDescriptor, RefusesToSayMore) {
  SimulatedMachine machine = machineOf(
      "descriptors = [{ type = \"file\", path = \"/a\", error = \"EPERM\" }, { type = \"file\", "
      "path = \"/b\" }]",
      "");
  std::vector<darwin::proc_fdinfo> list;
  ASSERT_EQ(machine.descriptors(1, 10, list), kAnswered);
  EXPECT_EQ(list.size(), 2U);
  darwin::vnode_fdinfowithpath info{};
  EXPECT_EQ(machine.vnodeDescriptor(1, 0, info), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.vnodeDescriptor(1, 1, info), kAnswered);
}

TEST(CapturedTexts, MayLookLikePatterns) {
  const Process made = processOf(
      "path = \"/{brace}pid}/{pid}/{brace}brace}\"\n"
      "descriptors = [{ type = \"file\", path = \"{brace}name}{brace}index}\" }]");
  EXPECT_EQ(made.path, "/{pid}/7/{brace}");
  EXPECT_EQ(std::get<File>(made.descriptors.at(0).object).path, "{name}{index}");
  EXPECT_EQ(deviceOf("[[process]]\nname = \"{brace}pid}\"\n").processes.at(0).name, "{pid}");
}

std::vector<NetworkSource> sourcesOf(SimulatedMachine &machine) {
  std::vector<NetworkSource> sources;
  EXPECT_EQ(machine.networkSources(sources), kAnswered);
  return sources;
}

TEST(CapturedTraffic, IsOfAProcess) {
  const std::string tcp = "descriptors = [{ type = \"tcp\", received = 3 }]\n";
  const std::string traffic = "network-received = { start = \"1K\", growth = 10 }\n";
  const std::string stepped =
      "clock = { mode = \"stepped\", start = 2024-03-05T14:07:09Z, zone = \"UTC\" }\n";
  SimulatedMachine machine = machineOf(tcp + traffic, "network-sent = 0", stepped);
  machine.advance(2s);
  const std::vector<NetworkSource> sources = sourcesOf(machine);
  ASSERT_EQ(sources.size(), 3U);
  EXPECT_EQ(sources[0].receivedBytes, 3U);
  EXPECT_EQ(sources[1].pid, 1);
  EXPECT_EQ(sources[1].receivedBytes, 1044U);
  EXPECT_EQ(sources[1].sentBytes, 0U);
  EXPECT_EQ(sources[1].provider, host::NetworkProvider::tcp);
  EXPECT_EQ(sources[2].pid, 2);
  EXPECT_NE(sources[1].key, sources[2].key);
  EXPECT_NE(sources[1].key, sources[0].key);

  SimulatedMachine whole = machineOf(tcp + traffic, tcp, "counted-sockets = false\n");
  EXPECT_EQ(sourcesOf(whole).size(), 1U);
}

TEST(CapturedTraffic, IsNotInheritedAndEndsWithItsProcess) {
  SimulatedMachine machine = machineOf("network-sent = 5", "",
                                       "event = [{ do = \"fork\", process = 1, child = 9 }, "
                                       "{ do = \"exit\", process = 1, zombie = true, at = 5 }]\n"
                                       "clock = { mode = \"stepped\", start = "
                                       "2024-03-05T14:07:09Z, zone = \"UTC\" }\n");
  machine.advance(1s);
  const std::vector<NetworkSource> sources = sourcesOf(machine);
  ASSERT_EQ(sources.size(), 1U);
  EXPECT_EQ(sources[0].pid, 1);
  machine.advance(10s);
  EXPECT_TRUE(sourcesOf(machine).empty());
}

TEST(CapturedMemory, IsPiecesInZeroes) {
  Device given = deviceOf(
      "kernel = { page-size = 4096 }\n"
      "[[process]]\nname = \"a\"\npid = 1\nregions = [{ address = 0x4000, size = \"16K\", pieces = "
      "[{ bytes = \"0102\" }, { at = 4095, bytes = \"aabb\" }, { at = \"12K\", bytes = \"\" }] "
      "}]\n");
  SimulatedMachine machine(given);
  std::vector<uint8_t> memory(0x4000, 9);
  ASSERT_EQ(machine.readMemory(1, 0x4000, memory.size(), memory.data()), kAnswered);
  std::vector<uint8_t> expected(0x4000);
  expected[0] = 1;
  expected[1] = 2;
  expected[4095] = 0xAA;
  expected[4096] = 0xBB;
  EXPECT_EQ(memory, expected);
  uint8_t part[2] = {9, 9};
  ASSERT_EQ(machine.readMemory(1, 0x4001, 2, part), kAnswered);
  EXPECT_THAT(part, ElementsAre(2, 0));
  std::vector<int> pages(4);
  ASSERT_EQ(machine.pages(1, 0x4000, 4, pages.data()), kAnswered);
  EXPECT_THAT(pages, ElementsAre(1, 1, 0, 0));
}

TEST(CapturedClock, BeginsWithinASecond) {
  SimulatedMachine machine(
      deviceOf("[clock]\nmode = \"stepped\"\nstart = 2024-03-05T14:07:09.75Z\nzone = \"UTC\"\nup = "
               "100\n[[process]]\nname = \"a\"\npid = 1\nage = 1.5\n"));
  darwin::timeval now{};
  machine.wallClock(now);
  EXPECT_EQ(now.tv_sec, 1709647629);
  EXPECT_EQ(now.tv_usec, 750'000);
  darwin::timeval boot{};
  ASSERT_EQ(machine.bootTime(boot), kAnswered);
  EXPECT_EQ(boot.tv_sec, 1709647529);
  EXPECT_EQ(boot.tv_usec, 750'000);
  darwin::proc_taskallinfo info{};
  ASSERT_EQ(machine.taskAllInfo(1, info), kAnswered);
  EXPECT_EQ(info.pbsd.pbi_start_tvsec, 1709647628U);
  EXPECT_EQ(info.pbsd.pbi_start_tvusec, 250'000U);
}

TEST(CapturedClock, KeepsMicrosecondsOfLongTimes) {
  SimulatedMachine machine(
      deviceOf("[clock]\nmode = \"stepped\"\nstart = 2024-03-05T14:07:09.000001Z\nzone = "
               "\"UTC\"\nup = 34560000.000003\n[[process]]\nname = \"a\"\npid = 1\nage = "
               "25920000.000007\n"));
  darwin::timeval boot{};
  ASSERT_EQ(machine.bootTime(boot), kAnswered);
  EXPECT_EQ(boot.tv_sec, 1675087628);
  EXPECT_EQ(boot.tv_usec, 999'998);
  darwin::proc_taskallinfo info{};
  ASSERT_EQ(machine.taskAllInfo(1, info), kAnswered);
  EXPECT_EQ(info.pbsd.pbi_start_tvsec, 1683727628U);
  EXPECT_EQ(info.pbsd.pbi_start_tvusec, 999'994U);
}

TEST(CapturedThreads, HaveIDsFrom257On) {
  SimulatedMachine machine = machineOf("threads = 2", "threads = [{ id = 259 }, {}]");
  std::vector<uint64_t> ids;
  ASSERT_EQ(machine.threadIDs(1, ids), kAnswered);
  EXPECT_THAT(ids, ElementsAre(257, 258));
  ASSERT_EQ(machine.threadIDs(2, ids), kAnswered);
  EXPECT_THAT(ids, ElementsAre(259, 260));
}

}  // namespace
