#include "host/simulator/pressure.h"

#include <algorithm>
#include <limits>

namespace host::simulator {

static constexpr std::chrono::seconds kKept{60};

void PressureRecord::add(Nanoseconds now, uint32_t wantedPages, uint32_t reclaimedPages) {
  last_ = LastPressure{now, times() + 1, wantedPages, reclaimedPages};
  reclaims_.push_back({now, reclaimedPages});
  while (now - reclaims_.front().at > kKept) reclaims_.pop_front();
}

uint32_t PressureRecord::reclaimed(Nanoseconds now, uint32_t seconds) const {
  const std::chrono::seconds back{seconds};
  uint64_t pages = 0;
  for (const Reclaim &reclaim : reclaims_) {
    if (now - reclaim.at <= back) pages += reclaim.pages;
  }
  return static_cast<uint32_t>(std::min<uint64_t>(pages, std::numeric_limits<uint32_t>::max()));
}

}  // namespace host::simulator
