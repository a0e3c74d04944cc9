// Kernel control sockets as a program meets them: socket(), ioctl(), connect(), and datagrams to
// and from the service's thread.
#include <errno.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <set>

#include "darwin/kernel_control.h"
#include "host/darwin/errors.h"
#include "host/darwin/ntstat.h"
#include "tests/unit/network_machine.h"

namespace darwin {
namespace {

using entry_test::makeSource;
using entry_test::NetworkTest;

constexpr int kSystem = 32;
constexpr int kDatagram = 2;
constexpr int kControl = 2;

class ControlSocket : public NetworkTest {
 protected:
  ControlSocket() : control(socket(kSystem, kDatagram, kControl)) {}
  // The service's thread asks the machine: it has to have ended before the machine does.
  ~ControlSocket() override {
    if (connected) {
      shutdown(control, SHUT_WR);
      while (read(control, buffer, sizeof buffer) > 0) {
      }
    }
    if (control >= 0) close(control);
  }

  static ctl_info info(const char *name) {
    ctl_info made{};
    std::strncpy(made.ctl_name, name, sizeof made.ctl_name);
    return made;
  }

  int connectTo(uint32_t id, socklen_t size = sizeof(sockaddr_ctl), uint8_t ownLength = 32) {
    sockaddr_ctl address{};
    address.sc_len = ownLength;
    address.sc_family = kSystem;
    address.ss_sysaddr = AF_SYS_CONTROL;
    address.sc_id = id;
    errno = 0;
    const int result = connect(control, reinterpret_cast<sockaddr *>(&address), size);
    connected = connected || result == 0;
    return result;
  }

  uint32_t serviceID() {
    ctl_info asked = info(NET_STAT_CONTROL_NAME);
    EXPECT_EQ(ioctl(control, CTLIOCGINFO, &asked), 0);
    return asked.ctl_id;
  }

  void send(uint32_t type, uint32_t word) const {
    nstat_msg_query_src_req request{};
    request.hdr.context = 9;
    request.hdr.type = type;
    request.srcref = word;
    EXPECT_EQ(write(control, &request, sizeof request), 20);
  }

  // Type of the next message.
  uint32_t next() {
    length = read(control, buffer, sizeof buffer);
    EXPECT_GE(length, 16);
    uint32_t type = 0;
    std::memcpy(&type, buffer + 8, sizeof type);
    return type;
  }

