// Figures that change, as a device file has them: what they were in the first of two samples, and
// what grows each second so that they are in the second what they were there.
#pragma once

#include <stdint.h>

namespace sondex {

// Microseconds between the two samples, of a machine or of the clock that it says to go by; 0
// where it stood still, and nothing grows then.
void setSampleDistance(int64_t microseconds);
int64_t sampleDistance();

// Each leaves the key out for a figure that stays at `standard`.

// A count, and a number of bytes.
void writeCount(const char *key, uint64_t first, uint64_t second, uint64_t standard = 0);
void writeBytes(const char *key, uint64_t first, uint64_t second, uint64_t standard = 0);

// Seconds, of nanoseconds. `usual` is what the second would be if the figure grew as it does where
// nothing is said: the growth is left out then. Else it is always written.
void writeTime(const char *key, uint64_t first, uint64_t second, uint64_t usual);

// Of millionths; always written.
void writeMillionths(const char *key, uint64_t first, uint64_t second);

// Percent of a processor, of tenths.
void writeShare(const char *key, int32_t first, int32_t second);

// Nanoseconds of mach absolute time units, such that the units come back; and the other way, as the
// kernel does it.
uint64_t nanosecondsOf(uint64_t units);
uint64_t unitsOf(uint64_t nanoseconds);

}  // namespace sondex
