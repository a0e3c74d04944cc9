// Makes a program of tests fail that a test has ended: with status 0 it would else count as passed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// The program that runs tests; 0 once it has run them.
pid_t running = 0;

void failEarlyEnd() {
  // The end of a child is what its test waits for, also of one that was started anew.
  if (getpid() != running || testing::internal::InDeathTestChild()) return;
  std::fputs("The program was ended by a test.\n", stderr);
  _exit(EXIT_FAILURE);
}

class WholeRun : public testing::Environment {
  void SetUp() override {
    running = getpid();
    std::atexit(failEarlyEnd);
  }
  void TearDown() override { running = 0; }
};

const testing::Environment *const wholeRun = testing::AddGlobalTestEnvironment(new WholeRun);

}  // namespace
