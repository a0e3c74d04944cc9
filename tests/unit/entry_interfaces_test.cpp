// The interface list and the requests to Wi-Fi interfaces, at the calls that a program makes.
#include <errno.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "darwin/sysctl.h"
#include "host/darwin/errors.h"
#include "host/darwin/interfaces.h"
#include "tests/unit/network_machine.h"

namespace darwin {
namespace {

using entry_test::NetworkTest;

class InterfaceList : public NetworkTest {
 protected:
  InterfaceList() {
    host::NetworkInterface first;
    first.name = "en0";
    first.index = 4;
    first.type = IFT_ETHER;
    first.flags = 0x8863;
    first.mtu = 1500;
    first.speed = 1000000000;
    first.receivedPackets = 11;
    first.receivedErrors = 12;
    first.receivedBytes = 0x123456789aULL;
    first.receivedMulticasts = 13;
    first.droppedOnInput = 14;
    first.sentPackets = 15;
    first.sentErrors = 16;
    first.sentBytes = 17;
    first.collisions = 18;
    host::NetworkInterface second;
    second.name = "interface-names";  // the longest
    second.index = 5;
    second.type = IFT_LOOP;
    machine.links = {first, second};
  }

  int read(void *to, size_t *room, void *newValue = nullptr) {
    errno = 0;
    return sysctl(name, 6, to, room, newValue, 0);
  }

  template <typename T>
  T at(size_t offset) const {
    T value;
    std::memcpy(&value, list + offset, sizeof value);
    return value;
  }

