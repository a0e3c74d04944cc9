// Network questions to the live system: which process a socket is told to belong to, and the time
// of day with its microseconds.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>

#include "darwin/ntstat.h"
#include "darwin/proc_info.h"
#include "host/linux/known_processes.h"
#include "host/linux/linux_machine.h"
#include "host/posix.h"
#include "tests/unit/network_machine.h"

namespace {

using namespace host;
using linux_machine::KnownProcesses;
using linux_machine::LinuxMachine;
using testing::Pair;
using testing::UnorderedElementsAre;

TEST(SocketOwners, TheNewestProcessHoldsASharedSocket) {
  KnownProcesses known;
  known.find(10, 100).sockets = {1, 2, 3};
  known.find(11, 300).sockets = {2, 2, 4};
  known.find(12, 200).sockets = {2, 3};
  known.find(13, 300).sockets = {4};
  known.find(14, 900);
  EXPECT_THAT(known.socketOwners(),
              UnorderedElementsAre(Pair(1, 10), Pair(2, 11), Pair(3, 12), Pair(4, 13)));
  known.keepOnly({13, 12, 10});
  EXPECT_THAT(known.socketOwners(),
              UnorderedElementsAre(Pair(1, 10), Pair(2, 12), Pair(3, 12), Pair(4, 13)));
}

class LiveNetwork : public testing::Test {
 protected:
  LiveNetwork() : machine(linux_machine::openDirectory(AT_FDCWD, "/proc")) {}

  LinuxMachine machine;
};

TEST_F(LiveNetwork, AListingOfDescriptorsShowsTheOwner) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(listen(listener, 1), 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size), 0);
  const auto isOwn = [&](const NetworkSource &source) {
    return source.local.port == ntohs(address.sin_port) && source.pid == getpid();
  };
  EXPECT_EQ(machine.networkStatistics(), kAnswered);
  std::vector<NetworkSource> sources;
  ASSERT_EQ(machine.networkSources(sources), kAnswered);
  EXPECT_EQ(std::count_if(sources.begin(), sources.end(), isOwn), 0) << "nobody has looked yet";

  std::vector<int32_t> pids;
  std::vector<darwin::proc_fdinfo> list;
  ASSERT_EQ(machine.processIDs(pids), kAnswered);
  ASSERT_EQ(machine.descriptors(getpid(), 1000, list), kAnswered);
  ASSERT_EQ(machine.networkSources(sources), kAnswered);
  EXPECT_EQ(std::count_if(sources.begin(), sources.end(), isOwn), 1);
  close(listener);
}

TEST_F(LiveNetwork, WallClockHasMicroseconds) {
  timeval before{};
  timeval after{};
  darwin::timeval told{};
  __real_gettimeofday(&before, nullptr);
  machine.wallClock(told);
  __real_gettimeofday(&after, nullptr);
  const auto microseconds = [](const auto &time) {
    return int64_t{time.tv_sec} * 1000000 + time.tv_usec;
  };
  EXPECT_GE(microseconds(told), microseconds(before));
  EXPECT_LE(microseconds(told), microseconds(after));
}

class TimeOfDay : public entry_test::EntryTest {};

TEST_F(TimeOfDay, IsTheMachines) {
  machine.seconds = 1709647629;
  timeval told{};
  EXPECT_EQ(gettimeofday(&told, nullptr), 0);
  EXPECT_EQ(told.tv_sec, 1709647629);
  EXPECT_EQ(told.tv_usec, 0);
  machine.throws = true;
  EXPECT_EQ(gettimeofday(&told, nullptr), 0);
  EXPECT_GE(told.tv_sec, __real_time(nullptr) - 1);
}

}  // namespace
