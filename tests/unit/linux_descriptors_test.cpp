// Descriptors of the test's own process, opened here, read through /proc and compared with what was
// opened and with what the system calls say of it.
#include "host/linux/descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>

#include "darwin/file_flags.h"
#include "darwin/socket.h"
#include "host/darwin/errors.h"
#include "host/darwin/kqueue.h"
#include "host/darwin/proc_info.h"
#include "host/darwin/signals.h"
#include "host/posix.h"

namespace host::linux_machine {
namespace {

class Owned {
 public:
  explicit Owned(int fd) : fd_(fd) { EXPECT_GE(fd, 0) << strerror(errno); }
  Owned(Owned &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Owned &operator=(Owned &&) = delete;
  ~Owned() { reset(); }
  int get() const { return fd_; }
  void reset() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

uint64_t inodeOf(int fd) {
  struct stat file = {};
  EXPECT_EQ(fstat(fd, &file), 0);
  return file.st_ino;
}

class DescriptorsTest : public testing::Test {
 protected:
  DescriptorsTest() {
    char name[] = "/tmp/descriptors-test-XXXXXX";
    directory_ = mkdtemp(name);
  }
  ~DescriptorsTest() override {
    for (const std::string &path : paths_) unlink(path.c_str());
    rmdir(directory_.c_str());
  }

  std::string path(const std::string &name) {
    paths_.push_back(directory_ + "/" + name);
    return paths_.back();
  }
  uint32_t type(int fd) {
    uint32_t type = UINT32_MAX;
    EXPECT_EQ(descriptors_.type(self_.get(), fd, type), kAnswered);
    return type;
  }
  darwin::vnode_fdinfowithpath vnode(int fd) {
    darwin::vnode_fdinfowithpath info = {};
    EXPECT_EQ(type(fd), darwin::PROX_FDTYPE_VNODE);
    EXPECT_EQ(descriptors_.vnode(self_.get(), fd, info), kAnswered);
    EXPECT_EQ(info.pfi.fi_type, 1);
    return info;
  }
  // Begins a new pass: the socket may be younger than the last reading.
  darwin::socket_fdinfo socketInfo(int fd) {
    darwin::socket_fdinfo info = {};
    descriptors_.beginPass();
    EXPECT_EQ(type(fd), darwin::PROX_FDTYPE_SOCKET);
    EXPECT_EQ(descriptors_.socket(self_.get(), fd, info), kAnswered);
    EXPECT_EQ(info.pfi.fi_type, 2);
    EXPECT_EQ(info.psi.soi_so, inodeOf(fd));
    return info;
  }
  std::vector<darwin::kevent_extinfo> events(int fd) {
    std::vector<darwin::kevent_extinfo> events;
    EXPECT_EQ(type(fd), darwin::PROX_FDTYPE_KQUEUE);
    EXPECT_EQ(descriptors_.kqueueEvents(self_.get(), fd, events), kAnswered);
    darwin::kqueue_fdinfo info = {};
    EXPECT_EQ(descriptors_.kqueue(self_.get(), fd, info), kAnswered);
    EXPECT_EQ(info.pfi.fi_type, 5);
    return events;
  }

  Owned self_{open("/proc/self", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  Descriptors descriptors_;
  std::string directory_;
  std::vector<std::string> paths_;
};

TEST(DescriptorType, FollowsTheLink) {
  const struct {
    const char *link;
    uint32_t type;
  } links[] = {
      {"socket:[1]", darwin::PROX_FDTYPE_SOCKET},
      {"pipe:[1]", darwin::PROX_FDTYPE_PIPE},
      {"anon_inode:[eventpoll]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[timerfd]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[eventfd]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[signalfd]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[pidfd]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:[io_uring]", darwin::PROX_FDTYPE_KQUEUE},
      {"anon_inode:inotify", darwin::PROX_FDTYPE_FSEVENTS},
      {"anon_inode:[fanotify]", darwin::PROX_FDTYPE_FSEVENTS},
      {"anon_inode:[perf_event]", darwin::PROX_FDTYPE_VNODE},
      {"anon_inode:", darwin::PROX_FDTYPE_VNODE},
      {"/memfd:name (deleted)", darwin::PROX_FDTYPE_PSHM},
      {"/dev/shm/name", darwin::PROX_FDTYPE_PSHM},
      {"/dev/shm/name (deleted)", darwin::PROX_FDTYPE_PSHM},
      {"/dev/shm/directory/file", darwin::PROX_FDTYPE_VNODE},
      {"/dev/shm", darwin::PROX_FDTYPE_VNODE},
      {"/tmp/socket:[1]", darwin::PROX_FDTYPE_VNODE},
      {"mnt:[4026531832]", darwin::PROX_FDTYPE_VNODE},
      {"/etc/passwd", darwin::PROX_FDTYPE_VNODE},
      {"", darwin::PROX_FDTYPE_VNODE},
  };
  for (const auto &link : links) {
    EXPECT_EQ(descriptorTypeOfLink(link.link), link.type) << link.link;
  }
}

TEST_F(DescriptorsTest, FileHasPathOffsetFlagsAndStat) {
  const std::string name = path("file");
  const Owned file(open(name.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, 0640));
  ASSERT_EQ(write(file.get(), "0123456789", 10), 10);
  ASSERT_EQ(lseek(file.get(), 7, SEEK_SET), 7);
  struct stat expected;
  ASSERT_EQ(fstat(file.get(), &expected), 0);

  const darwin::vnode_fdinfowithpath info = vnode(file.get());
  EXPECT_STREQ(info.pvip.vip_path, name.c_str());
  EXPECT_EQ(info.pfi.fi_offset, 7);
  EXPECT_EQ(info.pfi.fi_openflags, darwin::DARWIN_FREAD | darwin::DARWIN_FWRITE |
                                       darwin::DARWIN_O_APPEND | darwin::DARWIN_O_NONBLOCK);
  EXPECT_EQ(info.pfi.fi_status, darwin::PROC_FP_CLEXEC);
  EXPECT_EQ(info.pvip.vip_vi.vi_type, 1);
  const darwin::vinfo_stat &stat = info.pvip.vip_vi.vi_stat;
  EXPECT_EQ(stat.vst_dev, major(expected.st_dev) << 24 | minor(expected.st_dev));
  EXPECT_EQ(stat.vst_mode, expected.st_mode);
  EXPECT_EQ(stat.vst_nlink, 1);
  EXPECT_EQ(stat.vst_ino, expected.st_ino);
  EXPECT_EQ(stat.vst_uid, getuid());
  EXPECT_EQ(stat.vst_gid, expected.st_gid);
  EXPECT_EQ(stat.vst_size, 10);
  EXPECT_EQ(stat.vst_blocks, expected.st_blocks);
  EXPECT_EQ(stat.vst_blksize, expected.st_blksize);
  EXPECT_EQ(stat.vst_atime, expected.st_atim.tv_sec);
  EXPECT_EQ(stat.vst_mtime, expected.st_mtim.tv_sec);
  EXPECT_EQ(stat.vst_mtimensec, expected.st_mtim.tv_nsec);
  EXPECT_EQ(stat.vst_ctimensec, expected.st_ctim.tv_nsec);
}

TEST_F(DescriptorsTest, AccessBitsAreOneMoreThanTheMode) {
  const Owned reading(open("/dev/null", O_RDONLY));
  const Owned writing(open("/dev/null", O_WRONLY));
  const Owned both(open("/dev/null", O_RDWR | O_CLOEXEC));
  const Owned neither(open("/dev/null", O_PATH));
  EXPECT_EQ(vnode(reading.get()).pfi.fi_openflags, 1u);
  EXPECT_EQ(vnode(reading.get()).pfi.fi_status, 0u);
  EXPECT_EQ(vnode(writing.get()).pfi.fi_openflags, 2u);
  EXPECT_EQ(vnode(both.get()).pfi.fi_openflags, 3u);
  EXPECT_EQ(vnode(both.get()).pfi.fi_status, darwin::PROC_FP_CLEXEC);
  EXPECT_EQ(vnode(neither.get()).pfi.fi_openflags, 0u);
}

TEST_F(DescriptorsTest, DirectoryDeviceAndFifoAreVnodes) {
  const Owned directory(open("/proc", O_RDONLY | O_DIRECTORY));
  EXPECT_EQ(vnode(directory.get()).pvip.vip_vi.vi_type, 2);
  EXPECT_STREQ(vnode(directory.get()).pvip.vip_path, "/proc");

  const Owned null(open("/dev/null", O_RDWR));
  const darwin::vnode_fdinfowithpath device = vnode(null.get());
  EXPECT_EQ(device.pvip.vip_vi.vi_type, 4);
  EXPECT_EQ(device.pvip.vip_vi.vi_stat.vst_rdev, 1u << 24 | 3u);
  EXPECT_STREQ(device.pvip.vip_path, "/dev/null");

  const std::string name = path("fifo");
  ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
  const Owned fifo(open(name.c_str(), O_RDWR));
  EXPECT_EQ(vnode(fifo.get()).pvip.vip_vi.vi_type, 7);
  EXPECT_STREQ(vnode(fifo.get()).pvip.vip_path, name.c_str());
  darwin::pipe_fdinfo pipe = {};
  EXPECT_EQ(descriptors_.pipe(self_.get(), fifo.get(), pipe), darwin::DARWIN_EBADF);
}

TEST_F(DescriptorsTest, NamedSocketsAndPipesAreFiles) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string name = path("socket");
  memcpy(address.sun_path, name.c_str(), name.size() + 1);
  const Owned bound(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(bind(bound.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  const Owned socketName(open(name.c_str(), O_PATH | O_CLOEXEC));
  const Owned fifo(open(paths_.back().c_str(), O_RDWR | O_CLOEXEC));
  for (const int fd : {socketName.get(), fifo.get()}) {
    darwin::socket_fdinfo socket = {};
    darwin::pipe_fdinfo pipe = {};
    EXPECT_EQ(descriptors_.socket(self_.get(), fd, socket), darwin::DARWIN_ENOTSOCK);
    EXPECT_EQ(descriptors_.pipe(self_.get(), fd, pipe), darwin::DARWIN_EBADF);
    vnode(fd);
  }

  // A number means what it is now: this one was a fifo before.
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Owned reading(ends[0]);
  const Owned writing(ends[1]);
  ASSERT_EQ(dup3(reading.get(), fifo.get(), O_CLOEXEC), fifo.get());
  darwin::pipe_fdinfo pipe = {};
  ASSERT_EQ(descriptors_.pipe(self_.get(), fifo.get(), pipe), kAnswered);
  EXPECT_EQ(pipe.pipeinfo.pipe_stat.vst_ino, inodeOf(reading.get()));
}

TEST_F(DescriptorsTest, ADeletedFileIsMarked) {
  const std::string gone = path("gone");
  const Owned deleted(open(gone.c_str(), O_RDWR | O_CREAT, 0600));
  ASSERT_EQ(unlink(gone.c_str()), 0);
  EXPECT_EQ(vnode(deleted.get()).pvip.vip_path, gone + " (deleted)");
  EXPECT_EQ(vnode(deleted.get()).pvip.vip_vi.vi_stat.vst_nlink, 0);

  const std::string named = path("kept (deleted)");
  const Owned kept(open(named.c_str(), O_RDWR | O_CREAT, 0600));
  EXPECT_STREQ(vnode(kept.get()).pvip.vip_path, named.c_str());
}

// What is shown of them is not decided here.
TEST_F(DescriptorsTest, NamesAreTheirBytes) {
  const std::string name = path("a\nb\x1b[31m\x9b\xff\x7f (deleted)");
  const Owned file(open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  EXPECT_EQ(vnode(file.get()).pvip.vip_path, name);

  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string bound = path("s\n\x1b\x9b\xc3");
  memcpy(address.sun_path, bound.c_str(), bound.size() + 1);
  const Owned local(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(bind(local.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  EXPECT_EQ(socketInfo(local.get()).psi.soi_proto.pri_un.unsi_addr.ua_sun.sun_path, bound);

  const Owned memory(memfd_create("m\n\x1b\x9b", MFD_CLOEXEC));
  darwin::pshm_fdinfo info = {};
  ASSERT_EQ(descriptors_.sharedMemory(self_.get(), memory.get(), info), kAnswered);
  EXPECT_STREQ(info.pshminfo.pshm_name, "m\n\x1b\x9b");
}

TEST_F(DescriptorsTest, LongPathIsCutAndTerminated) {
  const std::string component(200, 'd');
  std::vector<std::string> made;
  std::string name = directory_;
  for (int depth = 0; depth < 6; depth++) {
    name += "/" + component;
    ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
    made.push_back(name);
  }
  const Owned directory(open(name.c_str(), O_RDONLY | O_DIRECTORY));
  ASSERT_GT(name.size(), 1023u);
  EXPECT_EQ(std::string(vnode(directory.get()).pvip.vip_path), name.substr(0, 1023));
  for (auto made_path = made.rbegin(); made_path != made.rend(); ++made_path) {
    EXPECT_EQ(rmdir(made_path->c_str()), 0);
  }
}

TEST_F(DescriptorsTest, PipeEndsNameEachOther) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Owned reading(ends[0]);
  const Owned writing(ends[1]);
  darwin::pipe_fdinfo from = {};
  darwin::pipe_fdinfo to = {};
  EXPECT_EQ(type(reading.get()), darwin::PROX_FDTYPE_PIPE);
  ASSERT_EQ(descriptors_.pipe(self_.get(), reading.get(), from), kAnswered);
  ASSERT_EQ(descriptors_.pipe(self_.get(), writing.get(), to), kAnswered);
  EXPECT_EQ(from.pfi.fi_type, 6);
  EXPECT_EQ(from.pfi.fi_openflags, darwin::DARWIN_FREAD);
  EXPECT_EQ(to.pfi.fi_openflags, darwin::DARWIN_FWRITE);
  EXPECT_NE(from.pipeinfo.pipe_handle, to.pipeinfo.pipe_handle);
  EXPECT_EQ(from.pipeinfo.pipe_handle, to.pipeinfo.pipe_peerhandle);
  EXPECT_EQ(from.pipeinfo.pipe_peerhandle, to.pipeinfo.pipe_handle);
  EXPECT_EQ(from.pipeinfo.pipe_handle / 2, inodeOf(reading.get()));
  EXPECT_EQ(from.pipeinfo.pipe_stat.vst_ino, inodeOf(reading.get()));
}

// A listening socket on loopback, one end of a connection to it and the other end.
struct Connection {
  Owned listening;
  Owned client;
  Owned server;
};

template <typename Address>
Connection connectTo(Address &address) {
  const int family = reinterpret_cast<sockaddr &>(address).sa_family;
  socklen_t size = sizeof(address);
  Owned listening(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(bind(listening.get(), reinterpret_cast<sockaddr *>(&address), size), 0);
  EXPECT_EQ(listen(listening.get(), 5), 0);
  EXPECT_EQ(getsockname(listening.get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
  Owned client(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(connect(client.get(), reinterpret_cast<sockaddr *>(&address), size), 0);
  Owned server(accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
  return {std::move(listening), std::move(client), std::move(server)};
}

TEST_F(DescriptorsTest, TcpOverIPv4) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const Connection connection = connectTo(address);
  sockaddr_in client = {};
  socklen_t size = sizeof(client);
  ASSERT_EQ(getsockname(connection.client.get(), reinterpret_cast<sockaddr *>(&client), &size), 0);
  ASSERT_EQ(send(connection.client.get(), "hello", 5, 0), 5);

  const darwin::socket_fdinfo listening = socketInfo(connection.listening.get());
  EXPECT_EQ(listening.pfi.fi_openflags, darwin::DARWIN_FREAD | darwin::DARWIN_FWRITE);
  EXPECT_EQ(listening.pfi.fi_status, darwin::PROC_FP_CLEXEC);
  EXPECT_EQ(listening.psi.soi_stat.vst_uid, getuid());
  EXPECT_EQ(listening.psi.soi_kind, darwin::SOCKINFO_TCP);
  EXPECT_EQ(listening.psi.soi_family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(listening.psi.soi_type, darwin::DARWIN_SOCK_STREAM);
  EXPECT_EQ(listening.psi.soi_protocol, darwin::DARWIN_IPPROTO_TCP);
  EXPECT_EQ(listening.psi.soi_options, 0x2);
  EXPECT_EQ(listening.psi.soi_qlimit, 5);
  const darwin::tcp_sockinfo &waiting = listening.psi.soi_proto.pri_tcp;
  EXPECT_EQ(waiting.tcpsi_state, darwin::TSI_S_LISTEN);
  EXPECT_EQ(waiting.tcpsi_ini.insi_lport, address.sin_port);
  EXPECT_EQ(waiting.tcpsi_ini.insi_fport, 0);
  EXPECT_EQ(waiting.tcpsi_ini.insi_faddr.ina_46.i46a_addr4.s_addr, 0u);

  const darwin::socket_fdinfo server = socketInfo(connection.server.get());
  const darwin::tcp_sockinfo &tcp = server.psi.soi_proto.pri_tcp;
  EXPECT_EQ(tcp.tcpsi_state, darwin::TSI_S_ESTABLISHED);
  EXPECT_EQ(tcp.tcpsi_ini.insi_vflag, darwin::INI_IPV4);
  EXPECT_EQ(tcp.tcpsi_ini.insi_lport, address.sin_port);
  EXPECT_EQ(tcp.tcpsi_ini.insi_fport, client.sin_port);
  EXPECT_EQ(tcp.tcpsi_ini.insi_laddr.ina_46.i46a_addr4.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(tcp.tcpsi_ini.insi_faddr.ina_46.i46a_addr4.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(server.psi.soi_rcv.sbi_cc, 5u);
  int receiveBuffer = 0;
  socklen_t optionSize = sizeof(receiveBuffer);
  ASSERT_EQ(getsockopt(connection.server.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, &optionSize),
            0);
  EXPECT_EQ(server.psi.soi_rcv.sbi_hiwat, static_cast<uint32_t>(receiveBuffer));
}

TEST_F(DescriptorsTest, TcpOverIPv6) {
  sockaddr_in6 address = {};
  address.sin6_family = AF_INET6;
  address.sin6_addr = in6addr_loopback;
  const Connection connection = connectTo(address);
  sockaddr_in6 client = {};
  socklen_t size = sizeof(client);
  ASSERT_EQ(getsockname(connection.client.get(), reinterpret_cast<sockaddr *>(&client), &size), 0);

  const darwin::socket_fdinfo info = socketInfo(connection.client.get());
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(info.psi.soi_kind, darwin::SOCKINFO_TCP);
  const darwin::in_sockinfo &internet = info.psi.soi_proto.pri_tcp.tcpsi_ini;
  EXPECT_EQ(internet.insi_vflag, darwin::INI_IPV6);
  EXPECT_EQ(internet.insi_lport, client.sin6_port);
  EXPECT_EQ(internet.insi_fport, address.sin6_port);
  EXPECT_EQ(memcmp(internet.insi_laddr.ina_6.octets, &in6addr_loopback, 16), 0);
  EXPECT_EQ(memcmp(internet.insi_faddr.ina_6.octets, &in6addr_loopback, 16), 0);
}

TEST_F(DescriptorsTest, MultipathTcpIsTcp) {
  const int fd = socket(AF_INET, SOCK_STREAM, IPPROTO_MPTCP);
  if (fd < 0) GTEST_SKIP() << "this kernel has no multipath TCP";
  const Owned listening(fd);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  socklen_t size = sizeof(address);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), size), 0);
  ASSERT_EQ(listen(fd, 3), 0);
  ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size), 0);
  const darwin::socket_fdinfo info = socketInfo(fd);
  EXPECT_EQ(info.psi.soi_protocol, darwin::DARWIN_IPPROTO_TCP);
  EXPECT_EQ(info.psi.soi_proto.pri_tcp.tcpsi_state, darwin::TSI_S_LISTEN);
  EXPECT_EQ(info.psi.soi_proto.pri_tcp.tcpsi_ini.insi_lport, address.sin_port);
}

TEST_F(DescriptorsTest, UdpOverBoth) {
  const Owned udp4(socket(AF_INET, SOCK_DGRAM, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  socklen_t size = sizeof(address);
  ASSERT_EQ(bind(udp4.get(), reinterpret_cast<sockaddr *>(&address), size), 0);
  ASSERT_EQ(getsockname(udp4.get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
  darwin::socket_fdinfo info = socketInfo(udp4.get());
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(info.psi.soi_type, darwin::DARWIN_SOCK_DGRAM);
  EXPECT_EQ(info.psi.soi_protocol, darwin::DARWIN_IPPROTO_UDP);
  EXPECT_EQ(info.psi.soi_kind, darwin::SOCKINFO_IN);
  EXPECT_EQ(info.psi.soi_proto.pri_in.insi_lport, address.sin_port);

  const Owned udp6(socket(AF_INET6, SOCK_DGRAM, 0));
  sockaddr_in6 any = {};
  any.sin6_family = AF_INET6;
  size = sizeof(any);
  ASSERT_EQ(bind(udp6.get(), reinterpret_cast<sockaddr *>(&any), size), 0);
  ASSERT_EQ(getsockname(udp6.get(), reinterpret_cast<sockaddr *>(&any), &size), 0);
  info = socketInfo(udp6.get());
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(info.psi.soi_proto.pri_in.insi_lport, any.sin6_port);
  EXPECT_NE(info.psi.soi_proto.pri_in.insi_vflag & darwin::INI_IPV6, 0);
}

TEST_F(DescriptorsTest, UnboundSocketsAreKnownByTheirProtocol) {
  const Owned tcp(socket(AF_INET, SOCK_STREAM, 0));
  darwin::socket_fdinfo info = socketInfo(tcp.get());
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(info.psi.soi_protocol, darwin::DARWIN_IPPROTO_TCP);
  EXPECT_EQ(info.psi.soi_kind, darwin::SOCKINFO_TCP);
  EXPECT_EQ(info.psi.soi_proto.pri_tcp.tcpsi_state, darwin::TSI_S_CLOSED);
  EXPECT_EQ(info.psi.soi_proto.pri_tcp.tcpsi_ini.insi_lport, 0);

  const Owned udp(socket(AF_INET6, SOCK_DGRAM, 0));
  info = socketInfo(udp.get());
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(info.psi.soi_protocol, darwin::DARWIN_IPPROTO_UDP);
}

// A child in a network namespace of its own, with a TCP socket that listens, one that is not bound,
// and a pair of named UNIX sockets.
class OtherNetwork {
 public:
  struct Sockets {
    int listening = -1;  // where there are none
    uint16_t port = 0;   // network order
    int unbound = -1;
    int local = -1;
    uint64_t localPeer = 0;
  };

  // `prepare` is called in the child.
  explicit OtherNetwork(const std::function<bool()> &prepare) {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    child_ = fork();
    if (child_ == 0) {
      const Sockets made = prepare() ? make() : Sockets{};
      if (write(ready[1], &made, sizeof made) != sizeof made) _exit(1);
      for (;;) pause();
    }
    close(ready[1]);
    EXPECT_EQ(read(ready[0], &sockets_, sizeof sockets_), static_cast<ssize_t>(sizeof sockets_));
    close(ready[0]);
    directory_ = open(("/proc/" + std::to_string(child_)).c_str(), O_RDONLY | O_DIRECTORY);
  }
  OtherNetwork(const OtherNetwork &) = delete;
  OtherNetwork &operator=(const OtherNetwork &) = delete;
  ~OtherNetwork() {
    close(directory_);
    __real_kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  bool isThere() const { return sockets_.listening >= 0; }
  int directory() const { return directory_; }
  const Sockets &sockets() const { return sockets_; }

 private:
  static Sockets make() {
    Sockets made;
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    int pair[2];
    const int tcp = socket(AF_INET, SOCK_STREAM, 0);
    if (listen(tcp, 1) != 0 ||
        getsockname(tcp, reinterpret_cast<sockaddr *>(&address), &size) != 0 ||
        socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) {
      return {};
    }
    struct stat peer = {};
    fstat(pair[1], &peer);
    made.listening = tcp;
    made.port = address.sin_port;
    made.unbound = socket(AF_INET6, SOCK_STREAM, 0);
    made.local = pair[0];
    made.localPeer = peer.st_ino;
    return made;
  }

  pid_t child_ = -1;
  int directory_ = -1;
  Sockets sockets_;
};

bool enterNewNetwork() {
  return unshare(CLONE_NEWNET) == 0;
}

TEST_F(DescriptorsTest, SocketsOfAnotherNetworkAreListedThere) {
  const OtherNetwork other(enterNewNetwork);
  if (!other.isThere()) GTEST_SKIP() << "making a network namespace is not allowed here";
  std::vector<darwin::proc_fdinfo> openBefore;
  std::vector<darwin::proc_fdinfo> openAfter;
  darwin::socket_fdinfo info = {};
  // Once, so that what is kept open for this network is.
  ASSERT_EQ(descriptors_.socket(other.directory(), other.sockets().local, info), kAnswered);
  ASSERT_EQ(descriptors_.list(self_.get(), SIZE_MAX, openBefore), kAnswered);
  const NetworkKey ownNetwork = networkOf(self_.get());

  descriptors_.beginPass();
  ASSERT_EQ(descriptors_.socket(other.directory(), other.sockets().listening, info), kAnswered);
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_INET);
  EXPECT_EQ(info.psi.soi_kind, darwin::SOCKINFO_TCP);
  EXPECT_EQ(info.psi.soi_proto.pri_tcp.tcpsi_state, darwin::TSI_S_LISTEN);
  EXPECT_EQ(info.psi.soi_proto.pri_tcp.tcpsi_ini.insi_lport, other.sockets().port);
  EXPECT_EQ(info.pfi.fi_openflags, darwin::DARWIN_FREAD | darwin::DARWIN_FWRITE);
  ASSERT_EQ(descriptors_.socket(other.directory(), other.sockets().local, info), kAnswered);
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_UNIX);
  EXPECT_EQ(info.psi.soi_proto.pri_un.unsi_conn_so, other.sockets().localPeer);
  ASSERT_EQ(descriptors_.socket(other.directory(), other.sockets().unbound, info), kAnswered);
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_INET6);
  EXPECT_EQ(info.psi.soi_protocol, darwin::DARWIN_IPPROTO_TCP);

  EXPECT_EQ(networkOf(self_.get()), ownNetwork) << "this thread has not moved";
  ASSERT_EQ(descriptors_.list(self_.get(), SIZE_MAX, openAfter), kAnswered);
  EXPECT_EQ(openAfter.size(), openBefore.size()) << "nothing keeps the other network";
}

// Neither may a user enter the network that he made himself, as a part of a user namespace.
TEST_F(DescriptorsTest, SocketOfAnotherNetworkHasNoFamilyToUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to give root up";
  constexpr int kLeftOut = 99;
  const auto ask = [] {
    // Who gave up root keeps others from looking at him, his own included.
    if (setgid(65534) != 0 || setuid(65534) != 0 || prctl(PR_SET_DUMPABLE, 1) != 0) return 100;
    const OtherNetwork other([] { return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0; });
    if (!other.isThere()) return kLeftOut;
    Descriptors descriptors;
    darwin::socket_fdinfo info = {};
    info.psi.soi_family = -1;
    if (descriptors.socket(other.directory(), other.sockets().listening, info) != kAnswered) {
      return 101;
    }
    const bool isUnknown =
        info.psi.soi_family == 0 && info.psi.soi_kind == 0 && info.psi.soi_so != 0;
    if (!isUnknown) return 102;
    // Not even whether it is bound can be known of another one.
    if (descriptors.socket(other.directory(), other.sockets().unbound, info) != kAnswered) {
      return 103;
    }
    return info.psi.soi_family == 0 ? 0 : 104;
  };
  const pid_t asker = fork();
  ASSERT_GE(asker, 0);
  if (asker == 0) _exit(ask());
  int status = -1;
  ASSERT_EQ(waitpid(asker, &status, 0), asker);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kLeftOut) GTEST_SKIP() << "user namespaces are not allowed here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(DescriptorsTest, UnixStreamWithPath) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string name = path("socket");
  ASSERT_LT(name.size(), sizeof(address.sun_path));
  strcpy(address.sun_path, name.c_str());
  const Connection connection = connectTo(address);

  const darwin::socket_fdinfo listening = socketInfo(connection.listening.get());
  EXPECT_EQ(listening.psi.soi_family, darwin::DARWIN_AF_UNIX);
  EXPECT_EQ(listening.psi.soi_kind, darwin::SOCKINFO_UN);
  EXPECT_EQ(listening.psi.soi_type, darwin::DARWIN_SOCK_STREAM);
  EXPECT_EQ(listening.psi.soi_options, 0x2);
  EXPECT_EQ(listening.psi.soi_proto.pri_un.unsi_conn_so, 0u);
  EXPECT_STREQ(listening.psi.soi_proto.pri_un.unsi_addr.ua_sun.sun_path, name.c_str());

  const darwin::socket_fdinfo client = socketInfo(connection.client.get());
  EXPECT_EQ(client.psi.soi_proto.pri_un.unsi_conn_so, inodeOf(connection.server.get()));
  EXPECT_STREQ(client.psi.soi_proto.pri_un.unsi_addr.ua_sun.sun_path, "");
  EXPECT_STREQ(client.psi.soi_proto.pri_un.unsi_caddr.ua_sun.sun_path, name.c_str());

  const darwin::socket_fdinfo server = socketInfo(connection.server.get());
  EXPECT_EQ(server.psi.soi_proto.pri_un.unsi_conn_so, client.psi.soi_so);
  EXPECT_STREQ(server.psi.soi_proto.pri_un.unsi_addr.ua_sun.sun_path, name.c_str());
}

TEST_F(DescriptorsTest, UnixAbstractNameAndPair) {
  const Owned abstract(socket(AF_UNIX, SOCK_DGRAM, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string name = "descriptors-" + std::to_string(getpid());
  memcpy(address.sun_path + 1, name.data(), name.size());
  ASSERT_EQ(bind(abstract.get(), reinterpret_cast<sockaddr *>(&address),
                 static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())),
            0);
  const darwin::socket_fdinfo info = socketInfo(abstract.get());
  EXPECT_EQ(info.psi.soi_type, darwin::DARWIN_SOCK_DGRAM);
  EXPECT_EQ(info.psi.soi_proto.pri_un.unsi_addr.ua_sun.sun_path, "@" + name);

  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  const Owned one(ends[0]);
  const Owned other(ends[1]);
  EXPECT_EQ(socketInfo(one.get()).psi.soi_proto.pri_un.unsi_conn_so, inodeOf(other.get()));
  EXPECT_EQ(socketInfo(other.get()).psi.soi_proto.pri_un.unsi_conn_so, inodeOf(one.get()));
}

TEST_F(DescriptorsTest, NetlinkIsAControlSocket) {
  const Owned netlink(socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE));
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  socklen_t size = sizeof(address);
  ASSERT_EQ(bind(netlink.get(), reinterpret_cast<sockaddr *>(&address), size), 0);
  ASSERT_EQ(getsockname(netlink.get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
  const darwin::socket_fdinfo info = socketInfo(netlink.get());
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_SYSTEM);
  EXPECT_EQ(info.psi.soi_protocol, darwin::SYSPROTO_CONTROL);
  EXPECT_EQ(info.psi.soi_kind, darwin::SOCKINFO_KERN_CTL);
  EXPECT_STREQ(info.psi.soi_proto.pri_kern_ctl.kcsi_name, "netlink:route");
  EXPECT_EQ(info.psi.soi_proto.pri_kern_ctl.kcsi_unit, address.nl_pid);
}

TEST_F(DescriptorsTest, SocketOfDeviceEventsIsAControlSocket) {
  const Owned events(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_groups = 1;
  ASSERT_EQ(bind(events.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
  const darwin::socket_fdinfo info = socketInfo(events.get());
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_SYSTEM);
  EXPECT_EQ(info.psi.soi_protocol, darwin::SYSPROTO_CONTROL);
  EXPECT_STREQ(info.psi.soi_proto.pri_kern_ctl.kcsi_name, "netlink:kobject_uevent");
}

// Of families that Darwin lacks, or whose sockets the kernel does not list.
TEST_F(DescriptorsTest, OtherSocketsAreControlSocketsWithTheirName) {
  const int fd = socket(AF_VSOCK, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) GTEST_SKIP() << "there are no sockets between machines here";
  const Owned between(fd);
  const darwin::socket_fdinfo info = socketInfo(fd);
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_SYSTEM);
  EXPECT_EQ(info.psi.soi_protocol, darwin::SYSPROTO_CONTROL);
  EXPECT_STREQ(info.psi.soi_proto.pri_kern_ctl.kcsi_name, "AF_VSOCK");
}

TEST_F(DescriptorsTest, PacketSocketIsOfTheInterfaceFamily) {
  const int fd = socket(AF_PACKET, SOCK_DGRAM, 0);
  if (fd < 0) GTEST_SKIP() << "packet sockets are not allowed here";
  const Owned packet(fd);
  const darwin::socket_fdinfo info = socketInfo(fd);
  EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_NDRV);
  EXPECT_EQ(info.psi.soi_kind, darwin::SOCKINFO_NDRV);
}

TEST_F(DescriptorsTest, SocketYoungerThanTheReadingIsFoundSoon) {
  const Owned first(socket(AF_UNIX, SOCK_STREAM, 0));
  EXPECT_EQ(socketInfo(first.get()).psi.soi_kind, darwin::SOCKINFO_UN);
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const Owned one(ends[0]);
  const Owned other(ends[1]);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  darwin::socket_fdinfo info = {};
  while (info.psi.soi_proto.pri_un.unsi_conn_so == 0 &&
         std::chrono::steady_clock::now() < deadline) {
    info = {};
    ASSERT_EQ(descriptors_.socket(self_.get(), one.get(), info), kAnswered);
    EXPECT_EQ(info.psi.soi_family, darwin::DARWIN_AF_UNIX);
    std::this_thread::yield();
  }
  EXPECT_EQ(info.psi.soi_proto.pri_un.unsi_conn_so, inodeOf(other.get()));
}

TEST_F(DescriptorsTest, EpollRegistrationsAreReadAndWriteFilters) {
  const Owned epoll(epoll_create1(EPOLL_CLOEXEC));
  EXPECT_TRUE(events(epoll.get()).empty());
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const Owned one(ends[0]);
  const Owned other(ends[1]);
  epoll_event both = {};
  both.events = EPOLLIN | EPOLLOUT;
  both.data.u64 = 0xfedcba9876543210;
  epoll_event edge = {};
  edge.events = EPOLLIN | EPOLLET;
  edge.data.u64 = 5;
  ASSERT_EQ(epoll_ctl(epoll.get(), EPOLL_CTL_ADD, one.get(), &both), 0);
  ASSERT_EQ(epoll_ctl(epoll.get(), EPOLL_CTL_ADD, other.get(), &edge), 0);

  std::vector<darwin::kevent_extinfo> registered = events(epoll.get());
  ASSERT_EQ(registered.size(), 3u);
  const auto find = [&](int fd, int16_t filter) {
    return std::find_if(registered.begin(), registered.end(), [&](const auto &event) {
      return event.kqext_kev.ident == static_cast<uint64_t>(fd) && event.kqext_kev.filter == filter;
    });
  };
  const auto reads = find(one.get(), darwin::EVFILT_READ);
  const auto writes = find(one.get(), darwin::EVFILT_WRITE);
  const auto edges = find(other.get(), darwin::EVFILT_READ);
  ASSERT_NE(reads, registered.end());
  ASSERT_NE(writes, registered.end());
  ASSERT_NE(edges, registered.end());
  EXPECT_EQ(reads->kqext_kev.udata, 0xfedcba9876543210u);
  EXPECT_EQ(writes->kqext_kev.udata, 0xfedcba9876543210u);
  EXPECT_EQ(reads->kqext_kev.flags, 0);
  EXPECT_EQ(edges->kqext_kev.udata, 5u);
  EXPECT_EQ(edges->kqext_kev.flags, darwin::EV_CLEAR);
}

TEST_F(DescriptorsTest, EpollWithManyRegistrations) {
  constexpr size_t kMany = 300;
  const Owned epoll(epoll_create1(0));
  std::vector<Owned> watched;
  for (size_t i = 0; i < kMany; i++) {
    watched.emplace_back(eventfd(0, 0));
    epoll_event event = {};
    event.events = EPOLLIN;
    ASSERT_EQ(epoll_ctl(epoll.get(), EPOLL_CTL_ADD, watched.back().get(), &event), 0);
  }
  EXPECT_EQ(events(epoll.get()).size(), kMany);
}

TEST_F(DescriptorsTest, SingleEventQueues) {
  const Owned event(eventfd(42, EFD_NONBLOCK));
  std::vector<darwin::kevent_extinfo> registered = events(event.get());
  ASSERT_EQ(registered.size(), 1u);
  EXPECT_EQ(registered[0].kqext_kev.filter, darwin::EVFILT_USER);
  EXPECT_EQ(registered[0].kqext_kev.ident, static_cast<uint64_t>(event.get()));
  EXPECT_EQ(registered[0].kqext_kev.data, 42);
  darwin::kqueue_fdinfo info = {};
  ASSERT_EQ(descriptors_.kqueue(self_.get(), event.get(), info), kAnswered);
  EXPECT_EQ(info.pfi.fi_openflags,
            darwin::DARWIN_FREAD | darwin::DARWIN_FWRITE | darwin::DARWIN_O_NONBLOCK);

  const Owned timer(timerfd_create(CLOCK_MONOTONIC, 0));
  registered = events(timer.get());
  ASSERT_EQ(registered.size(), 1u);
  EXPECT_EQ(registered[0].kqext_kev.filter, darwin::EVFILT_TIMER);
  EXPECT_EQ(registered[0].kqext_kev.ident, static_cast<uint64_t>(timer.get()));

  const Owned process(static_cast<int>(__real_syscall(SYS_pidfd_open, getpid(), 0)));
  registered = events(process.get());
  ASSERT_EQ(registered.size(), 1u);
  EXPECT_EQ(registered[0].kqext_kev.filter, darwin::EVFILT_PROC);
  EXPECT_EQ(registered[0].kqext_kev.ident, static_cast<uint64_t>(getpid()));
}

TEST_F(DescriptorsTest, SignalQueueHasDarwinNumbers) {
  sigset_t mask;
  sigemptyset(&mask);
  // SIGPWR and real-time signals are Linux's alone.
  for (const int signal : {SIGHUP, SIGBUS, SIGUSR1, SIGCHLD, SIGSYS, SIGPWR, SIGRTMIN}) {
    sigaddset(&mask, signal);
  }
  const Owned queue(signalfd(-1, &mask, SFD_CLOEXEC));
  std::vector<uint64_t> signals;
  for (const darwin::kevent_extinfo &event : events(queue.get())) {
    EXPECT_EQ(event.kqext_kev.filter, darwin::EVFILT_SIGNAL);
    signals.push_back(event.kqext_kev.ident);
  }
  std::sort(signals.begin(), signals.end());
  EXPECT_EQ(signals, (std::vector<uint64_t>{darwin::DARWIN_SIGHUP, darwin::DARWIN_SIGBUS,
                                            darwin::DARWIN_SIGSYS, darwin::DARWIN_SIGCHLD,
                                            darwin::DARWIN_SIGUSR1}));
}

TEST_F(DescriptorsTest, SharedMemory) {
  const Owned memory(memfd_create("a name", MFD_CLOEXEC));
  ASSERT_EQ(ftruncate(memory.get(), 12345), 0);
  darwin::pshm_fdinfo info = {};
  EXPECT_EQ(type(memory.get()), darwin::PROX_FDTYPE_PSHM);
  ASSERT_EQ(descriptors_.sharedMemory(self_.get(), memory.get(), info), kAnswered);
  EXPECT_STREQ(info.pshminfo.pshm_name, "a name");
  EXPECT_EQ(info.pshminfo.pshm_stat.vst_size, 12345);
  EXPECT_EQ(info.pshminfo.pshm_stat.vst_uid, getuid());
  EXPECT_EQ(info.pfi.fi_type, 3);
  EXPECT_EQ(info.pfi.fi_status, darwin::PROC_FP_CLEXEC);

  const std::string name = "/descriptors-" + std::to_string(getpid());
  const Owned shared(shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
  ASSERT_EQ(descriptors_.sharedMemory(self_.get(), shared.get(), info), kAnswered);
  EXPECT_EQ(info.pshminfo.pshm_name, name);
  EXPECT_EQ(info.pshminfo.pshm_stat.vst_mode & 0777, 0600);
  EXPECT_EQ(shm_unlink(name.c_str()), 0);
  ASSERT_EQ(descriptors_.sharedMemory(self_.get(), shared.get(), info), kAnswered);
  EXPECT_EQ(info.pshminfo.pshm_name, name + " (deleted)");
}

TEST_F(DescriptorsTest, SharedMemoryKnowsWhereItIsMapped) {
  const Owned memory(memfd_create("mapped", MFD_CLOEXEC));
  const Owned other(memfd_create("mapped", MFD_CLOEXEC));
  constexpr size_t kPage = 4096;
  ASSERT_EQ(ftruncate(memory.get(), 4 * kPage), 0);
  const auto address = [&](int fd) {
    darwin::pshm_fdinfo info = {};
    EXPECT_EQ(descriptors_.sharedMemory(self_.get(), fd, info), kAnswered);
    return info.pshminfo.pshm_mappaddr;
  };
  EXPECT_EQ(address(memory.get()), 0u);

  void *whole = mmap(nullptr, 4 * kPage, PROT_READ, MAP_SHARED, memory.get(), 0);
  ASSERT_NE(whole, MAP_FAILED);
  void *part = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), kPage);
  ASSERT_NE(part, MAP_FAILED);
  const auto lowest = reinterpret_cast<uint64_t>(std::min(whole, part));
  // A reading of the mappings is used for a moment.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (address(memory.get()) != lowest && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  EXPECT_EQ(address(memory.get()), lowest);
  EXPECT_EQ(address(other.get()), 0u) << "another object of the same name";

  // Another process's mappings are its own.
  int ready[2];
  ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
  const Owned reading(ready[0]);
  Owned writing(ready[1]);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    munmap(whole, 4 * kPage);
    munmap(part, kPage);
    _exit(write(ready[1], "r", 1) == 1 && pause() ? 0 : 1);
  }
  char word = 0;
  EXPECT_EQ(read(reading.get(), &word, 1), 1);
  const Owned process(open(("/proc/" + std::to_string(child)).c_str(), O_RDONLY | O_DIRECTORY));
  darwin::pshm_fdinfo info = {};
  EXPECT_EQ(descriptors_.sharedMemory(process.get(), memory.get(), info), kAnswered);
  EXPECT_EQ(info.pshminfo.pshm_mappaddr, 0u);
  EXPECT_STREQ(info.pshminfo.pshm_name, "mapped");
  __real_kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(address(memory.get()), lowest);
  munmap(whole, 4 * kPage);
  munmap(part, kPage);
}

TEST_F(DescriptorsTest, WatchesAreFileSystemEvents) {
  const Owned watch(inotify_init1(IN_CLOEXEC));
  EXPECT_EQ(type(watch.get()), darwin::PROX_FDTYPE_FSEVENTS);
  darwin::pipe_fdinfo info = {};
  EXPECT_EQ(descriptors_.pipe(self_.get(), watch.get(), info), darwin::DARWIN_EBADF);
}

// Every question, with whether it left its answer alone.
using DescriptorQuestion =
    std::function<std::pair<Errno, bool>(Descriptors &, int directory, int fd)>;

template <typename Info>
DescriptorQuestion ask(Errno (Descriptors::*question)(int, int, Info &)) {
  return [question](Descriptors &descriptors, int directory, int fd) {
    Info info;
    memset(&info, 0xa5, sizeof(info));
    Info before;
    memcpy(&before, &info, sizeof(info));
    const Errno error = (descriptors.*question)(directory, fd, info);
    return std::pair(error, memcmp(&before, &info, sizeof(info)) == 0);
  };
}

std::pair<Errno, bool> askEvents(Descriptors &descriptors, int directory, int fd) {
  std::vector<darwin::kevent_extinfo> events(3);
  const Errno error = descriptors.kqueueEvents(directory, fd, events);
  return {error, events.size() == 3};
}

std::vector<DescriptorQuestion> allQuestions() {
  return {ask(&Descriptors::vnode),        ask(&Descriptors::socket),
          ask(&Descriptors::semaphore),    ask(&Descriptors::pipe),
          ask(&Descriptors::sharedMemory), ask(&Descriptors::kqueue),
          ask(&Descriptors::type),         askEvents};
}

TEST_F(DescriptorsTest, OtherTypesAreRefused) {
  const Owned file(open("/dev/null", O_RDONLY));
  const Owned local(socket(AF_UNIX, SOCK_STREAM, 0));
  const int self = self_.get();
  using Answer = std::pair<Errno, bool>;
  const Answer badFile(darwin::DARWIN_EBADF, true);
  const Answer notSocket(darwin::DARWIN_ENOTSOCK, true);
  EXPECT_EQ(ask(&Descriptors::socket)(descriptors_, self, file.get()), notSocket);
  EXPECT_EQ(ask(&Descriptors::pipe)(descriptors_, self, file.get()), badFile);
  EXPECT_EQ(ask(&Descriptors::kqueue)(descriptors_, self, file.get()), badFile);
  EXPECT_EQ(ask(&Descriptors::sharedMemory)(descriptors_, self, file.get()), badFile);
  EXPECT_EQ(ask(&Descriptors::semaphore)(descriptors_, self, file.get()), badFile);
  EXPECT_EQ(askEvents(descriptors_, self, file.get()), badFile);
  EXPECT_EQ(ask(&Descriptors::vnode)(descriptors_, self, local.get()), badFile);
}

TEST_F(DescriptorsTest, ClosedDescriptorIsBad) {
  Owned file(open("/dev/null", O_RDONLY));
  const int number = file.get();
  std::vector<darwin::proc_fdinfo> list;
  ASSERT_EQ(descriptors_.list(self_.get(), 1000, list), kAnswered);
  ASSERT_TRUE(std::any_of(list.begin(), list.end(),
                          [&](const auto &entry) { return entry.proc_fd == number; }));
  file.reset();
  for (const DescriptorQuestion &question : allQuestions()) {
    for (const int fd : {number, -1, INT32_MIN, INT32_MAX}) {
      EXPECT_EQ(question(descriptors_, self_.get(), fd), std::pair(darwin::DARWIN_EBADF, true));
    }
  }
}

TEST_F(DescriptorsTest, ProcessThatIsGoneOrAZombie) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(0);
  const Owned process(open(("/proc/" + std::to_string(child)).c_str(), O_RDONLY | O_DIRECTORY));
  const auto refuses = [&](const char *when) {
    for (const DescriptorQuestion &question : allQuestions()) {
      EXPECT_EQ(question(descriptors_, process.get(), 0), std::pair(darwin::DARWIN_ESRCH, true))
          << when;
    }
    std::vector<darwin::proc_fdinfo> list(2);
    EXPECT_EQ(descriptors_.list(process.get(), 100, list), darwin::DARWIN_ESRCH) << when;
    EXPECT_EQ(list.size(), 2u) << when;
  };
  siginfo_t ended = {};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
  refuses("zombie");
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  refuses("gone");
}

// How many a kernel says that there are to those who may not list them; 0 on one that does not.
size_t countOfDescriptors(int process) {
  struct stat directory = {};
  return fstatat(process, "fd", &directory, 0) == 0 ? static_cast<size_t>(directory.st_size) : 0;
}

TEST_F(DescriptorsTest, OtherUsersDescriptorsAreOnlyCounted) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to give root up";
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // The parent belongs to root; the answer is the exit status.
    const int parent = open(("/proc/" + std::to_string(getppid())).c_str(), O_RDONLY | O_DIRECTORY);
    if (parent < 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(100);
    Descriptors descriptors;
    std::vector<darwin::proc_fdinfo> list;
    const Errno error = descriptors.list(parent, 1000, list);
    const size_t count = countOfDescriptors(parent);
    if (error != (count > 0 ? kAnswered : darwin::DARWIN_EPERM) || list.size() != count) _exit(101);
    for (const darwin::proc_fdinfo &entry : list) {
      if (entry.proc_fd != -1 || entry.proc_fdtype != darwin::PROX_FDTYPE_VNODE) _exit(102);
    }
    if (count > 1 && (descriptors.list(parent, 2, list) != kAnswered || list.size() != 2)) {
      _exit(103);
    }
    for (const DescriptorQuestion &question : allQuestions()) {
      if (question(descriptors, parent, 0) != std::pair(darwin::DARWIN_EPERM, true)) _exit(104);
    }
    darwin::vnode_fdinfowithpath info;
    if (descriptors.vnode(parent, -1, info) != darwin::DARWIN_EPERM) _exit(105);
    _exit(0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(DescriptorsTest, ListsInOrderUpToTheLimit) {
  std::vector<Owned> files;
  for (int i = 0; i < 300; i++) {
    files.emplace_back(i % 2 == 0 ? open("/dev/null", O_RDONLY) : eventfd(0, 0));
  }
  std::vector<darwin::proc_fdinfo> all;
  ASSERT_EQ(descriptors_.list(self_.get(), SIZE_MAX, all), kAnswered);
  EXPECT_GE(all.size(), 301u);
  for (size_t i = 1; i < all.size(); i++) EXPECT_LT(all[i - 1].proc_fd, all[i].proc_fd);
  for (size_t i = 0; i < files.size(); i++) {
    const auto entry = std::find_if(all.begin(), all.end(), [&](const auto &candidate) {
      return candidate.proc_fd == files[i].get();
    });
    ASSERT_NE(entry, all.end());
    EXPECT_EQ(entry->proc_fdtype,
              i % 2 == 0 ? darwin::PROX_FDTYPE_VNODE : darwin::PROX_FDTYPE_KQUEUE);
  }
  // What the listing itself opens is not in it.
  for (const darwin::proc_fdinfo &entry : all) EXPECT_EQ(fcntl(entry.proc_fd, F_GETFD) < 0, false);
  for (const size_t limit : {size_t{128}, size_t{1}, size_t{0}}) {
    std::vector<darwin::proc_fdinfo> first;
    ASSERT_EQ(descriptors_.list(self_.get(), limit, first), kAnswered);
    ASSERT_EQ(first.size(), limit);
    for (size_t i = 0; i < limit; i++) EXPECT_EQ(first[i].proc_fd, all[i].proc_fd);
  }
}

TEST_F(DescriptorsTest, LeavesNothingOpen) {
  const Owned local(socket(AF_UNIX, SOCK_STREAM, 0));
  const Owned epoll(epoll_create1(0));
  std::vector<darwin::proc_fdinfo> before;
  {
    Descriptors descriptors;
    ASSERT_EQ(descriptors_.list(self_.get(), SIZE_MAX, before), kAnswered);
    for (int round = 0; round < 20; round++) {
      descriptors.beginPass();
      std::vector<darwin::proc_fdinfo> list;
      ASSERT_EQ(descriptors.list(self_.get(), SIZE_MAX, list), kAnswered);
      for (const DescriptorQuestion &question : allQuestions()) {
        for (const darwin::proc_fdinfo &entry : list) {
          question(descriptors, self_.get(), entry.proc_fd);
        }
      }
      // What is kept between passes is one socket at most, not for heirs.
      std::vector<darwin::proc_fdinfo> now;
      ASSERT_EQ(descriptors_.list(self_.get(), SIZE_MAX, now), kAnswered);
      EXPECT_LE(now.size(), before.size() + 1);
      for (const darwin::proc_fdinfo &entry : now) {
        const bool known = std::any_of(before.begin(), before.end(), [&](const auto &old) {
          return old.proc_fd == entry.proc_fd;
        });
        if (!known) {
          EXPECT_NE(fcntl(entry.proc_fd, F_GETFD) & FD_CLOEXEC, 0) << entry.proc_fd;
        }
      }
    }
  }
  std::vector<darwin::proc_fdinfo> after;
  ASSERT_EQ(descriptors_.list(self_.get(), SIZE_MAX, after), kAnswered);
  ASSERT_EQ(after.size(), before.size());
  for (size_t i = 0; i < after.size(); i++) EXPECT_EQ(after[i].proc_fd, before[i].proc_fd);
}

}  // namespace
}  // namespace host::linux_machine
