#include "host/linux/threads.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "host/darwin/proc_info.h"
#include "host/linux/clock.h"

namespace host::linux_machine {

// The bands of Darwin's scheduler that threads are put into.
static constexpr int32_t kPriorityIdle = 4;
static constexpr int32_t kPriorityDefault = 31;
static constexpr int32_t kPriorityUserMost = 63;
static constexpr int32_t kPriorityRealTimeLeast = 97;
static constexpr int32_t kPriorityMost = 127;

// Linux has real-time priorities 1 to 99.
static constexpr uint32_t kRealTimeMost = 99;

int32_t threadState(char state) {
  static constexpr struct {
    char letter;
    int32_t state;
  } kStates[] = {
      {'R', darwin::TH_STATE_RUNNING}, {'S', darwin::TH_STATE_WAITING},
      {'I', darwin::TH_STATE_WAITING}, {'D', darwin::TH_STATE_UNINTERRUPTIBLE},
      {'T', darwin::TH_STATE_STOPPED}, {'t', darwin::TH_STATE_STOPPED},
      {'Z', darwin::TH_STATE_HALTED},  {'X', darwin::TH_STATE_HALTED},
      {'x', darwin::TH_STATE_HALTED},
  };
  auto found = std::find_if(std::begin(kStates), std::end(kStates),
                            [state](const auto &row) { return row.letter == state; });
  return found == std::end(kStates) ? darwin::TH_STATE_WAITING : found->state;
}

int32_t threadPolicy(uint32_t policy) {
  if (policy == kPolicyFifo || policy == kPolicyDeadline) return darwin::POLICY_FIFO;
  return policy == kPolicyRoundRobin ? darwin::POLICY_RR : darwin::POLICY_TIMESHARE;
}

static bool isRealTime(uint32_t policy) {
  return policy == kPolicyFifo || policy == kPolicyRoundRobin;
}

int32_t threadPriority(const ProcessStat &stat) {
  if (stat.policy == kPolicyDeadline) return kPriorityMost;
  if (isRealTime(stat.policy)) {
    uint32_t priority = std::clamp<uint32_t>(stat.realTimePriority, 1, kRealTimeMost);
    return kPriorityRealTimeLeast +
           static_cast<int32_t>((priority - 1) * (kPriorityMost - kPriorityRealTimeLeast) /
                                (kRealTimeMost - 1));
  }
  if (stat.policy == kPolicyIdle) return kPriorityIdle;
  return kPriorityDefault - std::clamp(stat.nice, -20, 19);
}

int32_t largestThreadPriority(uint32_t policy) {
  return isRealTime(policy) || policy == kPolicyDeadline ? kPriorityMost : kPriorityUserMost;
}

int32_t UsageEstimate::look(uint64_t used, uint64_t start, uint64_t now) {
  constexpr double kWhole = darwin::TH_USAGE_SCALE;
  constexpr double kFadeTime = 125e6;  // nanoseconds
  const double tick = static_cast<double>(nanosecondsPerTick());

  if (!looked_) {
    double life = now > start ? static_cast<double>(now - start) : 0;
    estimate_ = static_cast<double>(used) * kWhole / std::max(life, tick);
  } else {
    double passed = now > lookedAt_ ? static_cast<double>(now - lookedAt_) : 0;
    if (passed < tick) return static_cast<int32_t>(std::lround(estimate_));
    double instant = used > used_ ? static_cast<double>(used - used_) * kWhole / passed : 0;
    double kept = std::pow(5.0 / 8.0, passed / kFadeTime);
    estimate_ = estimate_ * kept + std::min(instant, kWhole) * (1 - kept);
  }
  estimate_ = std::clamp(estimate_, 0.0, kWhole);
  looked_ = true;
  used_ = used;
  lookedAt_ = now;
  return static_cast<int32_t>(std::lround(estimate_));
}

void fillThreadInfo(const ProcessStat &stat, const ThreadFigures &figures,
                    darwin::proc_threadinfo &info) {
  info = {};
  info.pth_user_time = ticksToNanoseconds(figures.userTicks);
  info.pth_system_time = ticksToNanoseconds(figures.systemTicks);
  info.pth_cpu_usage = figures.usage;
  info.pth_policy = threadPolicy(stat.policy);
  info.pth_run_state = threadState(stat.state);
  info.pth_curpri = threadPriority(stat);
  info.pth_priority = info.pth_curpri;
  info.pth_maxpriority = largestThreadPriority(stat.policy);
  static_assert(sizeof info.pth_name >= sizeof stat.name);
  std::memcpy(info.pth_name, stat.name, sizeof stat.name);
}

}  // namespace host::linux_machine