  int name[6] = {4, 17, 0, 0, 6, 0};
  uint8_t list[1024]{};
  size_t length = sizeof list;
};

TEST_F(InterfaceList, SizeIsExact) {
  ASSERT_EQ(read(nullptr, &length), 0);
  EXPECT_EQ(length, 160u + 20 + 160 + 24);
  ASSERT_EQ(read(list, &length), 0);
  EXPECT_EQ(length, 364u);
  EXPECT_EQ(errno, 0);
  length = 363;
  EXPECT_EQ(read(list, &length), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
}

TEST_F(InterfaceList, IsARunOfMessages) {
  ASSERT_EQ(read(list, &length), 0);
  EXPECT_EQ(at<uint16_t>(0), 180u);
  EXPECT_EQ(at<uint8_t>(2), 5u);
  EXPECT_EQ(at<uint8_t>(3), 18u);
  EXPECT_EQ(at<uint32_t>(8), 0x8863u);
  EXPECT_EQ(at<uint16_t>(12), 4u);
  EXPECT_EQ(at<uint8_t>(32), 6u);
  EXPECT_EQ(at<uint32_t>(40), 1500u);
  EXPECT_EQ(at<uint64_t>(48), 1000000000u);
  EXPECT_EQ(at<uint64_t>(56), 11u);
  EXPECT_EQ(at<uint64_t>(64), 12u);
  EXPECT_EQ(at<uint64_t>(72), 15u);
  EXPECT_EQ(at<uint64_t>(80), 16u);
  EXPECT_EQ(at<uint64_t>(88), 18u);
  EXPECT_EQ(at<uint64_t>(96), 0x123456789aULL);
  EXPECT_EQ(at<uint64_t>(104), 17u);
  EXPECT_EQ(at<uint64_t>(112), 13u);
  EXPECT_EQ(at<uint64_t>(128), 14u);
  const uint8_t address[] = {20, 18, 4, 0, 6, 3, 0, 0, 'e', 'n', '0', 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(list + 160, address, sizeof address), 0);

  EXPECT_EQ(at<uint16_t>(180), 184u);
  EXPECT_EQ(at<uint8_t>(180 + 32), 24u);
  EXPECT_EQ(at<uint8_t>(340), 24u);
  EXPECT_EQ(at<uint8_t>(345), 15u);
  EXPECT_EQ(std::memcmp(list + 348, "interface-names\0", 16), 0);
}

TEST_F(InterfaceList, AMachineWithoutInterfaces) {
  machine.links.clear();
  ASSERT_EQ(read(nullptr, &length), 0);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(read(list, &length), 0);
}

TEST_F(InterfaceList, Failures) {
  machine.interfacesRefusal = DARWIN_ENOTSUP;
  EXPECT_EQ(read(nullptr, &length), -1);
  EXPECT_EQ(errno, DARWIN_ENOENT);
  machine.interfacesRefusal = DARWIN_EIO;
  EXPECT_EQ(read(list, &length), -1);
  EXPECT_EQ(errno, DARWIN_EIO);
  machine.throws = true;
  EXPECT_EQ(read(list, &length), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  machine.throws = false;
  int value = 0;
  EXPECT_EQ(read(list, &length, &value), -1);
  EXPECT_EQ(errno, DARWIN_EPERM);
  name[4] = 3;
  EXPECT_EQ(read(list, &length), -1);
  EXPECT_EQ(errno, DARWIN_ENOENT);
}

class WirelessRequest : public NetworkTest {
 protected:
  WirelessRequest() : fd(socket(AF_INET, SOCK_DGRAM, 0)) {
    host::WirelessNetwork network;
    network.connected = true;
    network.name = "Cafe";
    network.channel = 36;
    network.channelFlags = 16;
    network.radios = {-61, -58};
    network.signal = -55;
    machine.wireless["en0"] = network;
    std::memset(reply, 0x5a, sizeof reply);
  }
  ~WirelessRequest() override { close(fd); }

  int ask(uint32_t type, uint32_t length, const char *interface = "en0") {
    request = {};
    std::memcpy(request.req_if_name, interface, strnlen(interface, 16));
    request.req_type = type;
    request.req_len = length;
    request.req_data = reply;
    errno = 0;
    return ioctl(fd, 0xC02869C9, &request);
  }

  int32_t word(size_t offset) const {
    int32_t value = 0;
    std::memcpy(&value, reply + offset, sizeof value);
    return value;
  }

  int fd;
  apple80211req request{};
  uint8_t reply[64];
};

TEST_F(WirelessRequest, Name) {
  ASSERT_EQ(ask(1, 50), 0);
  EXPECT_EQ(request.req_len, 4u);
  EXPECT_EQ(std::memcmp(reply, "Cafe\x5a", 5), 0);
  ASSERT_EQ(ask(1, 2), 0);
  EXPECT_EQ(request.req_len, 2u);
  machine.wireless["en0"].name = std::string(40, 'n');
  ASSERT_EQ(ask(1, 50), 0);
  EXPECT_EQ(request.req_len, 32u);
  EXPECT_EQ(reply[31], 'n');
  EXPECT_EQ(reply[32], 0x5a);
}

TEST_F(WirelessRequest, Channel) {
  ASSERT_EQ(ask(4, 16), 0);
  EXPECT_EQ(word(8), 36);
  EXPECT_EQ(word(12), 16);
  EXPECT_EQ(reply[16], 0x5a);
  EXPECT_EQ(ask(4, 15), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
}

TEST_F(WirelessRequest, SignalOfEachRadioAndOfAll) {
  ASSERT_EQ(ask(16, 52), 0);
  EXPECT_EQ(word(4), 2);
  EXPECT_EQ(word(12), -61);
  EXPECT_EQ(word(16), -58);
  EXPECT_EQ(word(20), 0);
  EXPECT_EQ(word(28), -55);
  EXPECT_EQ(reply[52], 0x5a);
  machine.wireless["en0"].radios.assign(9, -40);
  ASSERT_EQ(ask(16, 60), 0);
  EXPECT_EQ(word(4), 4);
  EXPECT_EQ(word(24), -40);
  EXPECT_EQ(word(28), -55);
  EXPECT_EQ(ask(16, 51), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
}

TEST_F(WirelessRequest, TypeZeroOnlyAsksWhetherItAnswers) {
  EXPECT_EQ(ask(0, 0), 0);
  EXPECT_EQ(reply[0], 0x5a);
  machine.wireless["en0"].connected = false;
  EXPECT_EQ(ask(0, 0), 0);
  EXPECT_EQ(ask(1, 50), -1);
  EXPECT_EQ(errno, DARWIN_ENOTCONN);
}

TEST_F(WirelessRequest, Failures) {
  EXPECT_EQ(ask(1, 50, "en1"), -1);
  EXPECT_EQ(errno, DARWIN_ENXIO);
  EXPECT_EQ(ask(1, 50, "0123456789abcdefg"), -1) << "a name without an end";
  EXPECT_EQ(errno, DARWIN_ENXIO);
  EXPECT_EQ(ask(99, 50), -1);
  EXPECT_EQ(errno, DARWIN_EOPNOTSUPP);
  EXPECT_EQ(ioctl(fd, SIOCGA80211, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  request.req_type = 16;
  std::strcpy(request.req_if_name, "en0");
  request.req_len = 52;
  request.req_data = nullptr;
  EXPECT_EQ(ioctl(fd, SIOCGA80211, &request), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  EXPECT_EQ(ioctl(STDIN_FILENO, SIOCGA80211, &request), -1);
  EXPECT_NE(errno, DARWIN_EFAULT) << "what is no such socket is this system's";
}

}  // namespace
}  // namespace darwin
