// Process events: messages of the kernel's process connector over tables, and a child of the test's
// own that forks, execs and exits.
#include "host/linux/process_events.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/kqueue.h"
#include "host/linux/linux_machine.h"
#include "tests/unit/waiting.h"

namespace host::linux_machine {
namespace {

using darwin::NOTE_EXEC;
using darwin::NOTE_EXIT;
using darwin::NOTE_FORK;
using std::chrono::seconds;

constexpr uint32_t kExit = 0x80000000;

// A message as the kernel sends it: three headers, then these words.
std::vector<uint8_t> message(uint32_t kind, const std::vector<uint32_t> &data, uint32_t index = 1,
                             uint32_t acknowledged = 0) {
  std::vector<uint32_t> words = {0,     3, 0,  0,  // netlink
                                 index, 1, 77, acknowledged,
                                 40,                // connector
                                 kind,  0, 0,  0};  // processor, time
  words.insert(words.end(), data.begin(), data.end());
  words[0] = static_cast<uint32_t>(words.size() * 4);
  std::vector<uint8_t> bytes(words.size() * 4);
  std::memcpy(bytes.data(), words.data(), bytes.size());
  return bytes;
}

bool parse(const std::vector<uint8_t> &bytes, ProcessEvent &event) {
  return parseConnectorMessage(bytes.data(), bytes.size(), event);
}

TEST(ConnectorMessage, Fork) {
  ProcessEvent event{};
  // A thread of process 20 makes process 30.
  ASSERT_TRUE(parse(message(1, {21, 20, 30, 30}), event));
  EXPECT_EQ(event.pid, 20);
  EXPECT_EQ(event.notes, NOTE_FORK);
}

TEST(ConnectorMessage, ThreadIsNoFork) {
  ProcessEvent event{};
  EXPECT_FALSE(parse(message(1, {20, 20, 31, 20}), event));
}

TEST(ConnectorMessage, Exec) {
  ProcessEvent event{};
  ASSERT_TRUE(parse(message(2, {40, 40}), event));
  EXPECT_EQ(event.pid, 40);
  EXPECT_EQ(event.notes, NOTE_EXEC);
}

TEST(ConnectorMessage, Others) {
  ProcessEvent event{7, 9};
  for (const uint32_t kind : {0u, 4u, 0x40u, 0x80u, 0x100u, 0x200u, 0x40000000u, kExit}) {
    EXPECT_FALSE(parse(message(kind, {40, 40, 0, 17, 1, 1}), event)) << kind;
  }
  EXPECT_FALSE(parse(message(2, {40, 40}, 2), event)) << "of another kernel service";
  EXPECT_EQ(event.pid, 7);
}

TEST(ConnectorMessage, CutShort) {
  ProcessEvent event{};
  for (const std::vector<uint8_t> &whole : {message(1, {21, 20, 30, 30}), message(2, {40, 40})}) {
    for (size_t size = 0; size < whole.size(); size++) {
      EXPECT_FALSE(parseConnectorMessage(whole.data(), size, event)) << size;
    }
  }
}

TEST(ConnectorRequest, IsOneWord) {
  for (const bool listens : {true, false}) {
    const std::vector<uint8_t> request = makeConnectorRequest(listens, 4711);
    ASSERT_EQ(request.size(), 40u);
    uint32_t words[10];
    std::memcpy(words, request.data(), sizeof words);
    EXPECT_EQ(words[0], 40u);
    EXPECT_EQ(words[1] & 0xFFFF, 3u);
    EXPECT_EQ(words[4], 1u);
    EXPECT_EQ(words[5], 1u);
    EXPECT_EQ(words[7], 4711u);
    EXPECT_EQ(words[8], 4u);
    EXPECT_EQ(words[9], listens ? 1u : 2u);
  }
}

TEST(ConnectorAnswer, IsTheRequests) {
  int error = -1;
  const std::vector<uint8_t> fine = message(0, {0}, 1, 4712);
  ASSERT_TRUE(parseConnectorAnswer(fine.data(), fine.size(), 4711, error));
  EXPECT_EQ(error, 0);
  const std::vector<uint8_t> refused = message(0, {1}, 1, 4712);
  ASSERT_TRUE(parseConnectorAnswer(refused.data(), refused.size(), 4711, error));
  EXPECT_EQ(error, 1);
  EXPECT_FALSE(parseConnectorAnswer(fine.data(), fine.size(), 4712, error));
  EXPECT_FALSE(parseConnectorAnswer(fine.data(), fine.size() - 1, 4711, error));
  const std::vector<uint8_t> other = message(2, {0}, 1, 4712);
  EXPECT_FALSE(parseConnectorAnswer(other.data(), other.size(), 4711, error));
}

// A child that does what it is told by letters: "f" forks, "t" makes a thread, "e" becomes cat. It
// exits when nobody can tell it any more.
class ToldChild {
 public:
  ToldChild() {
    int orders[2];
    int answers[2];
    if (pipe(orders) != 0 || pipe(answers) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) {
      dup2(orders[0], STDIN_FILENO);
      dup2(answers[1], STDOUT_FILENO);
      for (const int end : {orders[0], orders[1], answers[0], answers[1]}) close(end);
      obey();
    }
    close(orders[0]);
    close(answers[1]);
    orders_ = orders[1];
    answers_ = answers[0];
  }
  ~ToldChild() {
    dismiss();
    reap();
    close(answers_);
  }
  ToldChild(const ToldChild &) = delete;
  ToldChild &operator=(const ToldChild &) = delete;

