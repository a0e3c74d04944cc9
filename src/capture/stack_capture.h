// What a stackshot of the machine says of its threads.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace sondex {

constexpr uint32_t kMostFrames = 512;  // of a stack in a device file

struct ThreadStacks {
  uint64_t waitEvent;
  uint64_t continuation;
  uint32_t kernelFrames;
  uint32_t userFrames;
};

inline size_t framesOf(const ThreadStacks *stacks) {
  return size_t{stacks->kernelFrames} + stacks->userFrames;
}

// Takes a stackshot: of `pid`, or of all processes with -1. Until the next one findStacks() looks
// there. Returns 0, or the number that the kernel refused it with.
int takeStacks(int32_t pid);

// Finds the thread `id` of `pid`: the frames of its kernel stack, then those of its user stack, in
// a buffer that the next call overwrites. There are none, and all of *stacks is 0, where there was
// no stackshot or the thread is not in it.
const uint64_t *findStacks(int32_t pid, uint64_t id, ThreadStacks *stacks);

}  // namespace sondex
