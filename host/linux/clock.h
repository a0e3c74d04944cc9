// The clocks behind process times: clock ticks, time since boot, and when boot was.
#pragma once

#include <cstdint>

namespace host::linux_machine {

// How long one tick of the times in /proc is.
uint64_t nanosecondsPerTick();

// Ticks as nanoseconds; what doesn't fit becomes the largest number.
uint64_t ticksToNanoseconds(uint64_t ticks);

// Nanoseconds since boot, sleep included: start times in /proc count so.
uint64_t nanosecondsSinceBoot();

// Nanoseconds of a clock that only moves forward and is cheap to read, to within a few
// milliseconds.
uint64_t coarseNanoseconds();

// A moment since the epoch.
struct WallTime {
  uint64_t seconds;
  uint32_t microseconds;
};

// When the machine started, as the wall clock has it now.
WallTime bootMoment();

// The moment so many ticks after the boot moment. Counted from whole seconds, as the kernel's
// "btime" and the programs that show start times have it.
WallTime startMoment(const WallTime &boot, uint64_t ticksSinceBoot);

}  // namespace host::linux_machine