  pid_t pid() const { return pid_; }
  // Returns once it is done.
  void tell(char order) const {
    char done = 0;
    ASSERT_EQ(write(orders_, &order, 1), 1);
    // As cat it sends back what it gets.
    if (order == 'e') {
      ASSERT_EQ(write(orders_, "!", 1), 1);
    }
    ASSERT_EQ(read(answers_, &done, 1), 1);
  }
  void dismiss() {
    if (orders_ >= 0) close(orders_);
    orders_ = -1;
  }
  void reap() {
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  void waitUntilZombie() const {
    siginfo_t information{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid_), &information, WEXITED | WNOWAIT), 0);
  }

 private:
  [[noreturn]] static void obey() {
    char order = 0;
    while (read(STDIN_FILENO, &order, 1) == 1) {
      if (order == 'f') {
        const pid_t grandchild = fork();
        if (grandchild == 0) _exit(0);
        waitpid(grandchild, nullptr, 0);
      } else if (order == 't') {
        pthread_t thread{};
        pthread_create(
            &thread, nullptr, [](void *) -> void * { return nullptr; }, nullptr);
        pthread_join(thread, nullptr);
      } else if (order == 'e') {
        execl("/bin/cat", "cat", static_cast<char *>(nullptr));
      }
      if (write(STDOUT_FILENO, "!", 1) != 1) break;
    }
    _exit(0);
  }

  pid_t pid_ = -1;
  int orders_ = -1;
  int answers_ = -1;
};

class LinuxProcessEventsTest : public testing::Test {
 protected:
  void open(bool usesConnector = true) {
    ASSERT_EQ(LinuxProcessEvents::open(events_, usesConnector), kAnswered);
  }
  bool hasConnector() const {
    return static_cast<const LinuxProcessEvents &>(*events_).hasConnector();
  }
  // The notes of the child until all these have come, which may be a moment after they happened.
  uint32_t notesUntil(const ToldChild &child, uint32_t wanted) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    uint32_t notes = 0;
    while ((notes & wanted) != wanted && std::chrono::steady_clock::now() < deadline) {
      std::vector<ProcessEvent> happened;
      EXPECT_EQ(events_->wait(std::chrono::milliseconds(100), happened), kAnswered);
      for (const ProcessEvent &event : happened) {
        EXPECT_EQ(event.pid, child.pid());
        notes |= event.notes;
      }
    }
    return notes;
  }
  std::vector<ProcessEvent> waitForSome() {
    std::vector<ProcessEvent> happened;
    EXPECT_EQ(events_->wait(kPatience, happened), kAnswered);
    return happened;
  }

  std::unique_ptr<ProcessEvents> events_;
  ToldChild child_;
};

TEST_F(LinuxProcessEventsTest, ForkExecAndExit) {
  open();
  if (!hasConnector()) GTEST_SKIP() << "the process connector is not permitted";
  ASSERT_EQ(events_->watch(child_.pid()), kAnswered);
  child_.tell('f');
  EXPECT_EQ(notesUntil(child_, NOTE_FORK), NOTE_FORK);
  child_.tell('t');
  child_.tell('e');
  EXPECT_EQ(notesUntil(child_, NOTE_EXEC), NOTE_EXEC) << "a thread is no process";
  child_.dismiss();
  EXPECT_EQ(notesUntil(child_, NOTE_EXIT), NOTE_EXIT);
}

TEST_F(LinuxProcessEventsTest, OthersAreNotTold) {
  open();
  if (!hasConnector()) GTEST_SKIP() << "the process connector is not permitted";
  ASSERT_EQ(events_->watch(child_.pid()), kAnswered);
  const ToldChild other;
  other.tell('f');
  child_.tell('f');
  EXPECT_EQ(notesUntil(child_, NOTE_FORK), NOTE_FORK);
  ASSERT_EQ(events_->watch(other.pid()), kAnswered);
  other.tell('f');
  EXPECT_EQ(notesUntil(other, NOTE_FORK), NOTE_FORK);
  child_.tell('f');
  EXPECT_EQ(notesUntil(child_, NOTE_FORK), NOTE_FORK) << "the first one is still watched";
  events_->unwatch(child_.pid());
  child_.tell('f');
  other.tell('f');
  EXPECT_EQ(notesUntil(other, NOTE_FORK), NOTE_FORK);
}

