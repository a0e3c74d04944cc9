#include "nstat/client.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include "nstat/accounting.h"
#include "nstat/layouts.h"
#include "terminal/ending.h"
#include "tests/unit/display_state.h"
#include "tests/unit/network_machine.h"

namespace {

using namespace sondex;
using entry_test::makeSource;
using entry_test::NetworkMachine;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

constexpr char kTooMany[] =
    "Too many sources/connections! This is not a bug, but something that will be handled soon!\n";

// A message laid down byte by byte at the offsets that the service counts with.
struct Message {
  std::vector<uint8_t> bytes;

  Message(uint32_t type, size_t size) : bytes(size, 0) { put32(8, type); }
  Message &put32(size_t offset, uint32_t value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
    return *this;
  }
  Message &put64(size_t offset, uint64_t value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
    return *this;
  }
  Message &putText(size_t offset, const std::string &text) {
    std::memcpy(bytes.data() + offset, text.data(), text.size());
    return *this;
  }
  Message &cut(size_t size) {
    bytes.resize(size);
    return *this;
  }
};

Message added(uint32_t source, uint32_t provider = 2) {
  return Message(10001, 24).put32(16, provider).put32(20, source);
}

Message removed(uint32_t source) {
  return Message(10002, 20).put32(16, source);
}

Message tcpDescription(uint32_t source, uint32_t pid, const std::string &name = "server") {
  return Message(10003, 276).put32(16, source).put32(20, 2).put32(148, pid).putText(152, name);
}

Message udpDescription(uint32_t source, uint32_t pid, const std::string &name = "resolver") {
  return Message(10003, 232).put32(16, source).put32(20, 3).put32(104, pid).putText(108, name);
}

Message counts(uint32_t source, uint64_t received, uint64_t sent) {
  return Message(10004, 132)
      .put32(16, source)
      .put64(20, received / 10)
      .put64(28, received)
      .put64(36, sent / 10)
      .put64(44, sent);
}

uint64_t received(int source) {
  return load(process_ntstat_info[source].received);
}

uint64_t sent(int source) {
  return load(process_ntstat_info[source].sent);
}

class Client : public testing::Test {
 protected:
  Client() {
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) throw errno;
    store(nstat_socket, ends[0]);
    store(g_debug, 0);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
  }
  ~Client() override {
    store(nstat_socket, -1);
    store(g_debug, 0);
    close(ends[0]);
    closePeer();
    std::memset(static_cast<void *>(&gsdreq), 0, sizeof gsdreq);
    for (int i = 0; i < kDescriptorSlots; i++) {
      descriptors[i] = nullptr;
      descriptorsModded[i] = 0;
    }
  }

  static int32_t file(const Message &message) {
    return print_nstat_msg(message.bytes.data(), message.bytes.size());
  }
  // Sends all, ends the connection, and lets the client read.
  void feed(const std::vector<Message> &messages) {
    for (const Message &message : messages) {
      ASSERT_EQ(write(ends[1], message.bytes.data(), message.bytes.size()),
                static_cast<ssize_t>(message.bytes.size()));
    }
    shutdown(ends[1], SHUT_WR);
    readNotifications(ends[0]);
  }
  // The next request that the client has written; empty when there is none.
  std::vector<uint8_t> request() {
    uint8_t buffer[100];
    const ssize_t length = read(ends[1], buffer, sizeof buffer);
    return {buffer, buffer + (length > 0 ? length : 0)};
  }
  void closePeer() {
    if (ends[1] >= 0) close(ends[1]);
    ends[1] = -1;
  }

  static int32_t owner(int source) { return load(process_pid_info[source]); }

  static std::vector<uint8_t> descriptionRequest(uint32_t source) {
    return Message(1005, 20).put64(0, 2).put32(16, source).bytes;
  }

  DisplayStateGuard guard;
  int ends[2];
};

TEST_F(Client, CountsAreRunningTotals) {
  EXPECT_EQ(file(counts(7, 1000, 2000)), 0);
  EXPECT_EQ(received(7), 1000u);
  EXPECT_EQ(sent(7), 2000u);
  file(counts(7, 0x123456789abcULL, 5));
  EXPECT_EQ(received(7), 0x123456789abcULL);
  EXPECT_EQ(sent(7), 5u);
}

