#include "host/simulator/figure.h"

#include "host/simulator/wide.h"
#include "host/units.h"

namespace host::simulator {

namespace {

// 127 bits hold all products below: a growth (at most 2^63 in size) times the time between two
// moments (below 2^64), and a swing (below 2^64) times a period (below 2^63).

// From 0 up to `height`, down to -`height` and back to 0 within a period.
Wide triangle(Wide passed, Wide period, Wide height) {
  Wide place = passed % period;
  if (place < 0) place += period;
  const Wide quarters = 4 * place;
  if (quarters <= period) return height * quarters / period;
  if (quarters <= 3 * period) return height * (2 * period - quarters) / period;
  return height * (quarters - 4 * period) / period;
}

}  // namespace

Nanoseconds addSaturating(Nanoseconds a, Nanoseconds b) {
  return Nanoseconds{saturate<int64_t>(Wide{a.count()} + b.count())};
}

Figure Figure::growing(uint64_t start, int64_t perSecond) {
  Figure figure(start);
  figure.growth = saturate<int64_t>(Wide{perSecond} * kMillion);
  return figure;
}

uint64_t Figure::at(Nanoseconds time) const {
  const bool swings = period.count() > 0 && swing != 0;
  // Most figures of most devices stay.
  if (growth == 0 && !swings) return start;
  const Wide passed = Wide{time.count()} - from.count();
  Wide value = start;
  value += Wide{growth} * passed / (kMillion * kNanosecondsPerSecond);
  if (swings) value += triangle(passed, period.count(), swing);
  return saturate<uint64_t>(value);
}

Figure Figure::setTo(uint64_t value, Nanoseconds time) const {
  Figure figure = *this;
  figure.start = value;
  figure.from = time;
  return figure;
}

Figure Figure::later(Nanoseconds time) const {
  Figure figure = *this;
  figure.from = addSaturating(from, time);
  return figure;
}

}  // namespace host::simulator
