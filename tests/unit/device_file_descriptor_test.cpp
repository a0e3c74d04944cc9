// What the descriptors of a device file say, by their types, and how they find their peers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/device_file_text.h"

namespace {

using namespace device_file_test;
using namespace host::simulator;
using testing::ElementsAre;
using testing::IsEmpty;

Socket socketOf(const std::string &keys) {
  return std::get<Socket>(descriptorOf(keys).object);
}

TEST(DeviceFileDescriptor, Common) {
  const Descriptor plain = descriptorOf("type = \"nexus\"");
  EXPECT_EQ(plain.number, 0);
  EXPECT_EQ(plain.openFlags, 3u);
  EXPECT_EQ(plain.status, 0u);
  EXPECT_EQ(plain.guard, 0u);
  EXPECT_EQ(plain.handle, 0u);
  const Descriptor full = descriptorOf(
      "type = \"nexus\", number = 9, mode = [\"read\", \"nonblocking\", \"append\"], "
      "status = [\"shared\", \"close-on-exec\", \"close-on-fork\"], offset = \"1K\"");
  EXPECT_EQ(full.number, 9);
  EXPECT_EQ(full.openFlags, 0xDu);
  EXPECT_EQ(full.status, 0xBu);
  EXPECT_EQ(full.offset.start, 1024u);
  EXPECT_EQ(descriptorOf("type = \"nexus\", mode = [\"write\"]").openFlags, 2u);
  EXPECT_EQ(descriptorOf("type = \"nexus\", mode = 0x1000001").openFlags, 0x1000001u);
  const Descriptor guarded =
      descriptorOf("type = \"nexus\", guard = [\"close\", \"dup\", \"socket\", \"fileport\"]");
  EXPECT_EQ(guarded.guard, 0xFu);
  EXPECT_EQ(guarded.status, 0x4u);
}

TEST(DeviceFileDescriptor, NumbersAreTheLowestThatAreFree) {
  const Process process = processOf(
      "descriptors = [{ type = \"nexus\", copies = 2 }, { type = \"nexus\", number = 1 },\n"
      "{ type = \"nexus\", number = 3, copies = 2 }, { type = \"nexus\", copies = 2 }]");
  std::vector<int32_t> numbers;
  for (const Descriptor &descriptor : process.descriptors) numbers.push_back(descriptor.number);
  EXPECT_THAT(numbers, ElementsAre(0, 2, 1, 3, 4, 5, 6));
}

TEST(DeviceFileDescriptor, File) {
  const File plain = std::get<File>(descriptorOf("type = \"file\", path = \"/etc\"").object);
  EXPECT_EQ(plain.path, "/etc");
  EXPECT_EQ(plain.type, 1);
  EXPECT_EQ(plain.mode, 0100644);
  EXPECT_EQ(plain.user, 0u);
  const File file = std::get<File>(
      descriptorOf("type = \"file\", path = \"/dev/x\", permissions = 0o600, owner = 1, group = 2, "
                   "size = \"2K\", inode = 3, device = 4, device-itself = 5")
          .object);
  EXPECT_EQ(file.mode, 0100600);
  EXPECT_EQ(file.user, 1u);
  EXPECT_EQ(file.group, 2u);
  EXPECT_EQ(file.size.start, 2048u);
  EXPECT_EQ(file.inode, 3u);
  EXPECT_EQ(file.device, 4u);
  EXPECT_EQ(file.deviceItself, 5u);
  const struct {
    const char *word;
    int32_t type;
    uint16_t mode;
  } rows[] = {{"regular", 1, 0100644},   {"directory", 2, 0040644}, {"block", 3, 0060644},
              {"character", 4, 0020644}, {"link", 5, 0120644},      {"socket", 6, 0140644},
              {"fifo", 7, 0010644}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.word);
    const File kind = std::get<File>(
        descriptorOf("type = \"file\", path = \"/\", kind = \"" + std::string(row.word) + "\"")
            .object);
    EXPECT_EQ(kind.type, row.type);
    EXPECT_EQ(kind.mode, row.mode);
  }
}

