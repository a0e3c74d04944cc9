// The connection to the kernel's netlink families when others meddle with it or it breaks, and when
// listings are to be asked for again. The messages themselves are tested with the sockets.
#include "host/linux/netlink.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <optional>

#include "host/linux/procfs.h"

namespace host::linux_machine {
namespace {

// The number that the next descriptor to be opened gets.
int nextDescriptor() {
  const FileHandle probe(dup(STDERR_FILENO));
  return probe.get();
}

class NetlinkConnectionTest : public testing::Test {
 protected:
  // Lists the interfaces; how many there are, or nothing.
  std::optional<int> count() {
    NetlinkRequest request;
    request.append(ifinfomsg{});
    int interfaces = 0;
    const DumpProgress progress =
        connection_.ask(request, RTM_GETLINK, NLM_F_DUMP, [&](uint16_t type, Span) {
          interfaces += type == RTM_NEWLINK;
          return true;
        });
    if (progress.malformed || progress.error != 0) return std::nullopt;
    return interfaces;
  }

  const int socket_ = nextDescriptor();  // what the connection opens first
  NetlinkConnection connection_{NETLINK_ROUTE};
};

// To the socket of `connection`, as if the kernel had nothing more to tell. False if not permitted.
bool sendTo(int connection, size_t size) {
  sockaddr_nl to = {};
  socklen_t length = sizeof to;
  EXPECT_EQ(getsockname(connection, reinterpret_cast<sockaddr *>(&to), &length), 0);
  std::vector<uint8_t> message(size);
  nlmsghdr header = {};
  header.nlmsg_len = static_cast<uint32_t>(size);
  header.nlmsg_type = NLMSG_DONE;
  header.nlmsg_seq = 2;
  memcpy(message.data(), &header, sizeof header);
  const FileHandle stranger(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  const ssize_t sent = sendto(stranger.get(), message.data(), message.size(), 0,
                              reinterpret_cast<const sockaddr *>(&to), sizeof to);
  EXPECT_TRUE(sent == static_cast<ssize_t>(size) || errno == EPERM) << errno;
  return sent == static_cast<ssize_t>(size);
}

TEST_F(NetlinkConnectionTest, StrangersAreNotListenedTo) {
  const std::optional<int> before = count();
  ASSERT_TRUE(before.has_value());
  ASSERT_GE(*before, 1) << "there is always a loopback interface";
  struct stat first = {};
  ASSERT_EQ(fstat(socket_, &first), 0);
  // One that looks like an end, and one that is longer than any that the kernel makes.
  if (!sendTo(socket_, NLMSG_HDRLEN + 4) || !sendTo(socket_, 65536)) {
    GTEST_SKIP() << "only root may send such messages";
  }
  EXPECT_EQ(count(), before);
  struct stat second = {};
  ASSERT_EQ(fstat(socket_, &second), 0);
  EXPECT_EQ(second.st_ino, first.st_ino) << "the connection was kept";
}

TEST_F(NetlinkConnectionTest, ABrokenOneIsMadeAnew) {
  const std::optional<int> before = count();
  ASSERT_TRUE(before.has_value());
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair), 0);
  const FileHandle end(pair[0]);
  {
    const FileHandle otherEnd(pair[1]);
    ASSERT_EQ(dup2(otherEnd.get(), socket_), socket_) << "the kernel is not at its other end now";
  }
  EXPECT_EQ(count(), std::nullopt);
  EXPECT_EQ(nextDescriptor(), socket_) << "nothing is left open";
  EXPECT_EQ(count(), before);
}

TEST_F(NetlinkConnectionTest, WhatItsVisitorRefusesEndsTheAnswer) {
  NetlinkRequest request;
  request.append(ifinfomsg{});
  int visited = 0;
  const DumpProgress progress =
      connection_.ask(request, RTM_GETLINK, NLM_F_DUMP, [&](uint16_t, Span) {
        visited++;
        return false;
      });
  EXPECT_TRUE(progress.malformed);
  EXPECT_EQ(visited, 1);
  EXPECT_EQ(nextDescriptor(), socket_);
  EXPECT_TRUE(count().has_value()) << "the rest of the last answer is not in this one's way";
}

struct Try {
  DumpProgress progress;
  int visited;
};

// What is listed when the tries end so, and how many there were.
std::pair<int, size_t> listTries(const std::vector<Try> &tries) {
  size_t made = 0;
  int listed = 0;
  const DumpProgress progress = listWhole(
      [&] {
        listed += tries.at(made).visited;
        return tries.at(made++).progress;
      },
      [&] { listed = 0; });
  EXPECT_EQ(progress.error, tries.at(made - 1).progress.error);
  EXPECT_EQ(progress.malformed, tries.at(made - 1).progress.malformed);
  return {listed, made};
}

TEST(NetlinkListing, IsAskedForOnceMoreWhenItWasInterrupted) {
  DumpProgress whole;
  whole.done = true;
  DumpProgress interrupted = whole;
  interrupted.interrupted = true;
  DumpProgress refused = interrupted;
  refused.error = EPERM;
  DumpProgress broken = interrupted;
  broken.malformed = true;
  using Result = std::pair<int, size_t>;
  EXPECT_EQ(listTries({{whole, 3}}), Result(3, 1));
  EXPECT_EQ(listTries({{interrupted, 2}, {whole, 3}}), Result(3, 2));
  EXPECT_EQ(listTries({{interrupted, 2}, {interrupted, 4}}), Result(4, 2)) << "no third time";
  EXPECT_EQ(listTries({{interrupted, 2}, {broken, 1}}), Result(1, 2));
  EXPECT_EQ(listTries({{refused, 0}}), Result(0, 1));
  EXPECT_EQ(listTries({{broken, 1}}), Result(1, 1));
}

}  // namespace
}  // namespace host::linux_machine
