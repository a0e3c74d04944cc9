// A whole machine as a device file.
#pragma once

#include <stdint.h>

namespace sondex {

constexpr int32_t kMostNamed = 1024;  // processes on a command line

struct CaptureOptions {
  const char *path;    // null: standard output
  bool isLoadedAgain;  // as a device file, which has a largest size
  bool withStacks;
  int32_t pids[kMostNamed];    // those to be captured
  int32_t pidCount;            // 0: all of them
  int32_t memory[kMostNamed];  // those of which the memory is taken along
  int32_t memoryCount;
};

// Writes the machine that the program runs on to the file, whole or not at all. Takes a second and
// more; how far it is goes to standard error when that is a terminal. Returns 0, or 1 after a
// message. A signal ends the program, and leaves nothing.
int captureMachine(const CaptureOptions *options);

}  // namespace sondex
