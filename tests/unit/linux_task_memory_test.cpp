// Memory, registers and regions of other processes through the live machine: children of the test
// that know what they hold and where they are.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "host/darwin/errors.h"
#include "host/linux/linux_machine.h"
#include "host/linux/register_set.h"
#include "host/linux/registers.h"
#include "host/linux/task_memory.h"
#include "host/posix.h"
#include "tests/unit/waiting.h"

namespace host::linux_machine {
namespace {

using darwin::arm_thread_state64_t;
using Clock = std::chrono::steady_clock;

constexpr size_t kPage = 4096;
constexpr size_t kStack = 4 << 20;  // a sanitizer has much of it for itself

// The letter of its state, '?' for one that is gone.
char stateOf(pid_t process, pid_t thread) {
  std::ifstream file("/proc/" + std::to_string(process) + "/task/" + std::to_string(thread) +
                     "/stat");
  std::string text;
  std::getline(file, text);
  const size_t name = text.rfind(')');
  return name == std::string::npos || name + 2 >= text.size() ? '?' : text[name + 2];
}

// What a child and the test both see.
struct Board {
  std::atomic<pid_t> thread;
  std::atomic<uint64_t> turns;
  std::atomic<int> signals;
  std::atomic<int> received;  // the byte that was waited for, or a failure's errno above 1000
  int toChild[2];
  char area[16];
};

// The mappings come before the child, so that their addresses are the same in both.
class KnownChild : public testing::Test {
 protected:
  void SetUp() override {
    board_ = static_cast<Board *>(
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(board_, MAP_FAILED);
    new (board_) Board{};
    ASSERT_EQ(pipe2(board_->toChild, O_CLOEXEC), 0);
    stack_ = static_cast<char *>(
        mmap(nullptr, kStack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(stack_, MAP_FAILED);
  }
  void TearDown() override {
    endChild();
    close(board_->toChild[0]);
    close(board_->toChild[1]);
    munmap(board_, sizeof(Board));
    munmap(stack_, kStack);
  }

  void start(const std::function<void()> &work) {
    child_ = fork();
    ASSERT_GE(child_, 0);
    if (child_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      work();
      _exit(0);
    }
  }
  // Runs `body` on a thread whose stack is stack_.
  void startOnKnownStack(void *(*body)(void *)) {
    start([&] {
      pthread_attr_t attributes;
      pthread_t thread;
      pthread_attr_init(&attributes);
      pthread_attr_setstack(&attributes, stack_, kStack);
      if (pthread_create(&thread, &attributes, body, board_) != 0) _exit(1);
      while (true) pause();
    });
    ASSERT_TRUE(waitUntil([&] { return board_->thread != 0; }));
  }
  void endChild() {
    if (child_ <= 0) return;
    __real_kill(child_, SIGKILL);
    EXPECT_EQ(waitpid(child_, nullptr, 0), child_);
    child_ = -1;
  }
  bool isInState(char state) {
    return waitUntil([&] { return stateOf(child_, board_->thread) == state; });
  }
  std::optional<arm_thread_state64_t> registers() {
    ThreadRegisters read;
    const Errno error =
        machine().threadRegisters(child_, static_cast<uint64_t>(board_->thread.load()), read);
    EXPECT_EQ(error, kAnswered);
    if (error != kAnswered || !std::holds_alternative<arm_thread_state64_t>(read)) {
      return std::nullopt;
    }
    return std::get<arm_thread_state64_t>(read);
  }
  Errno registersError(uint64_t thread) {
    ThreadRegisters read;
    return machine().threadRegisters(child_, thread, read);
  }
  bool isInStack(uint64_t pointer) const {
    const uint64_t start = reinterpret_cast<uint64_t>(stack_);
    return pointer >= start && pointer < start + kStack;
  }
  void expectStillWaiting() {
    EXPECT_EQ(board_->received, 0);
    ASSERT_EQ(write(board_->toChild[1], "x", 1), 1);
    EXPECT_TRUE(waitUntil([&] { return board_->received != 0; }));
    EXPECT_EQ(board_->received, 'x') << "waited on as if nothing had been";
  }

  LinuxMachine &machine() {
    if (!machine_) machine_.emplace(openDirectory(AT_FDCWD, "/proc"));
    return *machine_;
  }

  Board *board_ = nullptr;
  char *stack_ = nullptr;
  pid_t child_ = -1;
  std::optional<LinuxMachine> machine_;
};

void *waitForByte(void *argument) {
  auto *board = static_cast<Board *>(argument);
  board->thread = gettid();
  char byte = 0;
  const ssize_t length = read(board->toChild[0], &board->area, 7);
  byte = board->area[0];
  board->received = length > 0 ? byte : 1000 + errno;
  while (true) pause();
}

// Calls nothing, a sanitizer neither.
[[gnu::noinline, gnu::no_sanitize_thread]] void turnForever(Board *board) {
  auto *turns = reinterpret_cast<uint64_t *>(&board->turns);
  while (true) __atomic_fetch_add(turns, 1, __ATOMIC_RELAXED);
}

void *turn(void *argument) {
  auto *board = static_cast<Board *>(argument);
  board->thread = gettid();
  turnForever(board);
  return nullptr;
}

using LinuxRegisters = KnownChild;

TEST_F(LinuxRegisters, OfAThreadThatWaits) {
  startOnKnownStack(waitForByte);
  ASSERT_TRUE(isInState('S'));
  const std::optional<arm_thread_state64_t> state = registers();
  ASSERT_TRUE(state);
  EXPECT_TRUE(isInStack(state->__sp)) << std::hex << state->__sp;
  Dl_info function{};
  ASSERT_NE(dladdr(reinterpret_cast<void *>(state->__pc), &function), 0);
  ASSERT_NE(function.dli_sname, nullptr);
  EXPECT_NE(std::string(function.dli_sname).find("read"), std::string::npos) << function.dli_sname;
  EXPECT_EQ(state->__x[0], static_cast<uint64_t>(board_->toChild[0]));
  EXPECT_EQ(state->__x[1], reinterpret_cast<uint64_t>(&board_->area));
  EXPECT_EQ(state->__x[2], 7u);
  EXPECT_EQ(state->__x[8], static_cast<uint64_t>(SYS_read));
  EXPECT_TRUE(isInState('S'));
  expectStillWaiting();
}

TEST_F(LinuxRegisters, OfAThreadThatComputes) {
  startOnKnownStack(turn);
  const auto function = reinterpret_cast<uint64_t>(&turnForever);
  for (int look = 0; look < 20; look++) {
    const std::optional<arm_thread_state64_t> state = registers();
    ASSERT_TRUE(state);
    EXPECT_TRUE(isInStack(state->__sp)) << std::hex << state->__sp;
    EXPECT_GE(state->__pc, function);
    EXPECT_LT(state->__pc, function + 256);
    const uint64_t turns = board_->turns;
    EXPECT_TRUE(waitUntil([&] { return board_->turns > turns; })) << "it goes on";
  }
}

TEST_F(LinuxRegisters, AStoppedProcessStaysStopped) {
  startOnKnownStack(waitForByte);
  ASSERT_TRUE(isInState('S'));
  ASSERT_EQ(__real_kill(child_, SIGSTOP), 0);
  ASSERT_TRUE(isInState('T'));
  for (int look = 0; look < 5; look++) {
    const std::optional<arm_thread_state64_t> state = registers();
    ASSERT_TRUE(state);
    EXPECT_TRUE(isInStack(state->__sp));
    ASSERT_TRUE(isInState('T'));
  }
  EXPECT_TRUE(waitUntil([&] { return stateOf(child_, child_) == 'T'; })) << "the others too";
  ASSERT_EQ(__real_kill(child_, SIGCONT), 0);
  ASSERT_TRUE(isInState('S'));
  expectStillWaiting();
}

Board *signalBoard = nullptr;

void *countSignals(void *argument) {
  signalBoard = static_cast<Board *>(argument);
  struct sigaction action {};
  action.sa_handler = [](int) { signalBoard->signals++; };
  sigaction(SIGUSR1, &action, nullptr);
  signalBoard->thread = gettid();
  while (true) pause();
}

// A signal that comes while the thread is about to stop is what it stops for.
TEST_F(LinuxRegisters, NoSignalIsLost) {
  constexpr int kMany = 300;
  startOnKnownStack(countSignals);
  ASSERT_TRUE(isInState('S'));
  std::atomic<bool> done{false};
  std::thread sender([&] {
    for (int sent = 1; sent <= kMany; sent++) {
      tgkill(child_, board_->thread, SIGUSR1);
      if (!waitUntil([&] { return board_->signals >= sent; })) break;
    }
    done = true;
  });
  int looks = 0;
  for (; !done; looks++) EXPECT_TRUE(registers());
  sender.join();
  EXPECT_GT(looks, 0);
  EXPECT_EQ(board_->signals, kMany);
}

// As vfork() leaves its caller, which waits without letting itself be disturbed; but the child has
// memory of its own. A sanitizer may make a plain fork() of that call.
pid_t forkAndWait() {
  return static_cast<pid_t>(
      __real_syscall(SYS_clone, CLONE_VFORK | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(LinuxRegisters, OfAThreadThatCantBeStopped) {
  start([&] {
    board_->thread = gettid();
    const int end = board_->toChild[0];
    Board *board = board_;
    if (forkAndWait() == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      ssize_t length = read(end, board->area, 1);
      _exit(length == 1 ? 0 : 1);
    }
    board->received = 'x';
    while (true) pause();
  });
  ASSERT_TRUE(isInState('D'));
  std::optional<arm_thread_state64_t> state;
  // To try and to give up takes longer, always; on a busy machine anything may, now and then.
  EXPECT_TRUE(waitUntil([&] {
    const Clock::time_point start = Clock::now();
    state = registers();
    return Clock::now() - start < std::chrono::milliseconds(400);
  })) << "it was not tried";
  ASSERT_TRUE(state);
  EXPECT_NE(state->__sp, 0u);
  EXPECT_NE(state->__pc, 0u);
  expectStillWaiting();
  EXPECT_TRUE(isInState('S'));
}

TEST_F(LinuxRegisters, OfAThreadThatAnotherTraces) {
  startOnKnownStack(waitForByte);
  ASSERT_TRUE(isInState('S'));
  int ready[2];
  ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
  const pid_t tracer = fork();
  if (tracer == 0) {
    const long seized = ptrace(PTRACE_SEIZE, board_->thread.load(), nullptr, nullptr);
    const char word = seized == 0 ? 'y' : 'n';
    if (write(ready[1], &word, 1) != 1) _exit(1);
    while (true) pause();
  }
  char word = 0;
  ASSERT_EQ(read(ready[0], &word, 1), 1);
  EXPECT_EQ(word, 'y');
  const std::optional<arm_thread_state64_t> state = registers();
  ASSERT_TRUE(state);
  EXPECT_TRUE(isInStack(state->__sp));
  EXPECT_EQ(state->__x[8], static_cast<uint64_t>(SYS_read));
  expectStillWaiting();
  __real_kill(tracer, SIGKILL);
  EXPECT_EQ(waitpid(tracer, nullptr, 0), tracer);
  close(ready[0]);
  close(ready[1]);
}

TEST_F(LinuxRegisters, OfTheProgramsOwnThread) {
  pthread_attr_t attributes;
  pthread_t thread;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack_, kStack);
  const auto body = [](void *argument) -> void * {
    auto *board = static_cast<Board *>(argument);
    board->thread = gettid();
    const ssize_t length = read(board->toChild[0], board->area, 1);
    board->received = length == 1 ? board->area[0] : 1000;
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, body, board_), 0);
  ASSERT_TRUE(waitUntil([&] { return board_->thread != 0; }));
  ASSERT_TRUE(waitUntil([&] { return stateOf(getpid(), board_->thread) == 'S'; }));
  ThreadRegisters read;
  ASSERT_EQ(machine().threadRegisters(getpid(), static_cast<uint64_t>(board_->thread.load()), read),
            kAnswered);
  EXPECT_TRUE(isInStack(std::get<arm_thread_state64_t>(read).__sp));
  expectStillWaiting();
  pthread_join(thread, nullptr);
}

TEST_F(LinuxRegisters, WithoutAThreadThereAreNone) {
  startOnKnownStack(waitForByte);
  const auto other = static_cast<uint64_t>(getpid());
  for (const uint64_t thread : {uint64_t{0}, UINT64_MAX, uint64_t{1} << 32, other}) {
    EXPECT_EQ(registersError(thread), darwin::DARWIN_ESRCH) << thread;
  }
  const auto known = static_cast<uint64_t>(board_->thread.load());
  __real_kill(child_, SIGKILL);
  siginfo_t ended{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child_), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(registersError(static_cast<uint64_t>(child_)), darwin::DARWIN_ESRCH) << "a zombie";
  EXPECT_EQ(registersError(known), darwin::DARWIN_ESRCH);
  endChild();
}

// Looking at a process's threads while it ends takes nothing from who waits for it.
TEST_F(LinuxRegisters, AnEndIsLeftToItsParent) {
  for (int status = 0; status < 60; status++) {
    const pid_t child = fork();
    if (child == 0) _exit(status);
    ThreadRegisters read;
    Errno error = kAnswered;
    for (int look = 0; look < 200 && error == kAnswered; look++) {
      error = machine().threadRegisters(child, static_cast<uint64_t>(child), read);
    }
    int ended = 0;
    ASSERT_EQ(waitpid(child, &ended, 0), child);
    ASSERT_TRUE(WIFEXITED(ended));
    EXPECT_EQ(WEXITSTATUS(ended), status);
  }
}

TEST(RegisterSets, OfTwoWordSizesAreKnown) {
  RegisterSet set{};
  for (size_t i = 0; i < set.size(); i++) set[i] = static_cast<std::byte>(i);
  std::vector<size_t> wide;
  std::vector<size_t> narrow;
  for (size_t size = 0; size <= set.size(); size++) {
    ThreadRegisters registers;
    if (!registersOfSet(set, size, registers)) continue;
    if (const auto *state = std::get_if<arm_thread_state64_t>(&registers)) {
      wide.push_back(size);
      EXPECT_NE(state->__pc, 0u);
      EXPECT_NE(state->__sp, state->__pc);
      EXPECT_NE(state->__fp, state->__sp);
    } else {
      narrow.push_back(size);
      const auto &words = std::get<darwin::arm_thread_state32_t>(registers);
      EXPECT_NE(words.__pc, 0u);
      EXPECT_NE(words.__sp, words.__pc);
    }
  }
  EXPECT_EQ(wide.size(), 1u);
  EXPECT_EQ(narrow.size(), 1u);
}

TEST(RegisterSets, OfACall) {
  const BlockedCall call = {true, 77, {1, 2, 3, 4, 5, 6}, 0x100001000, 0x200002000};
  const auto wide = std::get<arm_thread_state64_t>(registersOfCall(call, true));
  for (uint64_t i = 0; i < 6; i++) EXPECT_EQ(wide.__x[i], i + 1);
  EXPECT_EQ(wide.__x[8], 77u);
  EXPECT_EQ(wide.__sp, 0x100001000u);
  EXPECT_EQ(wide.__pc, 0x200002000u);
  EXPECT_EQ(wide.__lr, 0u);
  const auto narrow = std::get<darwin::arm_thread_state32_t>(registersOfCall(call, false));
  for (uint32_t i = 0; i < 5; i++) EXPECT_EQ(narrow.__r[i], i + 1);
  EXPECT_EQ(narrow.__sp, 0x1000u);
  EXPECT_EQ(narrow.__pc, 0x2000u);
}

// Pages of a child: two that can be read, with known bytes, and one of each other kind behind them.
class LinuxTaskMemory : public KnownChild {
 protected:
  static constexpr size_t kPages = 8;

  void SetUp() override {
    KnownChild::SetUp();
    pages_ = static_cast<char *>(
        mmap(nullptr, kPages * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages_, MAP_FAILED);
    start([&] {
      for (size_t i = 0; i < 2 * kPage; i++) pages_[i] = byteAt(i);
      // Leaves a hole; a part of a mapping can't be unmapped under the leak detector's eyes.
      mremap(page(2), kPage, kPage, MREMAP_MAYMOVE | MREMAP_FIXED, stack_);
      mprotect(page(3), kPage, PROT_NONE);
      mprotect(page(4), kPage, PROT_WRITE);
      const int file = memfd_create("short", MFD_CLOEXEC);  // and so nothing behind the mapping
      mmap(page(5), kPage, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0);
      mprotect(page(7), kPage, PROT_READ);
      board_->thread = gettid();
      while (true) pause();
    });
    ASSERT_TRUE(waitUntil([&] { return board_->thread != 0; }));
  }
  void TearDown() override {
    KnownChild::TearDown();
    munmap(pages_, kPages * kPage);
  }

  static char byteAt(size_t offset) { return static_cast<char>(offset * 7 + offset / kPage); }
  char *page(size_t number) const { return pages_ + number * kPage; }
  Errno readAt(const char *address, size_t size, std::vector<char> &bytes) {
    bytes.assign(size, 0);
    return machine().readMemory(child_, reinterpret_cast<uint64_t>(address), size, bytes.data());
  }
  Errno errorAt(const char *address, size_t size) {
    std::vector<char> bytes;
    return readAt(address, size, bytes);
  }

  char *pages_ = nullptr;
};

TEST_F(LinuxTaskMemory, IsReadWhereItCanBe) {
  std::vector<char> bytes;
  for (const auto &[offset, size] : std::vector<std::pair<size_t, size_t>>{
           {0, 1}, {1, 2}, {kPage - 1, 2}, {0, 2 * kPage}, {2 * kPage - 1, 1}}) {
    ASSERT_EQ(readAt(pages_ + offset, size, bytes), kAnswered) << offset << " " << size;
    for (size_t i = 0; i < size; i++) ASSERT_EQ(bytes[i], byteAt(offset + i));
  }
  ASSERT_EQ(readAt(page(6), 2 * kPage, bytes), kAnswered) << "never touched, and only readable";
  EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == 0; }));
  EXPECT_EQ(readAt(page(2), 0, bytes), kAnswered);
}

TEST_F(LinuxTaskMemory, IsAllOrNothing) {
  EXPECT_EQ(errorAt(page(2), 1), darwin::DARWIN_EFAULT) << "a hole";
  EXPECT_EQ(errorAt(page(3), 1), darwin::DARWIN_EFAULT) << "no access";
  EXPECT_EQ(errorAt(page(4), 1), darwin::DARWIN_EFAULT) << "only writable";
  EXPECT_EQ(errorAt(page(5), 1), darwin::DARWIN_EFAULT) << "beyond the file's end";
  EXPECT_EQ(errorAt(page(1), kPage + 1), darwin::DARWIN_EFAULT) << "into the hole";
  EXPECT_EQ(errorAt(page(2) - 1, 2), darwin::DARWIN_EFAULT);
  EXPECT_EQ(errorAt(page(5), 2 * kPage), darwin::DARWIN_EFAULT) << "starts badly";
  EXPECT_EQ(errorAt(nullptr, 1), darwin::DARWIN_EFAULT);
}

TEST_F(LinuxTaskMemory, OfAddressesThatNoProcessHas) {
  char byte = 0;
  for (const uint64_t address : {uint64_t{0xffffffffff600000}, uint64_t{0x8000000000000000},
                                 UINT64_MAX, uint64_t{0x0000800000000000}}) {
    EXPECT_EQ(machine().readMemory(child_, address, 1, &byte), darwin::DARWIN_EFAULT)
        << std::hex << address;
  }
  EXPECT_EQ(machine().readMemory(child_, UINT64_MAX, 2, &byte), darwin::DARWIN_EFAULT);
}

TEST_F(LinuxTaskMemory, OfTheProgramItself) {
  const char own[] = "of the program itself";
  char bytes[sizeof own] = "";
  ASSERT_EQ(machine().readMemory(getpid(), reinterpret_cast<uint64_t>(own), sizeof own, bytes),
            kAnswered);
  EXPECT_STREQ(bytes, own);
}

TEST_F(LinuxTaskMemory, OfAProcessThatIsGone) {
  const std::string path = "/proc/" + std::to_string(child_);
  const FileHandle directory = openStartingPoint(AT_FDCWD, path.c_str());
  ASSERT_EQ(checkMemoryAccess(directory.get()), kAnswered);
  const pid_t ended = child_;
  __real_kill(child_, SIGKILL);
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child_), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(errorAt(pages_, 1), darwin::DARWIN_ESRCH) << "a zombie";
  EXPECT_EQ(machine().taskPort(ended), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine().taskNamePort(ended), darwin::DARWIN_ESRCH);
  endChild();
  char byte = 0;
  EXPECT_EQ(machine().readMemory(ended, reinterpret_cast<uint64_t>(pages_), 1, &byte),
            darwin::DARWIN_ESRCH);
  // As if the pid were another process's by now.
  EXPECT_EQ(readTaskMemory(directory.get(), getpid(), reinterpret_cast<uint64_t>(pages_), 1, &byte),
            darwin::DARWIN_ESRCH);
  EXPECT_EQ(checkMemoryAccess(directory.get()), darwin::DARWIN_ESRCH);
  darwin::proc_regionwithpathinfo region{};
  EXPECT_EQ(machine().region(ended, 0, region), darwin::DARWIN_ESRCH);
}

TEST_F(LinuxTaskMemory, ItsOwnersMayHaveItsPorts) {
  EXPECT_EQ(machine().taskPort(child_), kAnswered);
  EXPECT_EQ(machine().taskNamePort(child_), kAnswered);
  EXPECT_EQ(machine().taskPort(0), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine().taskPort(-1), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine().kernelTaskPort(), darwin::DARWIN_ENOTSUP);
}

// What the answers to another user, who asks in a process of its own, are: one word.
std::string answersToNobody(pid_t root, uint64_t address) {
  LinuxMachine machine(openDirectory(AT_FDCWD, "/proc"));
  std::string answers;
  const auto add = [&answers](Errno error) {
    answers += error == kAnswered ? 'y' : error == darwin::DARWIN_EPERM ? 'n' : '?';
  };
  darwin::proc_regionwithpathinfo region{};
  ThreadRegisters registers;
  char byte = 0;
  for (const pid_t pid : {root, getpid()}) {
    add(machine.taskPort(pid));
    add(machine.taskNamePort(pid));
    add(machine.region(pid, address, region));
    add(machine.readMemory(pid, address, 1, &byte));
    add(machine.threadRegisters(pid, static_cast<uint64_t>(pid), registers));
  }
  return answers;
}

TEST_F(LinuxTaskMemory, OthersAreNotPermitted) {
  if (__real_geteuid() != 0) GTEST_SKIP() << "needs root to be another user";
  int told[2];
  ASSERT_EQ(pipe2(told, O_CLOEXEC), 0);
  const pid_t asker = fork();
  if (asker == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(1);
    prctl(PR_SET_DUMPABLE, 1);  // the change of user took it away
    const std::string answers = answersToNobody(child_, reinterpret_cast<uint64_t>(pages_));
    _exit(write(told[1], answers.data(), answers.size()) > 0 ? 0 : 1);
  }
  char answers[16] = "";
  EXPECT_EQ(read(told[0], answers, sizeof answers - 1), 10);
  EXPECT_STREQ(answers, "nnnnnyyyyy");
  EXPECT_EQ(waitpid(asker, nullptr, 0), asker);
  close(told[0]);
  close(told[1]);
}

TEST_F(LinuxTaskMemory, TheKernelsThreadsHaveNone) {
  if (std::ifstream("/proc/2/comm").get() != 'k') GTEST_SKIP() << "none is to be seen from here";
  darwin::proc_regionwithpathinfo region{};
  ThreadRegisters registers;
  char byte = 0;
  const bool isRoot = __real_geteuid() == 0;
  EXPECT_EQ(machine().region(2, 0, region), isRoot ? darwin::DARWIN_EINVAL : darwin::DARWIN_EPERM);
  EXPECT_EQ(machine().taskPort(2), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine().taskNamePort(2), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine().readMemory(2, 0x1000, 1, &byte), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine().threadRegisters(2, 2, registers), darwin::DARWIN_EPERM);
}

// As the machine tells them, one line each, up to the last.
std::vector<std::string> regionLines(LinuxMachine &machine, pid_t pid) {
  std::vector<std::string> lines;
  uint64_t address = 0;
  darwin::proc_regionwithpathinfo region{};
  while (machine.region(pid, address, region) == kAnswered) {
    const uint64_t end = region.prp_prinfo.pri_address + region.prp_prinfo.pri_size;
    char range[64];
    snprintf(range, sizeof range, "%08llx-%08llx",
             static_cast<unsigned long long>(region.prp_prinfo.pri_address),
             static_cast<unsigned long long>(end));
    lines.emplace_back(range);
    address = end + 1;
  }
  EXPECT_EQ(machine.region(pid, address, region), darwin::DARWIN_EINVAL);
  return lines;
}

std::vector<std::string> mapLines(pid_t pid) {
  std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
  std::vector<std::string> lines;
  for (std::string line; std::getline(maps, line);) lines.push_back(line.substr(0, line.find(' ')));
  return lines;
}

// A sanitizer's own thread in the child may map something meanwhile.
TEST_F(LinuxTaskMemory, RegionsAreThoseOfTheChild) {
  std::vector<std::string> before;
  std::vector<std::string> told;
  ASSERT_TRUE(waitUntil([&] {
    before = mapLines(child_);
    machine_.reset();  // which keeps what it read of a map
    told = regionLines(machine(), child_);
    return before == mapLines(child_);
  }));
  EXPECT_FALSE(told.empty());
  EXPECT_EQ(told, before);
}

TEST(LinuxExtensions, AreTheModulesThatAreLoaded) {
  LinuxMachine machine(openDirectory(AT_FDCWD, "/proc"));
  std::vector<std::string> expected;
  std::ifstream modules("/proc/modules");
  for (std::string line; std::getline(modules, line);) {
    expected.push_back(line.substr(0, line.find(' ')));
  }
  std::vector<std::string> identifiers = {"before"};
  const Errno error = machine.kernelExtensions(identifiers);
  if (modules.is_open()) {
    EXPECT_EQ(error, kAnswered);
    EXPECT_EQ(identifiers, expected);
  } else {
    EXPECT_EQ(error, darwin::DARWIN_ENOTSUP);
    EXPECT_EQ(identifiers, std::vector<std::string>{"before"}) << "left alone";
  }
}

}  // namespace
}  // namespace host::linux_machine
