#include "host/linux/clock.h"

#include <time.h>
#include <unistd.h>

#include <limits>

#include "host/units.h"

namespace host::linux_machine {

static uint64_t readClock(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<uint64_t>(time.tv_sec) * kNanosecondsPerSecond +
         static_cast<uint64_t>(time.tv_nsec);
}

uint64_t nanosecondsPerTick() {
  static const uint64_t length = [] {
    long perSecond = sysconf(_SC_CLK_TCK);
    return kNanosecondsPerSecond / static_cast<uint64_t>(perSecond > 0 ? perSecond : 100);
  }();
  return length;
}

uint64_t ticksToNanoseconds(uint64_t ticks) {
  uint64_t nanoseconds = 0;
  const bool fits = !__builtin_mul_overflow(ticks, nanosecondsPerTick(), &nanoseconds);
  return fits ? nanoseconds : std::numeric_limits<uint64_t>::max();
}

uint64_t nanosecondsSinceBoot() {
  return readClock(CLOCK_BOOTTIME);
}

uint64_t coarseNanoseconds() {
  return readClock(CLOCK_MONOTONIC_COARSE);
}

WallTime bootMoment() {
  // The two clocks can't be read at once. Between two readings of one, the difference that matters
  // has only moved when the wall clock was set or the program was held up; the shortest of a few
  // tries is taken.
  uint64_t boot = 0;
  uint64_t shortest = std::numeric_limits<uint64_t>::max();
  for (int i = 0; i < 3; i++) {
    uint64_t before = readClock(CLOCK_BOOTTIME);
    uint64_t wall = readClock(CLOCK_REALTIME);
    uint64_t after = readClock(CLOCK_BOOTTIME);
    if (after - before >= shortest || wall < after) continue;
    shortest = after - before;
    boot = wall - before - shortest / 2;
  }
  return {boot / kNanosecondsPerSecond, static_cast<uint32_t>(boot % kNanosecondsPerSecond / 1000)};
}

WallTime startMoment(const WallTime &boot, uint64_t ticksSinceBoot) {
  uint64_t after = ticksToNanoseconds(ticksSinceBoot);
  return {boot.seconds + after / kNanosecondsPerSecond,
          static_cast<uint32_t>(after % kNanosecondsPerSecond / 1000)};
}

}  // namespace host::linux_machine