  int control;
  bool connected = false;
  ssize_t length = 0;
  uint8_t buffer[512]{};
};

TEST_F(ControlSocket, InfoGivesAnIDForTheName) {
  ASSERT_GE(control, 0);
  EXPECT_NE(serviceID(), 0u);
  EXPECT_EQ(errno, 0);
}

TEST_F(ControlSocket, InfoOfOtherNames) {
  ctl_info unknown = info("com.example.none");
  EXPECT_EQ(ioctl(control, 0xC0644E03, &unknown), -1);
  EXPECT_EQ(errno, DARWIN_ENOENT);
  ctl_info longest{};
  std::memset(longest.ctl_name, 'n', sizeof longest.ctl_name);
  EXPECT_EQ(ioctl(control, CTLIOCGINFO, &longest), -1);
  EXPECT_EQ(errno, DARWIN_ENOENT);
  ctl_info empty{};
  EXPECT_EQ(ioctl(control, CTLIOCGINFO, &empty), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(ioctl(control, CTLIOCGINFO, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  machine.service = DARWIN_ENOTSUP;
  ctl_info missing = info(NET_STAT_CONTROL_NAME);
  EXPECT_EQ(ioctl(control, CTLIOCGINFO, &missing), -1);
  EXPECT_EQ(errno, DARWIN_ENOENT) << "a kernel without the service";
}

TEST_F(ControlSocket, ConnectChecksTheAddress) {
  const uint32_t id = serviceID();
  EXPECT_EQ(connectTo(id, 31), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(connectTo(id, 16), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(connectTo(id, 32, 16), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(connectTo(id + 1), -1);
  EXPECT_EQ(errno, DARWIN_ENOENT);
  EXPECT_EQ(connect(control, nullptr, 32), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  EXPECT_EQ(connectTo(id), 0);
  EXPECT_EQ(connectTo(id), -1);
  EXPECT_EQ(errno, DARWIN_EISCONN);
}

TEST_F(ControlSocket, ConnectIsRefusedWhereTheMachineRefuses) {
  const uint32_t id = serviceID();
  machine.service = DARWIN_EBUSY;
  EXPECT_EQ(serviceID(), id) << "a service that is taken is there";
  EXPECT_EQ(connectTo(id), -1);
  EXPECT_EQ(errno, DARWIN_EBUSY);
  machine.service = DARWIN_EPERM;
  EXPECT_EQ(connectTo(id), -1);
  EXPECT_EQ(errno, DARWIN_EPERM);
}

TEST_F(ControlSocket, AStreamIsOfTheWrongType) {
  const uint32_t id = serviceID();
  close(control);
  control = socket(kSystem, SOCK_STREAM, kControl);
  ASSERT_GE(control, 0);
  EXPECT_EQ(connectTo(id), -1);
  EXPECT_EQ(errno, DARWIN_EPROTOTYPE);
  EXPECT_EQ(socket(kSystem, SOCK_RAW, kControl), -1);
  EXPECT_EQ(errno, DARWIN_EPROTOTYPE);
}

TEST_F(ControlSocket, CanNotBeReadBeforeItIsConnected) {
  EXPECT_EQ(read(control, buffer, sizeof buffer), -1);
  EXPECT_EQ(errno, ENOTCONN);
}

TEST_F(ControlSocket, KeepsItsNumberAndIsNotInherited) {
  const int number = control;
  ASSERT_EQ(connectTo(serviceID()), 0);
  EXPECT_EQ(control, number);
  EXPECT_EQ(fcntl(control, F_GETFD), FD_CLOEXEC);
}

TEST_F(ControlSocket, TheServiceAnswersEachRequestInItsOwnDatagram) {
  machine.setSources({makeSource(10, 5, 100, 200), makeSource(11, 6, 300, 400)});
  ASSERT_EQ(connectTo(serviceID()), 0);
  send(NSTAT_MSG_TYPE_ADD_ALL_SRCS, 2);
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_SRC_ADDED);
  EXPECT_EQ(length, 24);
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_SRC_ADDED);
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_SUCCESS);
  EXPECT_EQ(length, 16);
  send(NSTAT_MSG_TYPE_GET_SRC_DESC, 2);
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_SRC_DESC);
  EXPECT_EQ(length, 276);
}

TEST_F(ControlSocket, ADatagramThatDoesNotFitIsCut) {
  machine.setSources({makeSource(10, 5, 100, 200)});
  ASSERT_EQ(connectTo(serviceID()), 0);
  send(NSTAT_MSG_TYPE_ADD_ALL_SRCS, 2);
  EXPECT_EQ(read(control, buffer, 10), 10);
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_SUCCESS);
}

TEST_F(ControlSocket, GarbageEndsNothing) {
  ASSERT_EQ(connectTo(serviceID()), 0);
  const std::vector<uint8_t> large(4096, 0xff);
  EXPECT_EQ(write(control, large.data(), 0), 0);
  EXPECT_EQ(write(control, large.data(), 3), 3);
  EXPECT_EQ(write(control, large.data(), large.size()), static_cast<ssize_t>(large.size()));
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_ERROR);
  const std::vector<uint8_t> larger(20000, 0xff);
  EXPECT_EQ(write(control, larger.data(), larger.size()), 20000) << "more than is listened to";
  send(NSTAT_MSG_TYPE_ADD_ALL_SRCS, 3);
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_SUCCESS);
}

// Numbers of the device: SOL_SOCKET and SO_RCVBUF.
constexpr int kLevel = 0xFFFF;
constexpr int kReceiveBuffer = 0x1002;

class FullControlSocket : public ControlSocket {
 protected:
  FullControlSocket() {
    std::vector<host::NetworkSource> sources;
    for (uint32_t i = 1; i <= kSources; i++) sources.push_back(makeSource(i, 5, i, i));
    machine.setSources(sources);
  }

  int setQueue(int bytes) const {
    return setsockopt(control, kLevel, kReceiveBuffer, &bytes, sizeof bytes);
  }

  // How many messages of a type come before "success".
  uint32_t countUntilSuccess(uint32_t type) {
    uint32_t count = 0;
    for (uint32_t each = next(); each != NSTAT_MSG_TYPE_SUCCESS; each = next()) {
      EXPECT_EQ(each, type);
      count++;
    }
    return count;
  }

