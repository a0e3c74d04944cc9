// Work in a thread of its own: signals, and what it throws.
#include "host/linux/own_thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <stdexcept>
#include <thread>

namespace host::linux_machine {
namespace {

sigset_t blockedSignals() {
  sigset_t blocked;
  EXPECT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &blocked), 0);
  return blocked;
}

TEST(OwnThread, GetsNoSignals) {
  sigset_t inside;
  sigemptyset(&inside);
  std::thread::id thread;
  runInOwnThread([&] {
    inside = blockedSignals();
    thread = std::this_thread::get_id();
  });
  EXPECT_NE(thread, std::this_thread::get_id());
  const sigset_t outside = blockedSignals();
  for (const int signal : {SIGINT, SIGTERM, SIGWINCH, SIGCONT, SIGALRM, SIGCHLD}) {
    EXPECT_EQ(sigismember(&inside, signal), 1) << signal;
    EXPECT_EQ(sigismember(&outside, signal), 0) << signal;
  }
}

TEST(OwnThread, WhatItThrowsIsThrownToItsCaller) {
  EXPECT_THROW(runInOwnThread([] { throw std::length_error("too long"); }), std::length_error);
}

}  // namespace
}  // namespace host::linux_machine