TEST_F(LinuxProcessEventsTest, WithoutTheConnectorExitIsSeen) {
  open(false);
  EXPECT_FALSE(hasConnector());
  ASSERT_EQ(events_->watch(child_.pid()), kAnswered);
  child_.tell('f');
  child_.dismiss();
  const std::vector<ProcessEvent> happened = waitForSome();
  ASSERT_EQ(happened.size(), 1u);
  EXPECT_EQ(happened[0].pid, child_.pid());
  EXPECT_EQ(happened[0].notes, NOTE_EXIT);
  std::vector<ProcessEvent> again;
  EXPECT_EQ(events_->wait(seconds(0), again), kAnswered);
  EXPECT_TRUE(again.empty()) << "told once";
}

TEST_F(LinuxProcessEventsTest, ProcessesThatAreNotThere) {
  open();
  EXPECT_EQ(events_->watch(0), darwin::DARWIN_ESRCH);
  EXPECT_EQ(events_->watch(-1), darwin::DARWIN_ESRCH);
  EXPECT_EQ(events_->watch(INT32_MAX), darwin::DARWIN_ESRCH);
  child_.dismiss();
  child_.waitUntilZombie();
  EXPECT_EQ(events_->watch(child_.pid()), darwin::DARWIN_ESRCH) << "a zombie";
}

TEST_F(LinuxProcessEventsTest, TimeIsUp) {
  open();
  ASSERT_EQ(events_->watch(child_.pid()), kAnswered);
  std::vector<ProcessEvent> happened = {{1, 1}};
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(events_->wait(std::chrono::milliseconds(20), happened), kAnswered);
  EXPECT_TRUE(happened.empty());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

TEST_F(LinuxProcessEventsTest, AProcessMayBeAddedWhileAnotherThreadWaits) {
  open();
  std::vector<ProcessEvent> happened;
  std::thread waiter([&] { events_->wait(kPatience, happened); });
  EXPECT_EQ(events_->watch(child_.pid()), kAnswered);
  child_.dismiss();
  waiter.join();
  ASSERT_EQ(happened.size(), 1u);
  EXPECT_EQ(happened[0].notes, NOTE_EXIT);
}

TEST_F(LinuxProcessEventsTest, ASignalEndsTheWait) {
  open();
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, &before);
  std::atomic<bool> ended{false};
  Errno error = kAnswered;
  std::thread waiter([&] {
    std::vector<ProcessEvent> happened;
    error = events_->wait(std::nullopt, happened);
    ended = true;
  });
  while (!ended) {
    pthread_kill(waiter.native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  waiter.join();
  sigaction(SIGUSR1, &before, nullptr);
  EXPECT_EQ(error, darwin::DARWIN_EINTR);
}

TEST_F(LinuxProcessEventsTest, ThroughAKernelQueue) {
  const std::unique_ptr<Machine> linux = makeLinuxMachine();
  ASSERT_NE(linux, nullptr);
  Machine *before = useMachine(linux.get());
  const int queue = darwin::kqueue();
  struct darwin::kevent change {};
  change.ident = static_cast<uint64_t>(child_.pid());
  change.filter = darwin::EVFILT_PROC;
  change.flags = darwin::EV_ADD;
  change.fflags = NOTE_EXIT | NOTE_FORK | NOTE_EXEC;
  EXPECT_EQ(darwin::kevent(queue, &change, 1, nullptr, 0, nullptr), 0);
  child_.dismiss();
  struct darwin::kevent event {};
  EXPECT_EQ(darwin::kevent(queue, nullptr, 0, &event, 1, nullptr), 1);
  EXPECT_EQ(event.ident, change.ident);
  EXPECT_EQ(event.fflags, NOTE_EXIT);
  EXPECT_EQ(event.flags & (darwin::EV_EOF | darwin::EV_ONESHOT),
            darwin::EV_EOF | darwin::EV_ONESHOT);
  child_.reap();
  errno = 0;
  EXPECT_EQ(darwin::kevent(queue, &change, 1, nullptr, 0, nullptr), -1);
  EXPECT_EQ(errno, darwin::DARWIN_ESRCH);
  close(queue);
  // Its state goes with the next queue, and must not outlive the machine.
  close(darwin::kqueue());
  useMachine(before);
}

}  // namespace
}  // namespace host::linux_machine
