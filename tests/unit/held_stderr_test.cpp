#include "terminal/held_stderr.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "tests/unit/pseudo_terminal.h"

namespace {

using namespace sondex;

// Standard output and standard error are put elsewhere while it lives. A test states its
// expectations afterwards.
class Redirected {
 public:
  Redirected(int standardOutput, int standardError) {
    fflush(nullptr);
    m_output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10);
    m_error = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 10);
    dup2(standardOutput, STDOUT_FILENO);
    dup2(standardError, STDERR_FILENO);
  }
  ~Redirected() {
    fflush(nullptr);
    dup2(m_output, STDOUT_FILENO);
    dup2(m_error, STDERR_FILENO);
    close(m_output);
    close(m_error);
  }
  Redirected(const Redirected &) = delete;
  Redirected &operator=(const Redirected &) = delete;

 private:
  int m_output;
  int m_error;
};

// Ends the test program if what is tested blocks.
class Watchdog {
 public:
  Watchdog() { alarm(60); }
  ~Watchdog() { alarm(0); }
  Watchdog(const Watchdog &) = delete;
  Watchdog &operator=(const Watchdog &) = delete;
};

// Runs `body` with standard output and error on a terminal and returns what came out there.
std::string onTerminal(const std::function<void()> &body) {
  const Watchdog watchdog;
  PseudoTerminal terminal(24, 80);
  terminal.passOutputThrough();
  std::string shown;
  std::thread reader;
  {
    const Redirected redirected(terminal.programEnd(), terminal.programEnd());
    terminal.closeProgramEnd();
    reader = std::thread([&] { shown = terminal.readToEnd(); });
    body();
  }
  reader.join();
  return shown;
}

ssize_t writeError(std::string_view text) {
  return write(STDERR_FILENO, text.data(), text.size());
}

TEST(HeldStderr, EachDistinctLineOnceWithItsCount) {
  const std::string shown = onTerminal([] {
    holdStandardError();
    writeError("one\ntwo\none\n");
    writeError("three\none\ntwo\n");
    releaseStandardError();
  });
  EXPECT_EQ(shown, "one (3 times)\ntwo (2 times)\nthree\n");
}

TEST(HeldStderr, NothingIsShownBeforeTheRelease) {
  const std::string shown = onTerminal([] {
    holdStandardError();
    writeError("held\n");
    collectStandardError();
    if (write(STDOUT_FILENO, "screen\n", 7) != 7) return;
    writeError("held\n");
    collectStandardError();
    releaseStandardError();
    writeError("direct\n");
  });
  EXPECT_EQ(shown, "screen\nheld (2 times)\ndirect\n");
}

TEST(HeldStderr, PrintedMessagesAreHeldToo) {
  const std::string shown = onTerminal([] {
    holdStandardError();
    errno = ENOENT;
    perror("proc_pidinfo");
    errno = ENOENT;
    perror("proc_pidinfo");
    fprintf(stderr, "PID %d\n", 7);
    releaseStandardError();
  });
  EXPECT_EQ(shown, "proc_pidinfo: No such file or directory (2 times)\nPID 7\n");
}

TEST(HeldStderr, LinesThatComeInPieces) {
  const std::string shown = onTerminal([] {
    holdStandardError();
    writeError("first ha");
    collectStandardError();
    writeError("lf\nfirst half");
    collectStandardError();
    writeError("\n");
    releaseStandardError();
  });
  EXPECT_EQ(shown, "first half (2 times)\n");
}

TEST(HeldStderr, LastLineWithoutAnEnd) {
  const std::string shown = onTerminal([] {
    holdStandardError();
    writeError("whole\nunfinished");
    releaseStandardError();
  });
  EXPECT_EQ(shown, "whole\nunfinished\n");
}

TEST(HeldStderr, EmptyLines) {
  const std::string shown = onTerminal([] {
    holdStandardError();
    writeError("\na\n\n");
    releaseStandardError();
  });
  EXPECT_EQ(shown, " (2 times)\na\n");
}

TEST(HeldStderr, OverlongLinesAreCut) {
  const std::string shown = onTerminal([] {
    holdStandardError();
    writeError(std::string(254, 'a') + "\n");
    writeError(std::string(255, 'b') + "\n");
    writeError(std::string(256, 'c') + "\n");
    writeError(std::string(5000, 'd') + "\n");
    writeError("next\n");
    writeError(std::string(1000, 'e'));
    releaseStandardError();
  });
  EXPECT_EQ(shown, std::string(254, 'a') + "\n" + std::string(255, 'b') + "\n" +
                       std::string(255, 'c') + "\n" + std::string(255, 'd') + "\nnext\n" +
                       std::string(255, 'e') + "\n");
}

TEST(HeldStderr, SixtyFourDistinctLinesAndThenACount) {
  std::string expected;
  for (int i = 0; i < 64; i++) {
    expected += "line " + std::to_string(i) + (i == 5 ? " (2 times)\n" : "\n");
  }
  for (const int beyond : {0, 1, 36}) {
    const std::string shown = onTerminal([beyond] {
      holdStandardError();
      for (int i = 0; i < 64 + beyond; i++) writeError("line " + std::to_string(i) + "\n");
      // Lines that are known already still count.
      writeError("line 5\n");
      releaseStandardError();
    });
    EXPECT_EQ(shown, beyond == 0 ? expected
                                 : expected + "and " + std::to_string(beyond) + " more lines\n");
  }
}

TEST(HeldStderr, EachHoldingStartsAnew) {
  const std::string shown = onTerminal([] {
    for (int i = 0; i < 2; i++) {
      holdStandardError();
      writeError("same\n");
      releaseStandardError();
    }
    holdStandardError();
    releaseStandardError();
  });
  EXPECT_EQ(shown, "same\nsame\n");
}

