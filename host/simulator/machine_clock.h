// The clock of a simulated device: the one on the wall, or one that is moved on step by step.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "darwin/sysctl.h"
#include "host/simulator/device.h"
#include "host/simulator/wide.h"

namespace host::simulator {

// Not for use by several threads at once.
class MachineClock {
 public:
  explicit MachineClock(const DeviceClock &clock);

  // Since the start; never falls.
  Nanoseconds now() const;
  // Seconds since the epoch.
  int64_t timeOfDay() const;
  // A moment from the start on as seconds since the epoch, and microseconds.
  darwin::timeval wallTime(Nanoseconds moment) const;
  // A moment of the device in nanoseconds since the epoch; it may lie before the start.
  Wide sinceEpoch(Nanoseconds moment) const;
  // When `moment` comes by itself, by the clock of the program; nothing for a stepped clock.
  std::optional<std::chrono::steady_clock::time_point> timeOf(Nanoseconds moment) const;

  // A stepped clock moves on, but stands at the start for the first sample.
  void beginSample();
  // A wall clock can't be moved, and no clock back.
  void advance(Nanoseconds by);

 private:
  DeviceClock clock_;
  int64_t start_ = 0;
  std::chrono::steady_clock::time_point startedAt_;
  Nanoseconds stepped_{0};
  bool hasSampled_ = false;
};

}  // namespace host::simulator
