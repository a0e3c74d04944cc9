// What a simulated device says about descriptors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/darwin/socket.h"
#include "simulated_device.h"

namespace simulated_test {
namespace {

using host::simulator::Channel;
using host::simulator::CloseDescriptor;
using host::simulator::EventQueue;
using host::simulator::ExitProcess;
using host::simulator::File;
using host::simulator::ForkProcess;
using host::simulator::NamedSemaphore;
using host::simulator::Opaque;
using host::simulator::OpenDescriptor;
using host::simulator::PipeEnd;
using host::simulator::QueuedEvent;
using host::simulator::SharedMemory;
using host::simulator::Socket;
using testing::ElementsAre;

constexpr int32_t kPid = 300;

Device deviceHolding(std::vector<Descriptor> descriptors) {
  Process holder = process(kPid);
  holder.user = 501;
  holder.groupID = 20;
  holder.descriptors = std::move(descriptors);
  return device({holder});
}

darwin::socket_fdinfo socketAt(SimulatedMachine &machine, int fd, int32_t pid = kPid) {
  darwin::socket_fdinfo info{};
  EXPECT_EQ(machine.socketDescriptor(pid, fd, info), kAnswered);
  return info;
}

darwin::pipe_fdinfo pipeAt(SimulatedMachine &machine, int fd, int32_t pid = kPid) {
  darwin::pipe_fdinfo info{};
  EXPECT_EQ(machine.pipeDescriptor(pid, fd, info), kAnswered);
  return info;
}

Socket unixSocket(std::string path = "") {
  Socket made;
  made.kind = darwin::SOCKINFO_UN;
  made.family = darwin::DARWIN_AF_UNIX;
  made.path = std::move(path);
  return made;
}

Descriptor connected(int32_t number, Socket socket, uint64_t handle, uint64_t peer) {
  Descriptor made = descriptor(number, std::move(socket));
  made.handle = handle;
  made.peer = peer;
  return made;
}

std::string pathIn(const darwin::un_sockinfo_address &address) {
  const darwin::sockaddr_un &path = address.ua_sun;
  if (path.sun_len < 2) return "";
  return {path.sun_path, static_cast<size_t>(path.sun_len) - 2};
}

TEST(SimulatedDescriptorsTest, AreListedInOrderWithTheirTypes) {
  SimulatedMachine machine(deviceHolding(
      {descriptor(9, EventQueue{}), descriptor(-1, File{}), descriptor(1, Socket{}),
       descriptor(-1, NamedSemaphore{}), descriptor(-1, SharedMemory{}), descriptor(3, PipeEnd{}),
       descriptor(-1, Channel{}), descriptor(8, Opaque{darwin::PROX_FDTYPE_NEXUS})}));
  std::vector<darwin::proc_fdinfo> list;
  ASSERT_EQ(machine.descriptors(kPid, 100, list), kAnswered);
  const std::vector<std::pair<int32_t, uint32_t>> expected = {
      {0, darwin::PROX_FDTYPE_VNODE}, {1, darwin::PROX_FDTYPE_SOCKET},
      {2, darwin::PROX_FDTYPE_PSEM},  {3, darwin::PROX_FDTYPE_PIPE},
      {4, darwin::PROX_FDTYPE_PSHM},  {5, darwin::PROX_FDTYPE_CHANNEL},
      {8, darwin::PROX_FDTYPE_NEXUS}, {9, darwin::PROX_FDTYPE_KQUEUE}};
  ASSERT_EQ(list.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(list[i].proc_fd, expected[i].first);
    EXPECT_EQ(list[i].proc_fdtype, expected[i].second);
    uint32_t type = 99;
    EXPECT_EQ(machine.descriptorType(kPid, expected[i].first, type), kAnswered);
    EXPECT_EQ(type, expected[i].second);
  }
  ASSERT_EQ(machine.descriptors(kPid, 2, list), kAnswered);
  EXPECT_EQ(list.size(), 2U);
  uint32_t type = 0;
  EXPECT_EQ(machine.descriptorType(kPid, 6, type), darwin::DARWIN_EBADF);
  EXPECT_EQ(machine.descriptorType(77, 0, type), darwin::DARWIN_EBADF);
}

TEST(SimulatedDescriptorsTest, TheTableDoublesWhenItIsFull) {
  const auto slotsFor = [](int32_t largest) {
    SimulatedMachine machine(deviceHolding({descriptor(largest, File{})}));
    size_t slots = 0;
    EXPECT_EQ(machine.descriptorTableSize(kPid, slots), kAnswered);
    EXPECT_EQ(bsdOf(machine, kPid).pbi_nfiles, slots);
    return slots;
  };
  EXPECT_EQ(slotsFor(0), 25U);
  EXPECT_EQ(slotsFor(24), 25U);
  EXPECT_EQ(slotsFor(25), 50U);
  EXPECT_EQ(slotsFor(49), 50U);
  EXPECT_EQ(slotsFor(50), 100U);
  EXPECT_EQ(slotsFor(9999), 12800U);
}

TEST(SimulatedDescriptorsTest, OthersTypesAreRefused) {
  SimulatedMachine machine(deviceHolding({descriptor(0, File{}), descriptor(1, Socket{})}));
  darwin::vnode_fdinfowithpath vnode{};
  darwin::socket_fdinfo socket{};
  darwin::psem_fdinfo semaphore{};
  darwin::pshm_fdinfo memory{};
  darwin::pipe_fdinfo pipe{};
  darwin::kqueue_fdinfo queue{};
  darwin::channel_fdinfo channel{};
  std::vector<darwin::kevent_extinfo> events;
  EXPECT_EQ(machine.socketDescriptor(kPid, 0, socket), darwin::DARWIN_ENOTSOCK);
  EXPECT_EQ(machine.vnodeDescriptor(kPid, 1, vnode), darwin::DARWIN_EBADF);
  EXPECT_EQ(machine.semaphoreDescriptor(kPid, 0, semaphore), darwin::DARWIN_EBADF);
  EXPECT_EQ(machine.sharedMemoryDescriptor(kPid, 0, memory), darwin::DARWIN_EBADF);
  EXPECT_EQ(machine.pipeDescriptor(kPid, 0, pipe), darwin::DARWIN_EBADF);
  EXPECT_EQ(machine.kqueueDescriptor(kPid, 0, queue), darwin::DARWIN_EBADF);
  EXPECT_EQ(machine.kqueueEvents(kPid, 0, events), darwin::DARWIN_EBADF);
  EXPECT_EQ(machine.channelDescriptor(kPid, 0, channel), darwin::DARWIN_EBADF);
  for (const int fd : {-1, 2, INT32_MAX}) {
    EXPECT_EQ(machine.socketDescriptor(kPid, fd, socket), darwin::DARWIN_EBADF);
    EXPECT_EQ(machine.vnodeDescriptor(kPid, fd, vnode), darwin::DARWIN_EBADF);
  }
}

TEST(SimulatedDescriptorsTest, AFile) {
  File file;
  file.path = std::string(1500, 'f');
  file.type = 4;
  file.mode = 0020620;
  file.user = 501;
  file.group = 4;
  file.size = Figure::growing(1000, 24);
  file.inode = 0x123456789A;
  file.device = 0x1000003;
  file.deviceItself = 0x10000002;
  Descriptor open = descriptor(7, file);
  open.openFlags = 5;
  open.status = 2;
  open.guard = 8;
  open.offset = Figure::growing(10, 5);
  SimulatedMachine machine(deviceHolding({open}));
  machine.advance(1s);
  darwin::vnode_fdinfowithpath info{};
  ASSERT_EQ(machine.vnodeDescriptor(kPid, 7, info), kAnswered);
  EXPECT_EQ(info.pfi.fi_openflags, 5U);
  EXPECT_EQ(info.pfi.fi_status, 2U);
  EXPECT_EQ(info.pfi.fi_offset, 15);
  EXPECT_EQ(info.pfi.fi_type, 1);
  EXPECT_EQ(info.pfi.fi_guardflags, 8U);
  const darwin::vinfo_stat &stat = info.pvip.vip_vi.vi_stat;
  EXPECT_EQ(stat.vst_dev, 0x1000003U);
  EXPECT_EQ(stat.vst_mode, 0020620);
  EXPECT_EQ(stat.vst_nlink, 1);
  EXPECT_EQ(stat.vst_ino, 0x123456789AU);
  EXPECT_EQ(stat.vst_uid, 501U);
  EXPECT_EQ(stat.vst_gid, 4U);
  EXPECT_EQ(stat.vst_size, 1024);
  EXPECT_EQ(stat.vst_blocks, 2);
  EXPECT_EQ(stat.vst_rdev, 0x10000002U);
  EXPECT_EQ(info.pvip.vip_vi.vi_type, 4);
  EXPECT_EQ(info.pvip.vip_vi.vi_fsid.val[0], 0x1000003);
  EXPECT_EQ(std::string(info.pvip.vip_path), std::string(1023, 'f'));
}

TEST(SimulatedDescriptorsTest, AnOffsetThatDoesNotFitIsTheLargest) {
  Descriptor open = descriptor(0, File{});
  open.offset = UINT64_MAX;
  SimulatedMachine machine(deviceHolding({open}));
  darwin::vnode_fdinfowithpath info{};
  ASSERT_EQ(machine.vnodeDescriptor(kPid, 0, info), kAnswered);
  EXPECT_EQ(info.pfi.fi_offset, INT64_MAX);
}

TEST(SimulatedDescriptorsTest, ATcpSocketOfIPv4) {
  Socket socket;
  socket.kind = darwin::SOCKINFO_TCP;
  socket.family = darwin::DARWIN_AF_INET;
  socket.protocol = darwin::DARWIN_IPPROTO_TCP;
  socket.state = 2;
  socket.local = {{10, 0, 0, 5}, 49152};
  socket.remote = {{17, 253, 144, 10}, 443};
  socket.tcpState = darwin::TSI_S_ESTABLISHED;
  SimulatedMachine machine(deviceHolding({descriptor(0, socket)}));
  const darwin::socket_fdinfo info = socketAt(machine, 0);
  EXPECT_EQ(info.pfi.fi_type, 2);
  EXPECT_EQ(info.psi.soi_stat.vst_uid, 501U);
  EXPECT_EQ(info.psi.soi_kind, darwin::SOCKINFO_TCP);
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(info.psi.soi_type, darwin::DARWIN_SOCK_STREAM);
  EXPECT_EQ(info.psi.soi_protocol, darwin::DARWIN_IPPROTO_TCP);
  EXPECT_EQ(info.psi.soi_state, 2);
  EXPECT_NE(info.psi.soi_so, 0U);
  const darwin::tcp_sockinfo &tcp = info.psi.soi_proto.pri_tcp;
  EXPECT_EQ(tcp.tcpsi_state, darwin::TSI_S_ESTABLISHED);
  EXPECT_EQ(tcp.tcpsi_ini.insi_vflag, darwin::INI_IPV4);
  const unsigned char *port = reinterpret_cast<const unsigned char *>(&tcp.tcpsi_ini.insi_fport);
  EXPECT_THAT(std::vector<int>(port, port + 4), ElementsAre(0x01, 0xBB, 0, 0));
  port = reinterpret_cast<const unsigned char *>(&tcp.tcpsi_ini.insi_lport);
  EXPECT_THAT(std::vector<int>(port, port + 4), ElementsAre(0xC0, 0x00, 0, 0));
  const unsigned char *address = reinterpret_cast<const unsigned char *>(&tcp.tcpsi_ini.insi_faddr);
  EXPECT_THAT(std::vector<int>(address, address + 16),
              ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 17, 253, 144, 10));
  address = reinterpret_cast<const unsigned char *>(&tcp.tcpsi_ini.insi_laddr);
  EXPECT_THAT(std::vector<int>(address, address + 16),
              ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10, 0, 0, 5));
}

