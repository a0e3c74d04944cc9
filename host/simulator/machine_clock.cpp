#include "host/simulator/machine_clock.h"

#include "host/posix.h"
#include "host/units.h"

namespace host::simulator {

MachineClock::MachineClock(const DeviceClock &clock)
    : clock_(clock),
      start_(clock.start ? *clock.start : int64_t{__real_time(nullptr)}),
      startedAt_(std::chrono::steady_clock::now()) {}

Nanoseconds MachineClock::now() const {
  if (clock_.isStepped) return stepped_;
  return std::chrono::duration_cast<Nanoseconds>(std::chrono::steady_clock::now() - startedAt_);
}

Wide MachineClock::sinceEpoch(Nanoseconds moment) const {
  return Wide{start_} * kNanosecondsPerSecond + clock_.startFraction.count() + moment.count();
}

int64_t MachineClock::timeOfDay() const {
  return saturate<int64_t>(sinceEpoch(now()) / kNanosecondsPerSecond);
}

darwin::timeval MachineClock::wallTime(Nanoseconds moment) const {
  const Wide passed = sinceEpoch(moment);
  darwin::timeval time{};
  time.tv_sec = saturate<int64_t>(passed / kNanosecondsPerSecond);
  time.tv_usec = static_cast<int32_t>(passed % kNanosecondsPerSecond / kNanosecondsPerMicrosecond);
  return time;
}

std::optional<std::chrono::steady_clock::time_point> MachineClock::timeOf(
    Nanoseconds moment) const {
  if (clock_.isStepped) return std::nullopt;
  return std::chrono::steady_clock::time_point{
      addSaturating(startedAt_.time_since_epoch(), moment)};
}

void MachineClock::beginSample() {
  if (hasSampled_) advance(clock_.step);
  hasSampled_ = true;
}

void MachineClock::advance(Nanoseconds by) {
  if (clock_.isStepped && by.count() > 0) stepped_ = addSaturating(stepped_, by);
}

}  // namespace host::simulator