TEST_F(Client, CountsOfAnUnknownSourceAskForItsDescriptionOnce) {
  file(counts(7, 1, 2));
  EXPECT_EQ(request(), descriptionRequest(7));
  EXPECT_TRUE(request().empty());
  EXPECT_EQ(std::memcmp(&gsdreq, descriptionRequest(7).data(), 20), 0);
  file(tcpDescription(7, 321));
  file(counts(7, 3, 4));
  EXPECT_TRUE(request().empty()) << "the owner is known";
  EXPECT_EQ(received(7), 3u);
}

TEST_F(Client, BytesCountOnceTheOwnerIsKnown) {
  file(counts(7, 100, 200));
  EXPECT_EQ(getNTStatInfo(321), nullptr);
  file(tcpDescription(7, 321));
  file(udpDescription(8, 321));
  file(counts(8, 10, 20));
  EXPECT_EQ(getRXBytesForProcess(321), 110);
  EXPECT_EQ(getTXBytesForProcess(321), 220);
}

TEST_F(Client, DescriptionsOfOtherProvidersChangeNothing) {
  for (const uint32_t provider : {0u, 1u, 4u, 5u, 0xFFFFFFFFu}) {
    EXPECT_EQ(file(tcpDescription(7, 321).put32(20, provider)), 0);
    EXPECT_EQ(owner(7), 0);
  }
}

TEST_F(Client, RemovalClearsTheOwnerAndKeepsTheTotals) {
  file(tcpDescription(7, 321));
  file(counts(7, 100, 200));
  EXPECT_EQ(file(removed(7)), 10002);
  EXPECT_EQ(owner(7), 0);
  EXPECT_EQ(received(7), 100u);
  EXPECT_EQ(getNTStatInfo(321), nullptr);
  file(counts(7, 1, 1));
  EXPECT_EQ(request(), descriptionRequest(7)) << "the owner was cleared";
}

TEST_F(Client, AdditionClearsTheOwner) {
  file(tcpDescription(7, 321));
  file(tcpDescription(2, 322));
  EXPECT_EQ(file(added(7)), 10001);
  EXPECT_EQ(owner(7), 0);
  EXPECT_EQ(owner(2), 322) << "the provider's number is no reference";
}

TEST_F(Client, OtherTypesAreIgnored) {
  for (const uint32_t type : {0u, 1u, 1004u, 10000u, 10005u, 0xFFFFFFFFu}) {
    EXPECT_EQ(file(Message(type, 300).put32(16, 7).put32(20, 2).put32(148, 321)), 0);
  }
  EXPECT_EQ(owner(7), 0);
  EXPECT_TRUE(request().empty());
}

TEST_F(Client, TheLastReferenceHasAPlaceButIsNotSummed) {
  file(tcpDescription(1024, 321));
  ASSERT_EQ(owner(1024), 321);
  file(counts(1024, 5, 6));
  EXPECT_EQ(received(1024), 5u);
  EXPECT_EQ(getNTStatInfo(321), nullptr);
  feed({removed(1024)});
  EXPECT_EQ(owner(1024), 0);
  EXPECT_EQ(descriptorsModded[1024], 1);
}

