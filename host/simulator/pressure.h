// What is remembered of memory pressure on a simulated device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "host/simulator/figure.h"

namespace host::simulator {

// What the kernel did when memory last ran short.
struct LastPressure {
  Nanoseconds at{0};
  size_t times = 0;  // how often there was pressure so far
  uint32_t wantedPages = 0;
  uint32_t reclaimedPages = 0;
};

// Not for use by several threads at once.
class PressureRecord {
 public:
  void add(Nanoseconds now, uint32_t wantedPages, uint32_t reclaimedPages);

  // Nothing as long as there was none.
  const std::optional<LastPressure> &last() const { return last_; }
  size_t times() const { return last_ ? last_->times : 0; }
  // What was wanted last.
  uint32_t wanted() const { return last_ ? last_->wantedPages : 0; }
  // How many of those times somebody was told of who waited.
  size_t told() const { return told_; }
  void markTold() { told_ = times(); }
  // Pages reclaimed in the last `seconds` before `now`, that moment and the first one included; or
  // since a minute before the last pressure, if that is less.
  uint32_t reclaimed(Nanoseconds now, uint32_t seconds) const;

 private:
  struct Reclaim {
    Nanoseconds at;
    uint32_t pages;
  };

  std::optional<LastPressure> last_;
  size_t told_ = 0;
  std::deque<Reclaim> reclaims_;
};

}  // namespace host::simulator