TEST(SimulatedDescriptorsTest, AUdpSocketOfIPv6) {
  Socket socket;
  socket.kind = darwin::SOCKINFO_IN;
  socket.family = darwin::DARWIN_AF_INET6;
  socket.type = darwin::DARWIN_SOCK_DGRAM;
  socket.isIPv4 = false;
  socket.isIPv6 = true;
  socket.local = {{0xFE, 0x80, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}, 5353};
  Socket both = socket;
  both.isIPv4 = true;
  both.local = {};
  SimulatedMachine machine(deviceHolding({descriptor(0, socket), descriptor(1, both)}));
  const darwin::socket_fdinfo info = socketAt(machine, 0);
  const darwin::in_sockinfo &in = info.psi.soi_proto.pri_in;
  EXPECT_EQ(in.insi_vflag, darwin::INI_IPV6);
  EXPECT_EQ(in.insi_fport, 0);
  EXPECT_THAT(std::vector<int>(std::begin(in.insi_laddr.ina_6.octets),
                               std::end(in.insi_laddr.ina_6.octets)),
              ElementsAre(0xFE, 0x80, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8));
  EXPECT_THAT(in.insi_faddr.ina_6.octets, testing::Each(0));
  const darwin::socket_fdinfo other = socketAt(machine, 1);
  EXPECT_EQ(other.psi.soi_proto.pri_in.insi_vflag, darwin::INI_IPV4 | darwin::INI_IPV6);
}