TEST(HeldStderr, HoldingTwiceOrReleasingTwiceIsOnce) {
  const std::string shown = onTerminal([] {
    holdStandardError();
    writeError("a\n");
    holdStandardError();
    writeError("a\n");
    releaseStandardError();
    writeError("b\n");
    releaseStandardError();
    collectStandardError();
    writeError("b\n");
  });
  EXPECT_EQ(shown, "a (2 times)\nb\nb\n");
}

TEST(HeldStderr, AFloodBlocksNobody) {
  int taken = 0;
  int dropped = 0;
  const std::string line = "the same message over and over\n";
  const std::string shown = onTerminal([&] {
    holdStandardError();
    // Far more than a pipe takes, and nobody collects.
    for (int i = 0; i < 100000; i++) {
      if (writeError(line) == static_cast<ssize_t>(line.size())) {
        taken++;
      } else {
        dropped++;
      }
    }
    releaseStandardError();
  });
  EXPECT_GT(taken, 1000);
  EXPECT_GT(dropped, 0);
  EXPECT_EQ(shown, "the same message over and over (" + std::to_string(taken) + " times)\n");
}

TEST(HeldStderr, CollectingMakesRoomAgain) {
  int dropped = 0;
  const std::string line = "the same message over and over\n";
  const std::string shown = onTerminal([&] {
    holdStandardError();
    for (int i = 0; i < 100000; i++) {
      if (writeError(line) != static_cast<ssize_t>(line.size())) dropped++;
      if (i % 1000 == 0) collectStandardError();
    }
    releaseStandardError();
  });
  EXPECT_EQ(dropped, 0);
  EXPECT_EQ(shown, "the same message over and over (100000 times)\n");
}

TEST(HeldStderr, IsReleasedBesideAThreadThatCollects) {
  constexpr int kTimes = 200;
  const std::string shown = onTerminal([] {
    std::atomic<bool> done{false};
    std::thread collecting([&] {
      while (!done.load()) collectStandardError();
    });
    for (int i = 0; i < kTimes; i++) {
      holdStandardError();
      writeError("line\n");
      releaseStandardError();
    }
    done.store(true);
    collecting.join();
  });
  std::string expected;
  for (int i = 0; i < kTimes; i++) expected += "line\n";
  EXPECT_EQ(shown, expected);
}

TEST(HeldStderr, LeavesNoDescriptorOpen) {
  int before = 0;
  int held = 0;
  int after = 0;
  onTerminal([&] {
    const auto openDescriptors = [] {
      int count = 0;
      for (int descriptor = 0; descriptor < 256; descriptor++) {
        if (fcntl(descriptor, F_GETFD) >= 0) count++;
      }
      return count;
    };
    before = openDescriptors();
    holdStandardError();
    held = openDescriptors();
    releaseStandardError();
    after = openDescriptors();
  });
  EXPECT_GT(held, before);
  EXPECT_EQ(after, before);
}

// Whether standard error stays what it is.
bool staysDirect(int standardOutput, int standardError) {
  struct stat before = {};
  struct stat after = {};
  {
    const Redirected redirected(standardOutput, standardError);
    fstat(STDERR_FILENO, &before);
    holdStandardError();
    fstat(STDERR_FILENO, &after);
    releaseStandardError();
  }
  return before.st_dev == after.st_dev && before.st_ino == after.st_ino;
}

TEST(HeldStderr, OnlyATerminalSharedWithStandardOutputIsHeld) {
  const Watchdog watchdog;
  const PseudoTerminal screen(24, 80);
  const PseudoTerminal other(24, 80);
  const int file = memfd_create("messages", MFD_CLOEXEC);
  ASSERT_GE(file, 0);
  EXPECT_FALSE(staysDirect(screen.programEnd(), screen.programEnd()));
  EXPECT_TRUE(staysDirect(screen.programEnd(), other.programEnd()));
  EXPECT_TRUE(staysDirect(screen.programEnd(), file));
  EXPECT_TRUE(staysDirect(file, screen.programEnd()));
  EXPECT_TRUE(staysDirect(file, file));
  close(file);
}

TEST(HeldStderr, WhatGoesToAFileIsLeftAlone) {
  const Watchdog watchdog;
  const PseudoTerminal screen(24, 80);
  const int file = memfd_create("messages", MFD_CLOEXEC);
  ASSERT_GE(file, 0);
  {
    const Redirected redirected(screen.programEnd(), file);
    holdStandardError();
    writeError("a\n");
    writeError("a\nunfinished");
    collectStandardError();
    releaseStandardError();
  }
  char written[64] = {};
  const ssize_t length = pread(file, written, sizeof written - 1, 0);
  close(file);
  ASSERT_GE(length, 0);
  EXPECT_STREQ(written, "a\na\nunfinished");
}

TEST(HeldStderr, GatheringHoldsWhateverStandardErrorIs) {
  const Watchdog watchdog;
  const int file = memfd_create("messages", MFD_CLOEXEC);
  ASSERT_GE(file, 0);
  {
    const Redirected redirected(file, file);
    gatherStandardError();
    writeError("a\n");
    collectStandardError();
    if (write(STDOUT_FILENO, "output\n", 7) != 7) return;
    writeError("a\n");
    releaseStandardError();
  }
  char written[64] = {};
  const ssize_t length = pread(file, written, sizeof written - 1, 0);
  close(file);
  ASSERT_GE(length, 0);
  EXPECT_STREQ(written, "output\na (2 times)\n");
}

}  // namespace
