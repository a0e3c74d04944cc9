// Byte counts and durations as short texts of fixed style. printSize and secsToTimeString answer
// from a static buffer of their own that the next call overwrites; only the drawing thread calls
// them.
#pragma once

#include <cstdint>

namespace sondex {

// `bytes` scaled by 1024 into B, K, M or G ("  512B", "14.65K"). Counts up to 9999 stay bytes.
const char *printSize(uint64_t bytes);

// `seconds` and `fraction` (units of 100 ns) as a clock text. A day or more is " >1 day " in the
// short form and spelt out with its days when `longForm` is non-zero.
const char *secsToTimeString(uint64_t seconds, uint64_t fraction, int longForm);

// The short form for a count of nanoseconds. Returns a heap copy that the caller frees; null when
// memory is short.
char *nsecsToTimeString(uint64_t nanoseconds);

}  // namespace sondex