TEST(SimulatedDescriptorsTest, SocketsOfOtherKinds) {
  Socket event;
  event.kind = darwin::SOCKINFO_KERN_EVENT;
  event.eventFilter = {1, 6, 3};
  Socket control;
  control.kind = darwin::SOCKINFO_KERN_CTL;
  control.controlName = "com.apple.network.statistics";
  control.controlID = 4;
  control.controlUnit = 9;
  Socket driver;
  driver.kind = darwin::SOCKINFO_NDRV;
  driver.interface = "a-rather-long-name0";
  driver.interfaceFamily = 2;
  driver.interfaceUnit = 3;
  Socket machines;
  machines.kind = darwin::SOCKINFO_VSOCK;
  machines.virtualAddress = {2, 1024, 3, 80};
  Socket route;
  route.family = darwin::DARWIN_AF_ROUTE;
  route.type = darwin::DARWIN_SOCK_RAW;
  SimulatedMachine machine(
      deviceHolding({descriptor(0, event), descriptor(1, control), descriptor(2, driver),
                     descriptor(3, machines), descriptor(4, route)}));
  EXPECT_EQ(socketAt(machine, 0).psi.soi_proto.pri_kern_event.kesi_vendor_code_filter, 1U);
  EXPECT_EQ(socketAt(machine, 0).psi.soi_proto.pri_kern_event.kesi_class_filter, 6U);
  EXPECT_EQ(socketAt(machine, 0).psi.soi_proto.pri_kern_event.kesi_subclass_filter, 3U);
  const darwin::socket_fdinfo controlInfo = socketAt(machine, 1);
  EXPECT_EQ(controlInfo.psi.soi_proto.pri_kern_ctl.kcsi_id, 4U);
  EXPECT_EQ(controlInfo.psi.soi_proto.pri_kern_ctl.kcsi_unit, 9U);
  EXPECT_STREQ(controlInfo.psi.soi_proto.pri_kern_ctl.kcsi_name, "com.apple.network.statistics");
  const darwin::socket_fdinfo driverInfo = socketAt(machine, 2);
  EXPECT_EQ(driverInfo.psi.soi_proto.pri_ndrv.ndrvsi_if_family, 2U);
  EXPECT_EQ(driverInfo.psi.soi_proto.pri_ndrv.ndrvsi_if_unit, 3U);
  EXPECT_STREQ(driverInfo.psi.soi_proto.pri_ndrv.ndrvsi_if_name, "a-rather-long-n");
  const darwin::vsock_sockinfo virtualInfo = socketAt(machine, 3).psi.soi_proto.pri_vsock;
  EXPECT_EQ(virtualInfo.local_cid, 2U);
  EXPECT_EQ(virtualInfo.local_port, 1024U);
  EXPECT_EQ(virtualInfo.remote_cid, 3U);
  EXPECT_EQ(virtualInfo.remote_port, 80U);
  EXPECT_EQ(socketAt(machine, 4).psi.soi_kind, darwin::SOCKINFO_GENERIC);
  EXPECT_EQ(socketAt(machine, 4).psi.soi_type, darwin::DARWIN_SOCK_RAW);
}