TEST(DeviceFileDescriptor, Tcp) {
  const Socket socket = socketOf(
      "type = \"tcp\", local = \"10.0.0.5:443\", remote = \"192.0.2.1:80\", received = \"1K\", "
      "sent = 2, received-packets = 3, sent-packets = 4");
  EXPECT_EQ(socket.kind, 2);
  EXPECT_EQ(socket.family, 2);
  EXPECT_EQ(socket.type, 1);
  EXPECT_EQ(socket.protocol, 6);
  EXPECT_TRUE(socket.isIPv4);
  EXPECT_FALSE(socket.isIPv6);
  EXPECT_THAT(socket.local.address, ElementsAre(10, 0, 0, 5));
  EXPECT_EQ(socket.local.port, 443);
  EXPECT_THAT(socket.remote.address, ElementsAre(192, 0, 2, 1));
  EXPECT_EQ(socket.remote.port, 80);
  EXPECT_EQ(socket.tcpState, 4);
  EXPECT_EQ(socket.state, 0x2);
  ASSERT_TRUE(socket.traffic.has_value());
  EXPECT_EQ(socket.traffic->receivedBytes.start, 1024u);
  EXPECT_EQ(socket.traffic->sentBytes.start, 2u);
  EXPECT_EQ(socket.traffic->receivedPackets.start, 3u);
  EXPECT_EQ(socket.traffic->sentPackets.start, 4u);
  EXPECT_FALSE(socketOf("type = \"tcp\", counted = false").traffic.has_value());
}

TEST(DeviceFileDescriptor, Stacks) {
  using host::simulator::NetworkStack;
  EXPECT_EQ(socketOf("type = \"tcp\"").stack, NetworkStack::kernel);
  EXPECT_EQ(socketOf("type = \"tcp\", stack = \"userland\"").stack, NetworkStack::userland);
  EXPECT_EQ(socketOf("type = \"udp\", stack = \"kernel\"").stack, NetworkStack::kernel);
  EXPECT_EQ(socketOf("type = \"udp\", stack = \"quic\"").stack, NetworkStack::quic);
}

TEST(DeviceFileDescriptor, TcpStates) {
  const std::pair<const char *, int32_t> words[] = {
      {"closed", 0},      {"listen", 1},     {"syn-sent", 2},   {"syn-received", 3},
      {"established", 4}, {"close-wait", 5}, {"fin-wait-1", 6}, {"closing", 7},
      {"last-ack", 8},    {"fin-wait-2", 9}, {"time-wait", 10}};
  for (const auto &[word, number] : words) {
    EXPECT_EQ(socketOf("type = \"tcp\", state = \"" + std::string(word) + "\"").tcpState, number)
        << word;
  }
  EXPECT_EQ(socketOf("type = \"tcp\", local = \"*:80\"").tcpState, 1);
  EXPECT_EQ(socketOf("type = \"tcp\", local = \"*:80\"").state, 0);
  EXPECT_EQ(socketOf("type = \"tcp\", state = \"syn-sent\"").state, 0x4);
  EXPECT_EQ(socketOf("type = \"tcp\", state = \"time-wait\"").state, 0x2030);
}

TEST(DeviceFileDescriptor, AddressesAndFamilies) {
  const Socket any = socketOf("type = \"udp\", local = \"*:53\"");
  EXPECT_THAT(any.local.address, IsEmpty());
  EXPECT_EQ(any.local.port, 53);
  EXPECT_EQ(any.family, 2);
  const Socket six = socketOf("type = \"udp\", local = \"[fe80::1]:*\", remote = \"*\"");
  ASSERT_EQ(six.local.address.size(), 16u);
  EXPECT_EQ(six.local.address[0], 0xfe);
  EXPECT_EQ(six.local.address[15], 1);
  EXPECT_EQ(six.local.port, 0);
  EXPECT_EQ(six.family, 30);
  EXPECT_TRUE(six.isIPv6);
  EXPECT_FALSE(six.isIPv4);
  const Socket both = socketOf("type = \"tcp\", family = \"both\", local = \"10.0.0.1:1\"");
  EXPECT_EQ(both.family, 30);
  EXPECT_TRUE(both.isIPv4);
  EXPECT_TRUE(both.isIPv6);
  const Socket inet6 = socketOf("type = \"tcp\", family = \"inet6\", local = \"*:1\"");
  EXPECT_EQ(inet6.family, 30);
  EXPECT_FALSE(inet6.isIPv4);
  EXPECT_EQ(socketOf("type = \"tcp\", family = \"inet\"").family, 2);
  // An address alone.
  EXPECT_THAT(socketOf("type = \"raw\", local = \"10.1.2.3\"").local.address,
              ElementsAre(10, 1, 2, 3));
  EXPECT_EQ(socketOf("type = \"raw\", local = \"fe80::1\"").local.address.size(), 16u);
}

TEST(DeviceFileDescriptor, Udp) {
  const Socket socket = socketOf("type = \"udp\", remote = \"10.0.0.1:53\"");
  EXPECT_EQ(socket.kind, 1);
  EXPECT_EQ(socket.type, 2);
  EXPECT_EQ(socket.protocol, 17);
  EXPECT_EQ(socket.state, 0x2);
  EXPECT_TRUE(socket.traffic.has_value());
  EXPECT_EQ(socketOf("type = \"udp\"").state, 0);
}

