// A figure that a simulated device reports: a count with a steady growth and, on top, a regular
// swing. All arithmetic is on integers, so that every machine computes the same.
#pragma once

#include <chrono>
#include <cstdint>

namespace host::simulator {

using Nanoseconds = std::chrono::nanoseconds;

// Growths, shares and phases count in parts of it.
inline constexpr int64_t kMillion = 1'000'000;

// The sum, or the end of the range that it lies beyond.
Nanoseconds addSaturating(Nanoseconds a, Nanoseconds b);

// Every value of every field is allowed.
struct Figure {
  uint64_t start = 0;
  int64_t growth = 0;     // millionths per second; may be negative
  uint64_t swing = 0;     // at most this much more and less than without
  Nanoseconds period{0};  // of a whole swing, from the middle up, down and back; 0 is no swing
  Nanoseconds from{0};    // when the figure was `start`

  Figure() = default;
  // Not explicit: a plain number is a figure that stays.
  Figure(uint64_t value) : start(value) {}  // NOLINT(google-explicit-constructor)

  // What 64 bits don't hold of the growth is cut off.
  static Figure growing(uint64_t start, int64_t perSecond);

  // Never below 0 and never beyond what 64 bits hold.
  uint64_t at(Nanoseconds time) const;
  // The same figure from `time` on, with another value there.
  Figure setTo(uint64_t value, Nanoseconds time) const;
  // The same figure, all of it later by `time`.
  Figure later(Nanoseconds time) const;
};

}  // namespace host::simulator