TEST(SimulatedDescriptorsTest, AUnixSocketWithoutAPeer) {
  const std::string longest(200, 's');
  SimulatedMachine machine(
      deviceHolding({descriptor(0, unixSocket("/var/run/one")), descriptor(1, unixSocket(longest)),
                     descriptor(2, unixSocket())}));
  const darwin::un_sockinfo first = socketAt(machine, 0).psi.soi_proto.pri_un;
  EXPECT_EQ(first.unsi_conn_so, 0U);
  EXPECT_EQ(first.unsi_addr.ua_sun.sun_len, 14);
  EXPECT_EQ(first.unsi_addr.ua_sun.sun_family, darwin::DARWIN_AF_UNIX);
  EXPECT_STREQ(first.unsi_addr.ua_sun.sun_path, "/var/run/one");
  EXPECT_EQ(first.unsi_caddr.ua_sun.sun_len, 0);
  EXPECT_EQ(pathIn(socketAt(machine, 1).psi.soi_proto.pri_un.unsi_addr), std::string(104, 's'));
  EXPECT_EQ(socketAt(machine, 2).psi.soi_proto.pri_un.unsi_addr.ua_sun.sun_len, 0);
  EXPECT_NE(socketAt(machine, 0).psi.soi_so, socketAt(machine, 2).psi.soi_so);
}