TEST_F(Client, ReferencesBeyondTheTablesAreIgnored) {
  file(tcpDescription(1024, 321));
  for (const uint32_t source : {1025u, 2047u, 2048u, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(file(added(source)), 0);
    EXPECT_EQ(file(removed(source)), 0);
    EXPECT_EQ(file(tcpDescription(source, 7)), 0);
    EXPECT_EQ(file(udpDescription(source, 7)), 0);
  }
  EXPECT_EQ(owner(1024), 321);
  feed({removed(1025), removed(2048), removed(0xFFFFFFFF)});
  EXPECT_EQ(descriptorsModded[1025], 0);
}

TEST_F(Client, ShortDatagramsAreIgnored) {
  file(tcpDescription(7, 321));
  for (size_t size = 0; size < 24; size++) EXPECT_EQ(file(added(7).cut(size)), 0);
  for (size_t size = 0; size < 20; size++) EXPECT_EQ(file(removed(7).cut(size)), 0);
  EXPECT_EQ(owner(7), 321);
  for (size_t size = 0; size < 52; size++) file(counts(7, 5, 6).cut(size));
  EXPECT_EQ(received(7), 0u);
  for (size_t size = 0; size < 152; size++) file(tcpDescription(7, 99).cut(size));
  for (size_t size = 0; size < 108; size++) file(udpDescription(7, 99).cut(size));
  EXPECT_EQ(owner(7), 321);
  // Just whole.
  file(counts(7, 5, 6).cut(52));
  EXPECT_EQ(sent(7), 6u);
  file(tcpDescription(7, 98).cut(152));
  EXPECT_EQ(owner(7), 98);
  file(udpDescription(7, 97).cut(108));
  EXPECT_EQ(owner(7), 97);
  // Some kernels send only a part of the counts.
  file(counts(7, 8, 9).cut(84));
  EXPECT_EQ(sent(7), 9u);
}

TEST_F(Client, NothingIsTracedWithoutDebugging) {
  CaptureStderr();
  file(added(7));
  file(tcpDescription(7, 321));
  file(counts(7, 10, 20));
  file(removed(7));
  EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(Client, Traces) {
  store(g_debug, 1);
  CaptureStderr();
  file(added(7, 3));
  file(tcpDescription(7, 321));
  file(udpDescription(8, 322));
  file(counts(7, 1000, 2000));
  file(counts(9, 1000, 2000));
  file(removed(7));
  EXPECT_EQ(GetCapturedStderr(),
            "Src Added - 24\n"
            "PRovider: 3, SrcRef: 7\n"
            "TCP SRCREF: 7, PID: 321, NAME: server\n"
            "UDP SRCREF: 8, PID: 322, NAME: resolver\n"
            "PID: 321 SRCREF: 7 COUNTS: 1000 (100)/2000 (200)\n");
}

TEST_F(Client, TracedNamesAreSafeAndEnd) {
  store(g_debug, 1);
  CaptureStderr();
  file(tcpDescription(7, 321, "a\033[2Jb"));
  file(tcpDescription(7, 321, std::string(124, 'n')));
  file(tcpDescription(7, 321).cut(154));
  file(tcpDescription(7, 321).cut(152));
  EXPECT_EQ(GetCapturedStderr(),
            "TCP SRCREF: 7, PID: 321, NAME: a?[2Jb\n"
            "TCP SRCREF: 7, PID: 321, NAME: " +
                std::string(63, 'n') +
                "\n"
                "TCP SRCREF: 7, PID: 321, NAME: se\n"
                "TCP SRCREF: 7, PID: 321, NAME: \n");
}

TEST_F(Client, ReaderFilesEachDatagramUntilTheEnd) {
  feed({tcpDescription(7, 321), counts(7, 10, 20), tcpDescription(8, 322), counts(8, 30, 40),
        removed(8)});
  EXPECT_EQ(getRXBytesForProcess(321), 10);
  EXPECT_EQ(getNTStatInfo(322), nullptr);
  EXPECT_EQ(descriptors[8], nullptr);
  EXPECT_EQ(descriptorsModded[8], 1);
  EXPECT_EQ(descriptorsModded[7], 0);
}

TEST_F(Client, ReaderForgetsWhatStoodForARemovedConnection) {
  int anything = 0;
  descriptors[8] = &anything;
  descriptors[9] = &anything;
  feed({removed(8), removed(9).cut(18)});
  EXPECT_EQ(descriptors[8], nullptr);
  EXPECT_EQ(descriptors[9], &anything);
}

TEST_F(Client, ReaderPassesOverAdditions) {
  file(tcpDescription(7, 321));
  feed({added(7)});
  EXPECT_EQ(owner(7), 321);
}

TEST_F(Client, ReaderLooksAtTheFirstMessageOfADatagramOnly) {
  Message two = counts(7, 10, 20);
  const Message second = counts(8, 30, 40);
  two.bytes.insert(two.bytes.end(), second.bytes.begin(), second.bytes.end());
  feed({two});
  EXPECT_EQ(received(7), 10u);
  EXPECT_EQ(received(8), 0u);
}

TEST_F(Client, ReaderSurvivesGarbage) {
  std::vector<Message> garbage;
  uint32_t noise = 12345;
  for (int i = 0; i < 200; i++) {
    noise = noise * 1103515245 + 12345;
    // Never a whole message of counts: its reference would end the program.
    Message message(10001 + noise % 3, 12 + noise / 8 % 300);
    for (size_t at = 12; at < message.bytes.size(); at++) {
      noise = noise * 1103515245 + 12345;
      message.bytes[at] = static_cast<uint8_t>(noise >> 16);
    }
    garbage.push_back(message);
  }
  garbage.push_back(Message(10004, 16));
  garbage.push_back(Message(0xFFFFFFFF, 4000));
  garbage.push_back(Message(10003, 9000).put32(16, 5).put32(20, 2).put32(148, 77));
  garbage.push_back(counts(7, 10, 20));
  std::thread peer([&] {
    fcntl(ends[1], F_SETFL, 0);
    for (const Message &message : garbage) {
      EXPECT_EQ(write(ends[1], message.bytes.data(), message.bytes.size()),
                static_cast<ssize_t>(message.bytes.size()));
    }
    shutdown(ends[1], SHUT_WR);
  });
  readNotifications(ends[0]);
  peer.join();
  EXPECT_EQ(received(7), 10u);
  EXPECT_EQ(owner(5), 77) << "an oversized datagram is cut, not refused";
}

TEST_F(Client, ReaderEndsWhenReadingFails) {
  store(g_nstat_ok, 1);
  readNotifications(-1);
  EXPECT_EQ(nstat_ok(), 1);
}

TEST_F(Client, AWriteThatFailsIsIgnored) {
  store(nstat_socket, -1);
  file(counts(7, 1, 2));
  EXPECT_EQ(received(7), 1u);
}

class ClientDeath : public Client {
 protected:
  ClientDeath() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(ClientDeath, CountsBeyondTheTablesEndThePlainProgram) {
  EXPECT_EXIT(file(counts(1025, 1, 2)), testing::ExitedWithCode(0), kTooMany);
  EXPECT_EXIT(feed({counts(1024, 1, 2), counts(0xFFFFFFFF, 1, 2)}), testing::ExitedWithCode(0),
              kTooMany);
}

TEST_F(ClientDeath, CountsOfTheLastReferenceDoNot) {
  EXPECT_EXIT(
      {
        file(counts(1024, 5, 6));
        _exit(received(1024) == 5 && sent(1024) == 6 ? 3 : 4);
      },
      testing::ExitedWithCode(3), "^$");
}

TEST_F(ClientDeath, ShortCountsBeyondTheTablesDoNot) {
  EXPECT_EXIT(
      {
        file(counts(1025, 1, 2).cut(51));
        _exit(3);
      },
      testing::ExitedWithCode(3), "^$");
}

// The refresh loop may be drawing: it is woken, and ends the program itself.
TEST_F(ClientDeath, InFullScreenTheRefreshLoopEndsTheProgram) {
  EXPECT_EXIT(
      {
        if (pipe(g_pipe) != 0) _exit(4);
        endOnThisThread();
        std::thread([this] {
          feed({counts(1025, 1, 2), counts(7, 5, 6)});
          _exit(5);
        }).detach();
        char byte = 0;
        if (read(g_pipe[0], &byte, 1) != 1 || byte != 'x' || received(7) != 0) _exit(6);
        fputs("and then: ", stderr);
        if (reasonToEnd() == kEndWithLastWords) endWithLastWords();
      },
      testing::ExitedWithCode(0), std::string("^and then: ") + kTooMany);
}

class SetUp : public entry_test::NetworkTest {
 protected:
  // Ends the service's thread, which asks the machine.
  static void end(int control) {
    shutdown(control, SHUT_WR);
    char byte = 0;
    while (read(control, &byte, 1) > 0) {
    }
    close(control);
  }

  // The number that the next descriptor gets.
  static int lowestUnused() {
    const int descriptor = dup(STDIN_FILENO);
    close(descriptor);
    return descriptor;
  }
};

TEST_F(SetUp, GivesAConnectedSocket) {
  CaptureStdout();
  CaptureStderr();
  const int control = setupSocket();
  EXPECT_GT(control, 0);
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_EQ(GetCapturedStdout(), "");
  end(control);
}

TEST_F(SetUp, SaysThatThereIsNoSocket) {
  CaptureStderr();
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none = {0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const int control = setupSocket();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(control, -1);
  EXPECT_EQ(GetCapturedStderr(), "socket(SYSPROTO_CONTROL): No buffer space available");
}

TEST_F(SetUp, SaysThatTheServiceIsTaken) {
  machine.service = darwin::DARWIN_EBUSY;
  CaptureStdout();
  CaptureStderr();
  const int before = lowestUnused();
  EXPECT_EQ(setupSocket(), -1);
  EXPECT_EQ(lowestUnused(), before) << "a socket was left open";
  EXPECT_EQ(GetCapturedStderr(), "connect(AF_SYS_CONTROL): Device or resource busy\n");
  EXPECT_EQ(GetCapturedStdout(),
            "Apparently some other process is using the system socket. On iOS, this is usually "
            "UserEventAgent. Kill it (-9!) and immediately start this program\n");
}

TEST_F(SetUp, SaysWhyItCanNotConnect) {
  machine.service = darwin::DARWIN_EPERM;
  CaptureStdout();
  CaptureStderr();
  EXPECT_EQ(setupSocket(), -1);
  EXPECT_EQ(GetCapturedStderr(), "connect(AF_SYS_CONTROL): Operation not permitted\n");
  EXPECT_EQ(GetCapturedStdout(), "");
}

TEST_F(SetUp, SaysThatThereIsNoService) {
  machine.service = darwin::DARWIN_ENOTSUP;
  CaptureStderr();
  const int before = lowestUnused();
  EXPECT_EQ(setupSocket(), -1);
  EXPECT_EQ(lowestUnused(), before) << "a socket was left open";
  EXPECT_EQ(GetCapturedStderr(), "ioctl(CTLIOCGINFO): No such file or directory");
}

TEST_F(SetUp, PollingEndsWithoutASocket) {
  DisplayStateGuard guard;
  machine.service = darwin::DARWIN_EBUSY;
  store(g_nstat_ok, 1);
  CaptureStdout();
  CaptureStderr();
  EXPECT_EQ(nstat_register(nullptr), nullptr);
  GetCapturedStderr();
  GetCapturedStdout();
  EXPECT_EQ(load(nstat_socket), -1);
  EXPECT_EQ(nstat_ok(), 0);
}

TEST_F(SetUp, ReaderEndsWithoutASocket) {
  DisplayStateGuard guard;
  // The polling thread is waited for by nobody, so what it asks stays.
  static auto *const refusing = new NetworkMachine;
  refusing->service = darwin::DARWIN_EPERM;
  host::useMachine(refusing);
  store(g_nstat_ok, 1);
  CaptureStderr();
  EXPECT_EQ(doNStat(nullptr), nullptr);
  EXPECT_EQ(GetCapturedStderr(), "connect(AF_SYS_CONTROL): Operation not permitted\n");
  EXPECT_EQ(nstat_ok(), 0);
}

// Both threads against the service, in a process of their own: they never end.
class WholeClient : public testing::Test {
 protected:
  WholeClient() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  static void expect(bool (*condition)(), int status) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) _exit(status);
      usleep(2000);
    }
  }

  [[noreturn]] static void run(host::KernelFamily kernel) {
    auto *machine = new NetworkMachine;
    machine->present(kernel);
    host::useMachine(machine);
    chooseStatisticsLayout(machine->name.version.c_str());
    machine->setSources({makeSource(1, 5, 100, 200), makeSource(2, 5, 10, 20),
                         makeSource(3, 6, 7, 8, host::NetworkProvider::udp)});
    store(process_ntstat_info[9].received, 1);
    store(process_ntstat_info[kLastSource].sent, 1);
    std::thread(doNStat, nullptr).detach();
    expect([] { return getRXBytesForProcess(5) == 110 && getTXBytesForProcess(5) == 220; }, 3);
    expect([] { return getRXBytesForProcess(6) == 7 && nstat_ok() == 1; }, 4);
    expect([] { return received(9) == 0 && sent(kLastSource) == 0; }, 5);
    // The first is gone, its reference is taken by another process's source.
    machine->setSources({makeSource(2, 5, 11, 21), makeSource(4, 8, 1, 2)});
    expect([] { return getRXBytesForProcess(5) == 11 && getTXBytesForProcess(5) == 21; }, 6);
    expect([] { return getRXBytesForProcess(8) == 1; }, 7);
    expect([] { return getNTStatInfo(6) == nullptr; }, 8);
    _exit(load(g_debug) == 0 ? 0 : 9);
  }

  // All of the first 1,000 sources, of ten processes.
  static bool hasAll() {
    bool all = true;
    for (int32_t pid = 1; pid <= 10; pid++) {
      all = all && getRXBytesForProcess(pid) == 500 && getTXBytesForProcess(pid) == 700;
    }
    return all;
  }

  [[noreturn]] static void runWithManySources(host::KernelFamily kernel) {
    auto *machine = new NetworkMachine;
    machine->present(kernel);
    host::useMachine(machine);
    chooseStatisticsLayout(machine->name.version.c_str());
    std::vector<host::NetworkSource> sources;
    for (uint64_t key = 1; key <= 1000; key++) {
      sources.push_back(makeSource(key, static_cast<int32_t>(key % 10 + 1), 5, 7));
    }
    machine->setSources(sources);
    std::thread(doNStat, nullptr).detach();
    expect(hasAll, 3);
    // 500 more, for which there are 24 places.
    for (uint64_t key = 1001; key <= 1500; key++) sources.push_back(makeSource(key, 11, 1, 1));
    machine->setSources(sources);
    expect([] { return getRXBytesForProcess(11) == 24; }, 4);
    if (!hasAll()) _exit(5);
    // When those before go, there is room for all that are left.
    sources.erase(sources.begin(), sources.begin() + 1000);
    machine->setSources(sources);
    expect([] { return getRXBytesForProcess(11) == 500; }, 6);
    _exit(0);
  }

  [[noreturn]] static void runAwaited(host::KernelFamily kernel) {
    auto *machine = new NetworkMachine;
    machine->present(kernel);
    host::useMachine(machine);
    chooseStatisticsLayout(machine->name.version.c_str());
    std::vector<host::NetworkSource> sources;
    for (uint64_t key = 1; key <= 1000; key++) sources.push_back(makeSource(key, 5, 1, 2));
    machine->setSources(sources);
    expectCounts();
    std::thread(doNStat, nullptr).detach();
    awaitCounts(60'000);
    if (getRXBytesForProcess(5) != 1000 || getTXBytesForProcess(5) != 2000) _exit(3);
    // What came since counts too.
    sources.push_back(makeSource(1001, 6, 7, 8));
    machine->setSources(sources);
    awaitCounts(60'000);
    _exit(getRXBytesForProcess(6) == 7 ? 0 : 4);
  }

  // One datagram, or nothing after a while.
  static std::vector<uint8_t> datagramFrom(int socket) {
    const ::timeval patience = {60, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    std::vector<uint8_t> datagram(4096);
    const ssize_t length = read(socket, datagram.data(), datagram.size());
    datagram.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return datagram;
  }

  // The polling thread alone: by what the service answers to each request, and then in its place.
  [[noreturn]] static void runPoller() {
    auto *machine = new NetworkMachine;
    host::useMachine(machine);
    machine->setSources({makeSource(1, 6, 7, 8, host::NetworkProvider::udp),
                         makeSource(2, 5, 3, 4, host::NetworkProvider::tcp)});
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) _exit(5);
    std::thread(nstat_register, nullptr).detach();
    expect([] { return nstat_ok() == 1; }, 3);
    const auto success = [](uint64_t context) { return Message(0, 16).put64(0, context); };
    const Message kAnswers[] = {
        added(1, 2),
        success(2),
        added(2, 3),
        success(2),
        counts(2, 7, 8).put64(0, 1005),
        counts(1, 3, 4).put64(0, 1005),
        success(1005),
    };
    const int service = load(nstat_socket);
    for (const Message &answer : kAnswers) {
      if (datagramFrom(service) != answer.bytes) _exit(4);
    }

    store(nstat_socket, ends[0]);
    const Message query = Message(1004, 20).put64(0, 1005).put32(16, 0xFFFFFFFF);
    for (int second = 0; second < 2; second++) {
      if (datagramFrom(ends[1]) != query.bytes) _exit(6);
    }
    _exit(0);
  }

  // The service hesitates for longer than the reader waits.
  [[noreturn]] static void runWithASlowService() {
    struct SlowService : NetworkMachine {
      std::atomic<bool> isSlow{true};
      host::Errno networkStatistics() override {
        while (isSlow.load()) usleep(1000);
        return NetworkMachine::networkStatistics();
      }
    };
    auto *machine = new SlowService;
    host::useMachine(machine);
    if (doNStat(nullptr) != nullptr || nstat_ok() != 0 || load(nstat_socket) != -1) _exit(3);
    machine->isSlow = false;
    expect([] { return nstat_ok() == 1 && load(nstat_socket) > 0; }, 4);
    _exit(0);
  }

  [[noreturn]] static void runWithTooMany() {
    auto *machine = new NetworkMachine;
    host::useMachine(machine);
    std::vector<host::NetworkSource> sources;
    for (uint64_t key = 1; key <= 1025; key++) sources.push_back(makeSource(key, 5, 1, 1));
    machine->setSources(sources);
    doNStat(nullptr);
    _exit(3);
  }
};

TEST_F(WholeClient, FollowsTheSourcesOfEachFamilyOfKernels) {
  for (const host::KernelFamily kernel : {2782u, 3248u, 3789u, 6153u, 8020u, 11417u}) {
    EXPECT_EXIT(run(kernel), testing::ExitedWithCode(0), "") << kernel;
  }
}

// More than a page, a datagram and the queue as it is at first hold; and then more than there are
// places for. Where references are small, that ends the program.
TEST_F(WholeClient, FollowsAsManySourcesAsThereArePlacesFor) {
  EXPECT_EXIT(runWithManySources(3248), testing::ExitedWithCode(0),
              std::string("^") + kTooMany + "$");
  for (const host::KernelFamily kernel : {3789u, 6153u, 8020u, 11417u}) {
    EXPECT_EXIT(runWithManySources(kernel), testing::ExitedWithCode(0),
                "^More than 1024 network sources: the bytes of the others are not counted\n$")
        << kernel;
  }
}

TEST_F(WholeClient, AsksForTCPThenUDPThenForAllCountsAgainAndAgain) {
  EXPECT_EXIT(runPoller(), testing::ExitedWithCode(0), "");
}

TEST_F(WholeClient, DoesNotReadWhenSetUpTakesTooLong) {
  EXPECT_EXIT(runWithASlowService(), testing::ExitedWithCode(0), "");
}

TEST_F(WholeClient, IsWaitedForUntilAllIsFiled) {
  for (const host::KernelFamily kernel : {2782u, 3248u, 3789u, 6153u, 8020u, 11417u}) {
    EXPECT_EXIT(runAwaited(kernel), testing::ExitedWithCode(0), "") << kernel;
  }
}

TEST_F(WholeClient, IsNotWaitedForLongerThanSaid) {
  EXPECT_EXIT(
      {
        struct SlowService : NetworkMachine {
          host::Errno networkStatistics() override {
            for (;;) pause();
          }
        };
        host::useMachine(new SlowService);
        expectCounts();
        std::thread(doNStat, nullptr).detach();
        const auto begin = std::chrono::steady_clock::now();
        awaitCounts(200);
        const auto taken = std::chrono::steady_clock::now() - begin;
        _exit(taken >= std::chrono::milliseconds(200) && taken < std::chrono::seconds(30) ? 0 : 3);
      },
      testing::ExitedWithCode(0), "");
}

// Where nothing will come there is nothing to wait for: the death of a test that waits is late.
TEST_F(WholeClient, IsNotWaitedForWhereThereIsNone) {
  EXPECT_EXIT(
      {
        alarm(60);
        awaitCounts(3'600'000);
        auto *machine = new NetworkMachine;
        machine->service = darwin::DARWIN_EPERM;
        host::useMachine(machine);
        expectCounts();
        std::thread(doNStat, nullptr).detach();
        awaitCounts(3'600'000);
        _exit(0);
      },
      testing::ExitedWithCode(0), "not permitted");
}

TEST_F(WholeClient, EndsWithMoreSourcesThanTheTablesHold) {
  EXPECT_EXIT(runWithTooMany(), testing::ExitedWithCode(0), kTooMany);
}

TEST_F(WholeClient, DebuggingIsRaisedByTheEnvironment) {
  EXPECT_EXIT(
      {
        setenv("ZDEBUG", "", 1);
        auto *machine = new NetworkMachine;
        machine->service = darwin::DARWIN_EPERM;
        host::useMachine(machine);
        doNStat(nullptr);
        _exit(load(g_debug));
      },
      testing::ExitedWithCode(1), "Operation not permitted");
}

}  // namespace
