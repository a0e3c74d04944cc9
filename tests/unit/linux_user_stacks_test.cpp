// User stacks, and the two things that they are got with: children that may fail, and threads that
// are stopped for a moment. Live stacks are tested with the whole program.
#include "host/linux/user_stacks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <new>
#include <string>
#include <thread>

#include "host/linux/child_answer.h"
#include "host/linux/stopped_threads.h"
#include "host/posix.h"

namespace host::linux_machine {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

using Words = std::vector<uint64_t>;

constexpr ChildLimits kLimits = {std::chrono::seconds(30), size_t{1} << 30, 1000};

TEST(ChildAnswer, IsWhatTheWorkReturned) {
  EXPECT_THAT(answerOfChild(
                  [] {
                    return Words{3, 2, 1};
                  },
                  kLimits),
              Optional(ElementsAre(3, 2, 1)));
  EXPECT_THAT(answerOfChild([] { return Words{}; }, kLimits), Optional(IsEmpty()));
  // More than a pipe holds.
  const ChildLimits wide = {kLimits.time, kLimits.memory, 1'000'000};
  const std::optional<Words> long_answer = answerOfChild([] { return Words(1'000'000, 7); }, wide);
  ASSERT_TRUE(long_answer);
  EXPECT_EQ(*long_answer, Words(1'000'000, 7));
}

TEST(ChildAnswer, DoesNotComeFromOneThatBreaks) {
  EXPECT_EQ(answerOfChild(
                []() -> Words {
                  __real_kill(getpid(), SIGSEGV);
                  return {1};
                },
                kLimits),
            std::nullopt);
  EXPECT_EQ(answerOfChild([]() -> Words { throw std::bad_alloc(); }, kLimits), std::nullopt);
  EXPECT_EQ(answerOfChild([]() -> Words { _exit(0); }, kLimits), std::nullopt);
}

TEST(ChildAnswer, DoesNotComeTooLate) {
  const ChildLimits brief = {std::chrono::seconds(1), kLimits.memory, kLimits.answer};
  EXPECT_EQ(answerOfChild(
                []() -> Words {
                  while (true) pause();
                },
                brief),
            std::nullopt);
  // Even if it did not stop itself.
  EXPECT_EQ(answerOfChild(
                []() -> Words {
                  signal(SIGALRM, SIG_IGN);
                  while (true) pause();
                },
                brief),
            std::nullopt);
}

TEST(ChildAnswer, HasABound) {
  EXPECT_TRUE(answerOfChild([] { return Words(1000, 7); }, kLimits));
  EXPECT_EQ(answerOfChild([] { return Words(1001, 7); }, kLimits), std::nullopt);
}

TEST(ChildAnswer, LeavesNoChildAndNoDescriptor) {
  const int before = dup(STDIN_FILENO);
  for (int i = 0; i < 3; i++) {
    answerOfChild([] { return Words{1}; }, kLimits);
    answerOfChild([]() -> Words { _exit(1); }, kLimits);
  }
  const int after = dup(STDIN_FILENO);
  EXPECT_EQ(after, before + 1);
  close(before);
  close(after);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(ChildAnswer, DoesNotRunTheProgramsSignalHandlers) {
  const auto before = signal(SIGUSR1, [](int) { _exit(0); });
  EXPECT_EQ(answerOfChild(
                []() -> Words {
                  raise(SIGUSR1);
                  return {1};
                },
                kLimits),
            std::nullopt);
  const std::optional<Words> groups = answerOfChild(
      [] {
        return Words{static_cast<uint64_t>(getpgrp() == getpid()),
                     static_cast<uint64_t>(signal(SIGUSR1, SIG_IGN) == SIG_DFL)};
      },
      kLimits);
  EXPECT_THAT(groups, Optional(ElementsAre(1, 1)));
  signal(SIGUSR1, before);
}

TEST(UserStacks, ArePackedAndUnpacked) {
  UserStacks stacks;
  stacks.images = {{0x400000, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}},
                   {0x7F0000000000, {}}};
  stacks.stacks[7] = {0x400100};
  stacks.stacks[9] = {0x400200, 0x7F0000000010, 0};
  const UserStacks back = unpackUserStacks(packUserStacks(stacks));
  ASSERT_EQ(back.images.size(), 2u);
  EXPECT_EQ(back.images[0].address, 0x400000u);
  EXPECT_EQ(back.images[0].uuid, stacks.images[0].uuid);
  EXPECT_EQ(back.images[1].address, 0x7F0000000000u);
  EXPECT_EQ(back.stacks, stacks.stacks);
}

TEST(UserStacks, FromWordsThatMakeNoSense) {
  EXPECT_THAT(unpackUserStacks({}).images, IsEmpty());
  EXPECT_THAT(unpackUserStacks({1, 2, 3}).images, IsEmpty());
  EXPECT_THAT(unpackUserStacks({UINT64_MAX, 2, 3, 4}).images, IsEmpty());
  EXPECT_THAT(unpackUserStacks({0, 7}).stacks, IsEmpty());
  EXPECT_THAT(unpackUserStacks({0, 7, 0}).stacks, IsEmpty());
  EXPECT_THAT(unpackUserStacks({0, 7, 2, 1}).stacks, IsEmpty());
  EXPECT_THAT(unpackUserStacks({0, 7, UINT64_MAX, 1}).stacks, IsEmpty());
  Words many = {0, 7, 513};
  many.resize(3 + 513);
  EXPECT_THAT(unpackUserStacks(many).stacks, IsEmpty());
  EXPECT_EQ(unpackUserStacks({0, 7, 1, 5, 8, 9, 1}).stacks.size(), 1u);
}

TEST(UserStacks, OfAProcessThatIsNotThere) {
  const UserStacks none = readUserStacks(99999999, {99999999}, kLimits.time);
  EXPECT_THAT(none.images, IsEmpty());
  EXPECT_THAT(none.stacks, IsEmpty());
}

// The letter of a thread's state and its tracer; '?' for none.
struct State {
  char letter = '?';
  int tracer = -1;
};
State stateOf(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  State state;
  std::string word;
  while (status >> word) {
    if (word == "State:") status >> state.letter;
    if (word == "TracerPid:") status >> state.tracer;
  }
  return state;
}

// A child that is ended with the test.
class Sleeper {
 public:
  Sleeper() : pid_(fork()) {
    if (pid_ != 0) return;
    while (true) pause();
  }
  ~Sleeper() {
    __real_kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  pid_t pid() const { return pid_; }
  bool becomes(char letter) const {
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (std::chrono::steady_clock::now() < deadline) {
      if (stateOf(pid_).letter == letter) return true;
      std::this_thread::sleep_for(1ms);
    }
    return false;
  }

 private:
  pid_t pid_;
};

TEST(StoppedThreads, StandStillAndGoOn) {
  const Sleeper one;
  const Sleeper two;
  {
    const StoppedThreads halt({one.pid(), two.pid()}, 30s);
    EXPECT_THAT(halt.stopped(), ElementsAre(one.pid(), two.pid()));
    EXPECT_EQ(stateOf(one.pid()).letter, 't');
    EXPECT_EQ(stateOf(two.pid()).letter, 't');
    EXPECT_EQ(stateOf(one.pid()).tracer, getpid());
  }
  EXPECT_TRUE(one.becomes('S'));
  EXPECT_EQ(stateOf(one.pid()).tracer, 0);
  EXPECT_TRUE(two.becomes('S'));
}

TEST(StoppedThreads, AStoppedOneStaysSo) {
  const Sleeper sleeper;
  ASSERT_EQ(__real_kill(sleeper.pid(), SIGSTOP), 0);
  ASSERT_TRUE(sleeper.becomes('T'));
  {
    const StoppedThreads halt({sleeper.pid()}, 30s);
    EXPECT_THAT(halt.stopped(), ElementsAre(sleeper.pid()));
  }
  EXPECT_TRUE(sleeper.becomes('T'));
  EXPECT_EQ(stateOf(sleeper.pid()).tracer, 0);
  ASSERT_EQ(__real_kill(sleeper.pid(), SIGCONT), 0);
  EXPECT_TRUE(sleeper.becomes('S'));
}

TEST(StoppedThreads, KeepTheirSignals) {
  const Sleeper sleeper;
  {
    const StoppedThreads halt({sleeper.pid()}, 30s);
    ASSERT_THAT(halt.stopped(), ElementsAre(sleeper.pid()));
    ASSERT_EQ(__real_kill(sleeper.pid(), SIGTERM), 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(sleeper.pid(), &status, 0), sleeper.pid());
  EXPECT_TRUE(WIFSIGNALED(status));
}

TEST(StoppedThreads, PassesOverWhatCantBeTraced) {
  const Sleeper sleeper;
  const StoppedThreads halt({99999999, getpid(), sleeper.pid()}, 30s);
  EXPECT_THAT(halt.stopped(), ElementsAre(sleeper.pid()));
  // One has a tracer already.
  const StoppedThreads again({sleeper.pid()}, 30s);
  EXPECT_THAT(again.stopped(), IsEmpty());
}

// Whatever becomes of the tracer, what it stopped goes on.
TEST(StoppedThreads, GoOnWhenTheirTracerDies) {
  const Sleeper sleeper;
  const std::optional<Words> answer = answerOfChild(
      [&]() -> Words {
        const StoppedThreads halt({sleeper.pid()}, 30s);
        if (halt.stopped().size() == 1) __real_kill(getpid(), SIGSEGV);
        return {};
      },
      kLimits);
  EXPECT_EQ(answer, std::nullopt);
  EXPECT_TRUE(sleeper.becomes('S'));
}

}  // namespace
}  // namespace host::linux_machine