// The client names the server's end; the server's end does not name the client.
TEST(SimulatedDescriptorsTest, PeersKnowEachOtherWhenOneNamesTheOther) {
  Process server = process(10);
  server.descriptors = {connected(4, unixSocket("/var/run/server"), 0x500, 0)};
  Process client = process(11);
  client.descriptors = {connected(3, unixSocket(), 0, 0x500)};
  SimulatedMachine machine(device({client, server}));
  const darwin::socket_info serverEnd = socketAt(machine, 4, 10).psi;
  const darwin::socket_info clientEnd = socketAt(machine, 3, 11).psi;
  EXPECT_EQ(serverEnd.soi_so, 0x500U);
  EXPECT_EQ(clientEnd.soi_proto.pri_un.unsi_conn_so, 0x500U);
  EXPECT_EQ(serverEnd.soi_proto.pri_un.unsi_conn_so, clientEnd.soi_so);
  EXPECT_EQ(pathIn(clientEnd.soi_proto.pri_un.unsi_caddr), "/var/run/server");
  EXPECT_EQ(pathIn(serverEnd.soi_proto.pri_un.unsi_caddr), "");

  machine.happen(ExitProcess{11});
  EXPECT_EQ(socketAt(machine, 4, 10).psi.soi_proto.pri_un.unsi_conn_so, 0U);
}

TEST(SimulatedDescriptorsTest, APeerThatIsClosedIsNoPeer) {
  Socket told = unixSocket();
  told.peerPath = "/told";
  SimulatedMachine machine(deviceHolding({connected(0, unixSocket("/first"), 0x100, 0x200),
                                          connected(1, unixSocket("/second"), 0x200, 0x100),
                                          connected(2, told, 0x300, 0x100)}));
  EXPECT_EQ(socketAt(machine, 0).psi.soi_proto.pri_un.unsi_conn_so, 0x200U);
  EXPECT_EQ(pathIn(socketAt(machine, 0).psi.soi_proto.pri_un.unsi_caddr), "/second");
  EXPECT_EQ(pathIn(socketAt(machine, 2).psi.soi_proto.pri_un.unsi_caddr), "/told");
  machine.happen(CloseDescriptor{kPid, 1});
  EXPECT_EQ(socketAt(machine, 0).psi.soi_proto.pri_un.unsi_conn_so, 0U);
  EXPECT_EQ(pathIn(socketAt(machine, 0).psi.soi_proto.pri_un.unsi_caddr), "");
}