TEST(DeviceFileDescriptor, Raw) {
  const Socket socket = socketOf("type = \"raw\"");
  EXPECT_EQ(socket.kind, 1);
  EXPECT_EQ(socket.family, 2);
  EXPECT_EQ(socket.type, 3);
  EXPECT_EQ(socket.protocol, 1);
  EXPECT_FALSE(socket.traffic.has_value());
  const Socket six = socketOf("type = \"raw\", family = \"inet6\", protocol = 58");
  EXPECT_EQ(six.family, 30);
  EXPECT_EQ(six.protocol, 58);
}

TEST(DeviceFileDescriptor, Unix) {
  const Socket socket =
      socketOf("type = \"unix\", path = \"/a\", peer-path = \"/b\", kind = \"datagram\"");
  EXPECT_EQ(socket.kind, 3);
  EXPECT_EQ(socket.family, 1);
  EXPECT_EQ(socket.type, 2);
  EXPECT_EQ(socket.protocol, 0);
  EXPECT_EQ(socket.path, "/a");
  EXPECT_EQ(socket.peerPath, "/b");
  EXPECT_EQ(socket.state, 0x2);
  EXPECT_EQ(socketOf("type = \"unix\"").type, 1);
  EXPECT_EQ(socketOf("type = \"unix\"").state, 0);
}

TEST(DeviceFileDescriptor, SystemSockets) {
  const Socket control =
      socketOf("type = \"control\", control = \"com.apple.flow\", id = 3, unit = 4");
  EXPECT_EQ(control.kind, 6);
  EXPECT_EQ(control.family, 32);
  EXPECT_EQ(control.type, 2);
  EXPECT_EQ(control.protocol, 2);
  EXPECT_EQ(control.controlName, "com.apple.flow");
  EXPECT_EQ(control.controlID, 3u);
  EXPECT_EQ(control.controlUnit, 4u);
  EXPECT_EQ(socketOf("type = \"control\", control = \"c\", kind = \"stream\"").type, 1);

  const Socket event = socketOf("type = \"event\", vendor = 1, class = 2, subclass = 3");
  EXPECT_EQ(event.kind, 5);
  EXPECT_EQ(event.family, 32);
  EXPECT_EQ(event.type, 3);
  EXPECT_EQ(event.protocol, 1);
  EXPECT_THAT(event.eventFilter, ElementsAre(1, 2, 3));

  const Socket route = socketOf("type = \"route\"");
  EXPECT_EQ(route.kind, 0);
  EXPECT_EQ(route.family, 17);
  EXPECT_EQ(route.type, 3);
  const Socket key = socketOf("type = \"key\"");
  EXPECT_EQ(key.kind, 0);
  EXPECT_EQ(key.family, 29);
  EXPECT_EQ(key.type, 3);
  EXPECT_EQ(key.protocol, 2);

  const Socket driver =
      socketOf("type = \"network-driver\", interface = \"en0\", interface-family = 2, unit = 1");
  EXPECT_EQ(driver.kind, 4);
  EXPECT_EQ(driver.family, 27);
  EXPECT_EQ(driver.type, 3);
  EXPECT_EQ(driver.interface, "en0");
  EXPECT_EQ(driver.interfaceFamily, 2u);
  EXPECT_EQ(driver.interfaceUnit, 1u);

  const Socket vsock = socketOf("type = \"vsock\", local = [2, 1024], remote = [3, 80]");
  EXPECT_EQ(vsock.kind, 7);
  EXPECT_EQ(vsock.family, 40);
  EXPECT_EQ(vsock.type, 1);
  EXPECT_THAT(vsock.virtualAddress, ElementsAre(2, 1024, 3, 80));
  EXPECT_EQ(socketOf("type = \"vsock\", kind = \"datagram\"").type, 2);
}

TEST(DeviceFileDescriptor, NamedObjects) {
  const NamedSemaphore semaphore =
      std::get<NamedSemaphore>(descriptorOf("type = \"semaphore\", name = \"s\", size = 2").object);
  EXPECT_EQ(semaphore.name, "s");
  EXPECT_EQ(semaphore.mode, 0600);
  EXPECT_EQ(semaphore.size.start, 2u);
  const SharedMemory memory = std::get<SharedMemory>(
      descriptorOf("type = \"shared-memory\", name = \"m\", permissions = 0o640, owner = 1, "
                   "group = 2, size = \"64K\", address = 0x106c40000")
          .object);
  EXPECT_EQ(memory.mode, 0640);
  EXPECT_EQ(memory.user, 1u);
  EXPECT_EQ(memory.group, 2u);
  EXPECT_EQ(memory.size.start, 65536u);
  EXPECT_EQ(memory.address, 0x106c40000u);
  EXPECT_EQ(std::get<SharedMemory>(descriptorOf("type = \"shared-memory\", name = \"m\", "
                                                "address = \"0xfffffff007b6a1c4\"")
                                       .object)
                .address,
            0xfffffff007b6a1c4u);
}

