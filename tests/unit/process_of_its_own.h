// For tests of what a process remembers from the first call on: each has a process of its own.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "host/machine.h"

// Ends that process as a failure, for an assertion in it would not be heard.
#define REQUIRE(condition)                                    \
  do {                                                        \
    if (!(condition)) {                                       \
      fprintf(stderr, "line %d: %s\n", __LINE__, #condition); \
      _exit(1);                                               \
    }                                                         \
  } while (false)

template <typename TheMachine>
class ProcessOfItsOwn : public testing::Test {
 protected:
  ProcessOfItsOwn() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  // Runs `body` there; what it writes to standard error has to match `error`.
  template <typename Body>
  static void expectGood(Body body, const std::string &error) {
    EXPECT_EXIT(
        {
          body();
          _exit(0);
        },
        testing::ExitedWithCode(0), error);
  }

  // Never freed: the process ends.
  static TheMachine &machine() {
    static auto *const made = [] {
      auto *machine = new TheMachine;
      host::useMachine(machine);
      return machine;
    }();
    return *made;
  }
};