TEST(SimulatedDescriptorsTest, AForkHoldsTheSameEnds) {
  Process parent = process(10);
  parent.descriptors = {connected(0, unixSocket("/first"), 0x100, 0),
                        connected(1, unixSocket("/second"), 0, 0x100)};
  SimulatedMachine machine(device({parent}));
  machine.happen(ForkProcess{10, 11});
  const uint64_t second = socketAt(machine, 1, 10).psi.soi_so;
  EXPECT_EQ(socketAt(machine, 1, 11).psi.soi_so, second);
  EXPECT_EQ(socketAt(machine, 0, 11).psi.soi_proto.pri_un.unsi_conn_so, second);
  machine.happen(CloseDescriptor{10, 1});
  EXPECT_EQ(socketAt(machine, 0, 10).psi.soi_proto.pri_un.unsi_conn_so, second);
  machine.happen(CloseDescriptor{11, 1});
  EXPECT_EQ(socketAt(machine, 0, 10).psi.soi_proto.pri_un.unsi_conn_so, 0U);
}

TEST(SimulatedDescriptorsTest, BothEndsOfAPipe) {
  PipeEnd reading;
  reading.buffered = Figure::growing(100, 20);
  reading.status = 0x42;
  Descriptor first = descriptor(0, reading);
  first.handle = 0x700;
  Descriptor second = descriptor(1, PipeEnd{});
  second.peer = 0x700;
  SimulatedMachine machine(deviceHolding({first, second}));
  machine.advance(1s);
  const darwin::pipe_fdinfo readingEnd = pipeAt(machine, 0);
  const darwin::pipe_fdinfo writingEnd = pipeAt(machine, 1);
  EXPECT_EQ(readingEnd.pfi.fi_type, 6);
  EXPECT_EQ(readingEnd.pipeinfo.pipe_stat.vst_size, 120);
  EXPECT_EQ(readingEnd.pipeinfo.pipe_stat.vst_uid, 501U);
  EXPECT_EQ(readingEnd.pipeinfo.pipe_stat.vst_gid, 20U);
  EXPECT_EQ(readingEnd.pipeinfo.pipe_status, 0x42);
  EXPECT_EQ(readingEnd.pipeinfo.pipe_handle, 0x700U);
  EXPECT_EQ(readingEnd.pipeinfo.pipe_peerhandle, writingEnd.pipeinfo.pipe_handle);
  EXPECT_EQ(writingEnd.pipeinfo.pipe_peerhandle, 0x700U);
}

TEST(SimulatedDescriptorsTest, NamedObjects) {
  NamedSemaphore semaphore;
  semaphore.name = "/semaphore";
  semaphore.mode = 0640;
  semaphore.user = 1;
  semaphore.group = 2;
  semaphore.size = 3;
  SharedMemory memory;
  memory.name = "/apple.shm";
  memory.size = 4096;
  memory.address = 0x7000000;
  SimulatedMachine machine(deviceHolding({descriptor(0, semaphore), descriptor(1, memory)}));
  darwin::psem_fdinfo semaphoreInfo{};
  ASSERT_EQ(machine.semaphoreDescriptor(kPid, 0, semaphoreInfo), kAnswered);
  EXPECT_EQ(semaphoreInfo.pfi.fi_type, 4);
  EXPECT_STREQ(semaphoreInfo.pseminfo.psem_name, "/semaphore");
  EXPECT_EQ(semaphoreInfo.pseminfo.psem_stat.vst_mode, 0640);
  EXPECT_EQ(semaphoreInfo.pseminfo.psem_stat.vst_uid, 1U);
  EXPECT_EQ(semaphoreInfo.pseminfo.psem_stat.vst_gid, 2U);
  EXPECT_EQ(semaphoreInfo.pseminfo.psem_stat.vst_size, 3);
  darwin::pshm_fdinfo memoryInfo{};
  ASSERT_EQ(machine.sharedMemoryDescriptor(kPid, 1, memoryInfo), kAnswered);
  EXPECT_EQ(memoryInfo.pfi.fi_type, 3);
  EXPECT_STREQ(memoryInfo.pshminfo.pshm_name, "/apple.shm");
  EXPECT_EQ(memoryInfo.pshminfo.pshm_mappaddr, 0x7000000U);
  EXPECT_EQ(memoryInfo.pshminfo.pshm_stat.vst_size, 4096);
}

