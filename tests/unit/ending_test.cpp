#include "terminal/ending.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "terminal/drawing_lock.h"
#include "tests/unit/display_state.h"
#include "tests/unit/wake_pipe.h"

namespace {

using namespace sondex;
using testing::ExitedWithCode;

class Ending : public testing::Test {
 protected:
  DisplayStateGuard guard;
  WakePipe pipe;
};

TEST_F(Ending, WakeIsOneByte) {
  wakeLoop();
  EXPECT_EQ(pipe.taken(), "x");
  wakeLoop();
  wakeLoop();
  EXPECT_EQ(pipe.taken(), "xx");
}

TEST_F(Ending, WakeOfAFullPipeDoesNotBlock) {
  while (write(g_pipe[1], "y", 1) == 1) continue;
  errno = 0;
  wakeLoop();
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(pipe.taken().find('x'), std::string::npos);
}

TEST_F(Ending, WithoutAPipeNothingIsWritten) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  const int input = dup(STDIN_FILENO);
  dup2(ends[1], STDIN_FILENO);
  const int kept[2] = {g_pipe[0], g_pipe[1]};
  g_pipe[0] = g_pipe[1] = 0;
  wakeLoop();
  g_pipe[0] = kept[0];
  g_pipe[1] = kept[1];
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), -1);
  dup2(input, STDIN_FILENO);
  for (const int descriptor : {input, ends[0], ends[1]}) close(descriptor);
}

TEST_F(Ending, NobodyWantsTheEndAtFirst) {
  EXPECT_EQ(reasonToEnd(), 0);
}

// The note is for good, so it is left in a process of its own.
TEST_F(Ending, FirstReasonToEndCountsAndWakes) {
  EXPECT_EXIT(
      {
        askForEnd(SIGINT);
        const bool woken = pipe.taken() == "x";
        askForEnd(kEndByExit);
        _exit(woken && reasonToEnd() == SIGINT ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

TEST_F(Ending, PauseTakesItsTime) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(pauseUnlessEnding(130));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(130));
  EXPECT_TRUE(pauseUnlessEnding(0));
}

TEST_F(Ending, PauseEndsWithTheProgram) {
  EXPECT_EXIT(
      {
        std::thread asking([] { askForEnd(kEndByKey); });
        const bool full = pauseUnlessEnding(3'600'000);
        asking.join();
        _exit(full || pauseUnlessEnding(0) ? 1 : 7);
      },
      ExitedWithCode(7), "");
}

// Exit handlers run on the thread that ends the program, and not beside it.
TEST_F(Ending, OnAnotherThreadIsLeftToTheOneThatEndsTheProgram) {
  static const std::thread::id thisOne = std::this_thread::get_id();
  EXPECT_EXIT(
      {
        endOnThisThread();
        std::atexit(
            [] { fputs(std::this_thread::get_id() == thisOne ? "here" : "there", stderr); });
        std::thread([] {
          lockDrawing(0);
          endProgram(9, stderr, "%s failed\n", "something");
        }).detach();
        while (reasonToEnd() == 0) std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        fputs("first, ", stderr);
        endWithLastWords();
      },
      ExitedWithCode(9), "^first, something failed\nhere$");
}

}  // namespace