  static constexpr uint32_t kSources = 3000;
};

// 256 "added" of 24 bytes leave 2,048 of 8,192, so that one more finds room.
TEST_F(FullControlSocket, WhatIsTooMuchIsNotToldOf) {
  ASSERT_EQ(setQueue(1 << 20), 0);
  ASSERT_EQ(connectTo(serviceID()), 0) << "which sets its queue to 8,192 bytes";
  send(NSTAT_MSG_TYPE_ADD_ALL_SRCS, 2);
  EXPECT_EQ(countUntilSuccess(NSTAT_MSG_TYPE_SRC_ADDED), 257u);
  // All of that was read, so there is as much room again: 47 counts of 132 bytes leave 1,988.
  send(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  EXPECT_EQ(countUntilSuccess(NSTAT_MSG_TYPE_SRC_COUNTS), 47u);
}

TEST_F(FullControlSocket, ALargerQueueHoldsMore) {
  ASSERT_EQ(connectTo(serviceID()), 0);
  ASSERT_EQ(setQueue(1 << 20), 0);
  send(NSTAT_MSG_TYPE_ADD_ALL_SRCS, 2);
  send(NSTAT_MSG_TYPE_QUERY_SRC, NSTAT_SRC_REF_ALL);
  // More requests than fit, too: the service takes them while it has answers to give.
  for (uint32_t i = 1; i <= 1000; i++) send(NSTAT_MSG_TYPE_GET_SRC_DESC, i);
  EXPECT_EQ(countUntilSuccess(NSTAT_MSG_TYPE_SRC_ADDED), 3000u);
  EXPECT_EQ(countUntilSuccess(NSTAT_MSG_TYPE_SRC_COUNTS), 3000u);
  for (uint32_t i = 0; i < 1000; i++) ASSERT_EQ(next(), NSTAT_MSG_TYPE_SRC_DESC);
}

TEST_F(ControlSocket, ASizeOfItsQueueThatCanNotBe) {
  ASSERT_EQ(connectTo(serviceID()), 0);
  const auto errorOf = [this](int bytes, socklen_t size = sizeof(int)) {
    errno = 0;
    EXPECT_EQ(setsockopt(control, kLevel, kReceiveBuffer, &bytes, size), -1) << bytes;
    return errno;
  };
  EXPECT_EQ(errorOf(0), DARWIN_EINVAL);
  EXPECT_EQ(errorOf(-1), DARWIN_EINVAL);
  EXPECT_EQ(errorOf(65536, 3), DARWIN_EINVAL);
  EXPECT_EQ(errorOf(8 << 20), DARWIN_ENOBUFS);
  EXPECT_EQ(setsockopt(control, kLevel, kReceiveBuffer, nullptr, sizeof(int)), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  // This system's own numbers mean nothing to it.
  const int bytes = 65536;
  EXPECT_EQ(setsockopt(control, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes), -1);
  EXPECT_EQ(errno, 42);
}

TEST_F(ControlSocket, SpeaksAsTheKernelThatThePresentedVersionNames) {
  machine.setSources({makeSource(10, 5, 100, 200)});
  machine.present(4903);
  ASSERT_EQ(connectTo(serviceID()), 0);
  send(NSTAT_MSG_TYPE_ADD_ALL_SRCS, 2);
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_ERROR) << "20 bytes are too few";
  EXPECT_EQ(length, 44);
  uint8_t request[56] = {9, 0, 0, 0, 0, 0, 0, 0, 0xea, 3};
  request[32] = 2;
  EXPECT_EQ(write(control, request, sizeof request), 56);
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_SRC_ADDED);
  EXPECT_EQ(length, 32);
  EXPECT_EQ(next(), NSTAT_MSG_TYPE_SUCCESS);
}

TEST_F(ControlSocket, TheServiceEndsWithItsClient) {
  ASSERT_EQ(connectTo(serviceID()), 0);
  shutdown(control, SHUT_WR);
  EXPECT_EQ(read(control, buffer, sizeof buffer), 0);
  EXPECT_EQ(read(control, buffer, sizeof buffer), 0);
}

TEST_F(ControlSocket, OtherSocketsAreThisSystems) {
  // A number that was a control socket's and is now another's.
  const int before = control;
  close(control);
  control = socket(AF_INET, SOCK_DGRAM, 0);
  ASSERT_EQ(control, before);
  ctl_info asked = info(NET_STAT_CONTROL_NAME);
  EXPECT_EQ(ioctl(control, CTLIOCGINFO, &asked), -1);
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(connectTo(1), -1);
  EXPECT_NE(errno, DARWIN_ENOENT);
  int waiting = -1;
  EXPECT_EQ(ioctl(control, FIONREAD, &waiting), 0);
  EXPECT_EQ(waiting, 0);
  const int bytes = 70000;
  EXPECT_EQ(setsockopt(control, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes), 0);
  int granted = 0;
  socklen_t size = sizeof granted;
  EXPECT_EQ(getsockopt(control, SOL_SOCKET, SO_RCVBUF, &granted, &size), 0);
  EXPECT_EQ(granted, 140000);
  EXPECT_EQ(ioctl(-1, CTLIOCGINFO, &asked), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(socket(kSystem, kDatagram, 1), -1);
}

}  // namespace
}  // namespace darwin
