// Byte totals of processes on this machine's kernel, through the whole chain: the client's threads,
// the control socket, the service behind it, and what the kernel counts for TCP sockets. Two
// processes of the test's own send each other a known number of bytes.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "harness/wait.h"
#include "nstat/accounting.h"
#include "nstat/client.h"
#include "nstat/layouts.h"

namespace {

constexpr uint64_t kTransferred = 100'000'000;
constexpr uint64_t kTolerance = kTransferred / 100;

[[noreturn]] void fail() {
  _exit(1);
}

void sendAll(int connection) {
  const std::vector<char> block(1 << 16, 'x');
  for (uint64_t left = kTransferred; left > 0;) {
    const size_t size = left < block.size() ? static_cast<size_t>(left) : block.size();
    const ssize_t sent = send(connection, block.data(), size, MSG_NOSIGNAL);
    if (sent <= 0) fail();
    left -= static_cast<uint64_t>(sent);
  }
}

void receiveAll(int connection) {
  std::vector<char> block(1 << 16);
  for (uint64_t left = kTransferred; left > 0;) {
    const ssize_t got = recv(connection, block.data(), block.size(), 0);
    if (got <= 0) fail();
    left -= static_cast<uint64_t>(got);
  }
}

// A child that lives until the test has closed its end of a pipe. It says on the way that it is
// done.
class Peer {
 public:
  template <typename Work>
  explicit Peer(Work work) {
    int toChild[2];
    int fromChild[2];
    if (pipe(toChild) != 0 || pipe(fromChild) != 0) throw std::runtime_error("pipe");
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      close(toChild[1]);
      close(fromChild[0]);
      work();
      char byte = 'd';
      if (write(fromChild[1], &byte, 1) != 1) fail();
      // Nothing is ever sent: the end of file says to go.
      [[maybe_unused]] const ssize_t end = read(toChild[0], &byte, 1);
      _exit(0);
    }
    close(toChild[0]);
    close(fromChild[1]);
    keepsAlive_ = toChild[1];
    done_ = fromChild[0];
  }
  Peer(const Peer &) = delete;
  Peer &operator=(const Peer &) = delete;
  ~Peer() {
    leave();
    close(done_);
  }

  int32_t pid() const { return pid_; }
  bool waitUntilDone() {
    char byte = 0;
    return read(done_, &byte, 1) == 1;
  }
  // Ends the process, and so its connection.
  void leave() {
    if (keepsAlive_ < 0) return;
    close(keepsAlive_);
    keepsAlive_ = -1;
    int status = 0;
    waitpid(pid_, &status, 0);
  }

 private:
  pid_t pid_ = -1;
  int keepsAlive_ = -1;
  int done_ = -1;
};

bool isNear(int32_t total) {
  const auto bytes = static_cast<uint32_t>(total);
  return total >= 0 && bytes >= kTransferred && bytes <= kTransferred + kTolerance;
}

void describe(const Peer &peer, const char *name) {
  std::cout << name << ": received " << sondex::getRXBytesForProcess(peer.pid()) << ", sent "
            << sondex::getTXBytesForProcess(peer.pid()) << '\n';
}

TEST(Network, TotalsOfATransferOverLoopback) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *const generic = reinterpret_cast<sockaddr *>(&address);
  ASSERT_EQ(bind(listener, generic, sizeof address), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  ASSERT_EQ(getsockname(listener, generic, &size), 0);

  // Started before any thread: a forked child of a process with threads may do little.
  Peer receiver([listener] {
    const int connection = accept(listener, nullptr, nullptr);
    close(listener);
    if (connection < 0) fail();
    receiveAll(connection);
  });
  close(listener);
  Peer sender([&address, generic] {
    const int connection = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(connection, generic, sizeof address) != 0) fail();
    sendAll(connection);
  });
  ASSERT_TRUE(sender.waitUntilDone());
  ASSERT_TRUE(receiver.waitUntilDone());

  utsname names;
  ASSERT_EQ(uname(&names), 0);
  sondex::chooseStatisticsLayout(names.version);
  pthread_t reader;
  ASSERT_EQ(pthread_create(&reader, nullptr, sondex::doNStat, nullptr), 0);
  pthread_detach(reader);  // it reads until the end of the program
  ASSERT_TRUE(test::waitUntil([] { return sondex::nstat_ok() != 0; }));
  EXPECT_TRUE(test::waitUntil([&] {
    return isNear(sondex::getRXBytesForProcess(receiver.pid())) &&
           isNear(sondex::getTXBytesForProcess(sender.pid()));
  }));
  describe(receiver, "receiver");
  describe(sender, "sender");
  // Each has only listened to the other.
  EXPECT_LT(sondex::getTXBytesForProcess(receiver.pid()), 1000);
  EXPECT_LT(sondex::getRXBytesForProcess(sender.pid()), 1000);
  EXPECT_GE(sondex::getTXBytesForProcess(receiver.pid()), 0);
  EXPECT_GE(sondex::getRXBytesForProcess(sender.pid()), 0);

  // A connection that closes takes its bytes along.
  sender.leave();
  receiver.leave();
  EXPECT_TRUE(test::waitUntil([&] {
    return sondex::getNTStatInfo(receiver.pid()) == nullptr &&
           sondex::getNTStatInfo(sender.pid()) == nullptr;
  }));
}

}  // namespace
