// Signal numbers of the two systems, each against the other's list.
#include <gtest/gtest.h>

#include <csignal>
#include <utility>

#include "host/linux/signals.h"

namespace {

using host::linux_machine::darwinSignal;
using host::linux_machine::linuxSignal;

TEST(LinuxSignals, ThatDiffer) {
  const std::pair<int, int> numbers[] = {{10, SIGBUS},  {12, SIGSYS},  {16, SIGURG},  {17, SIGSTOP},
                                         {18, SIGTSTP}, {19, SIGCONT}, {20, SIGCHLD}, {23, SIGIO},
                                         {30, SIGUSR1}, {31, SIGUSR2}};
  for (const auto &[onDarwin, onLinux] : numbers) {
    EXPECT_EQ(darwinSignal(onLinux), onDarwin);
    EXPECT_EQ(linuxSignal(onDarwin), onLinux);
  }
}

TEST(LinuxSignals, ThatAreTheSame) {
  for (const int number : {1, 2, 3, 4, 5, 6, 8, 9, 11, 13, 14, 15, 21, 22, 24, 25, 26, 27, 28}) {
    EXPECT_EQ(darwinSignal(number), number);
    EXPECT_EQ(linuxSignal(number), number);
  }
}

TEST(LinuxSignals, WithoutCounterpart) {
  EXPECT_EQ(darwinSignal(SIGSTKFLT), 0);
  EXPECT_EQ(darwinSignal(SIGPWR), 0);
  EXPECT_EQ(linuxSignal(7), 0);
  EXPECT_EQ(linuxSignal(29), 0);
}

TEST(LinuxSignals, ThatAreNone) {
  for (const int number : {-1, 0, 32, 64, 1000}) {
    EXPECT_EQ(darwinSignal(number), 0);
    EXPECT_EQ(linuxSignal(number), 0);
  }
}

}  // namespace
