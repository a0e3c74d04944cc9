// Tells when a full-screen program has done all that it was told to: of its two threads that draw,
// one waits for the time of the next frame and the other for a key. What is on the screen then
// stays there until that time.
#pragma once

#include <sys/types.h>

#include <array>
#include <optional>

#include "harness/file_handle.h"
#include "harness/wait.h"

namespace test {

// What a thread waits in, as the kernel says.
struct BlockedCall {
  long number = -1;
  std::array<unsigned long long, 3> arguments{};
  uint64_t naps = 0;  // how often the thread has gone to sleep so far

  bool operator==(const BlockedCall &) const = default;
};

// Nothing when the thread runs, is gone, or is not to be looked at.
std::optional<BlockedCall> blockedCall(pid_t program, pid_t thread);

// Whether it is a poll. The main thread polls in one place: where it waits for the next frame.
bool isPoll(const BlockedCall &call);

class RestWatch {
 public:
  explicit RestWatch(pid_t program) : program_(program) {}

  // Forgets what was seen before something was asked of the program.
  void restart();
  // Whether neither thread has run for two seconds but to look for keys. For somebody who has seen
  // since the question before that no key is left to be read, and no output.
  bool isAtRest();
  // Whether every key that was read has been seen to: the input thread waits for another one, and
  // the main thread has drawn a frame since it was woken last. Not on a screen that reads keys
  // itself.
  bool isSettled();
  // How long the main thread of a program at rest waits at most; negative: without end. Nothing
  // where the kernel does not say.
  std::optional<Duration> wait() const;

 private:
  struct Look {
    BlockedCall main;
    BlockedCall input;
    bool operator==(const Look &) const = default;
  };
  std::optional<Look> look();
  void findInputThread();
  std::optional<int> polled(pid_t thread) const;
  FileHandle openedPipe(int descriptor) const;

  pid_t program_;
  pid_t inputThread_ = -1;
  std::optional<Look> last_;
  Clock::time_point lastSince_ = Clock::now();
  std::optional<uint64_t> firstNap_;
};

}  // namespace test