TEST(SimulatedDescriptorsTest, AnEventQueueAndItsEvents) {
  EventQueue queue;
  queue.state = 0x50;
  queue.events = {QueuedEvent{5, -1, 0x21, 0x2, -7, 0xABCDEF, 0x10}, QueuedEvent{6, -2}};
  SimulatedMachine machine(deviceHolding({descriptor(0, queue)}));
  darwin::kqueue_fdinfo info{};
  ASSERT_EQ(machine.kqueueDescriptor(kPid, 0, info), kAnswered);
  EXPECT_EQ(info.pfi.fi_type, 5);
  EXPECT_EQ(info.kqueueinfo.kq_state, 0x50U);
  std::vector<darwin::kevent_extinfo> events;
  ASSERT_EQ(machine.kqueueEvents(kPid, 0, events), kAnswered);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].kqext_kev.ident, 5U);
  EXPECT_EQ(events[0].kqext_kev.filter, -1);
  EXPECT_EQ(events[0].kqext_kev.flags, 0x21);
  EXPECT_EQ(events[0].kqext_kev.fflags, 2U);
  EXPECT_EQ(events[0].kqext_kev.data, -7);
  EXPECT_EQ(events[0].kqext_kev.udata, 0xABCDEFU);
  EXPECT_EQ(events[0].kqext_status, 0x10);
  EXPECT_EQ(events[1].kqext_kev.ident, 6U);
}

TEST(SimulatedDescriptorsTest, AChannel) {
  Channel channel;
  channel.instance = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  channel.port = 2;
  channel.type = 3;
  channel.flags = 4;
  SimulatedMachine machine(deviceHolding({descriptor(0, channel)}));
  darwin::channel_fdinfo info{};
  ASSERT_EQ(machine.channelDescriptor(kPid, 0, info), kAnswered);
  EXPECT_EQ(info.pfi.fi_type, 10);
  EXPECT_THAT(info.channelinfo.chi_instance,
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
  EXPECT_EQ(info.channelinfo.chi_port, 2U);
  EXPECT_EQ(info.channelinfo.chi_type, 3U);
  EXPECT_EQ(info.channelinfo.chi_flags, 4U);
}

TEST(SimulatedDescriptorsTest, OpeningTakesTheLowestFreeNumber) {
  SimulatedMachine machine(
      deviceHolding({descriptor(0, File{}), descriptor(1, File{}), descriptor(4, File{})}));
  machine.happen(OpenDescriptor{kPid, descriptor(-1, File{})});
  EXPECT_THAT(descriptorNumbersOf(machine, kPid), ElementsAre(0, 1, 2, 4));
  machine.happen(OpenDescriptor{kPid, descriptor(-1, File{})});
  machine.happen(OpenDescriptor{kPid, descriptor(-1, File{})});
  EXPECT_THAT(descriptorNumbersOf(machine, kPid), ElementsAre(0, 1, 2, 3, 4, 5));
  machine.happen(CloseDescriptor{kPid, 0});
  machine.happen(CloseDescriptor{kPid, 3});
  machine.happen(OpenDescriptor{kPid, descriptor(-1, File{})});
  EXPECT_THAT(descriptorNumbersOf(machine, kPid), ElementsAre(0, 1, 2, 4, 5));
  // One that is in use can't be opened, and one that is not can't be closed.
  machine.happen(OpenDescriptor{kPid, descriptor(4, Socket{})});
  machine.happen(CloseDescriptor{kPid, 30});
  std::vector<darwin::proc_fdinfo> list;
  ASSERT_EQ(machine.descriptors(kPid, 100, list), kAnswered);
  ASSERT_EQ(list.size(), 5U);
  EXPECT_EQ(list[3].proc_fdtype, darwin::PROX_FDTYPE_VNODE);
}

}  // namespace
}  // namespace simulated_test