TEST(DeviceFileDescriptor, PipeQueueChannel) {
  const PipeEnd pipe =
      std::get<PipeEnd>(descriptorOf("type = \"pipe\", buffered = \"1K\", pipe-status = 5").object);
  EXPECT_EQ(pipe.buffered.start, 1024u);
  EXPECT_EQ(pipe.status, 5);

  EXPECT_EQ(std::get<EventQueue>(descriptorOf("type = \"kqueue\"").object).state, 0x10u);
  const EventQueue queue = std::get<EventQueue>(
      descriptorOf("type = \"kqueue\", state = 0x30, events = [{ filter = -8 }, { ident = 1, "
                   "filter = -1, flags = 2, fflags = 3, data = -4, udata = 5, status = 6 }]")
          .object);
  EXPECT_EQ(queue.state, 0x30u);
  ASSERT_EQ(queue.events.size(), 2u);
  EXPECT_EQ(queue.events[0].filter, -8);
  EXPECT_EQ(queue.events[0].flags, 1);
  EXPECT_EQ(queue.events[1].identifier, 1u);
  EXPECT_EQ(queue.events[1].filter, -1);
  EXPECT_EQ(queue.events[1].flags, 2);
  EXPECT_EQ(queue.events[1].filterFlags, 3u);
  EXPECT_EQ(queue.events[1].data, -4);
  EXPECT_EQ(queue.events[1].userData, 5u);
  EXPECT_EQ(queue.events[1].status, 6);
  const EventQueue wide = std::get<EventQueue>(
      descriptorOf("type = \"kqueue\", events = [{ filter = -8, ident = \"0xfffffff000000001\", "
                   "data = \"0xfffffff000000002\", udata = \"0xfffffff000000003\" }]")
          .object);
  ASSERT_EQ(wide.events.size(), 1u);
  EXPECT_EQ(wide.events[0].identifier, 0xfffffff000000001u);
  EXPECT_EQ(wide.events[0].data, -0xffffffffe);
  EXPECT_EQ(wide.events[0].userData, 0xfffffff000000003u);

  const Channel channel = std::get<Channel>(
      descriptorOf("type = \"channel\", instance = \"000102030405060708090a0b0c0d0e0f\", "
                   "port = 1, channel-type = 2, flags = 3")
          .object);
  EXPECT_EQ(channel.instance[15], 15);
  EXPECT_EQ(channel.port, 1u);
  EXPECT_EQ(channel.type, 2u);
  EXPECT_EQ(channel.flags, 3u);
}

TEST(DeviceFileDescriptor, TypesWithNothingMore) {
  const std::pair<const char *, uint32_t> words[] = {
      {"file-events", 7}, {"network-policy", 9}, {"nexus", 11}, {"appletalk", 0}};
  for (const auto &[word, number] : words) {
    const Descriptor descriptor = descriptorOf("type = \"" + std::string(word) + "\"");
    EXPECT_EQ(std::get<Opaque>(descriptor.object).type, number) << word;
  }
}

TEST(DeviceFilePeers, AreFoundByLabelInAnyProcess) {
  const Device device = deviceOf(
      "[[process]]\nname = \"a\"\ncopies = 2\n"
      "descriptors = [{ type = \"unix\", label = \"{index}\", peer = \"up-{index}\" }]\n"
      "[[process]]\nname = \"b\"\n"
      "descriptors = [{ type = \"unix\", label = \"up-0\" }, { type = \"unix\", label = \"up-1\" "
      "},\n"
      "{ type = \"pipe\", label = \"left\", peer = \"right\" }, { type = \"pipe\", label = "
      "\"right\" },"
      "\n{ type = \"unix\" }]\n"
      "[[event]]\ndo = \"open\"\nprocess = \"b\"\n"
      "descriptor = { type = \"pipe\", peer = \"left\" }\n");
  const std::vector<Descriptor> &ends = device.processes[2].descriptors;
  EXPECT_NE(ends[0].handle, 0u);
  EXPECT_EQ(device.processes[0].descriptors[0].peer, ends[0].handle);
  EXPECT_EQ(device.processes[1].descriptors[0].peer, ends[1].handle);
  EXPECT_EQ(ends[2].peer, ends[3].handle);
  EXPECT_EQ(ends[4].handle, 0u);
  EXPECT_EQ(std::get<Socket>(ends[0].object).state, 0x2);
  EXPECT_EQ(std::get<Socket>(ends[4].object).state, 0);
  EXPECT_EQ(std::get<OpenDescriptor>(device.events[0].action).descriptor.peer, ends[2].handle);
  std::set<uint64_t> handles;
  for (const Process &process : device.processes) {
    for (const Descriptor &descriptor : process.descriptors) handles.insert(descriptor.handle);
  }
  EXPECT_EQ(handles.size(), 7u);  // six, and none
}

}  // namespace
