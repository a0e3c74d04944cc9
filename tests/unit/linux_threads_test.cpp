// How Linux threads are told in Darwin's numbers, and the estimate of how busy one is.
#include "host/linux/threads.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "host/darwin/proc_info.h"
#include "host/linux/clock.h"

namespace host::linux_machine {
namespace {

constexpr uint64_t kMillisecond = 1000000;
constexpr uint64_t kSecond = 1000 * kMillisecond;

TEST(LinuxThreads, EveryStateLetterHasItsState) {
  struct {
    const char *letters;
    int32_t state;
  } const cases[] = {
      {"R", darwin::TH_STATE_RUNNING},  {"Tt", darwin::TH_STATE_STOPPED},
      {"SI", darwin::TH_STATE_WAITING}, {"D", darwin::TH_STATE_UNINTERRUPTIBLE},
      {"ZXx", darwin::TH_STATE_HALTED}, {"PKW?\x01", darwin::TH_STATE_WAITING},
  };
  for (const auto &one : cases) {
    for (const char *letter = one.letters; *letter != '\0'; letter++) {
      EXPECT_EQ(threadState(*letter), one.state) << *letter;
    }
  }
}

TEST(LinuxThreads, Policies) {
  EXPECT_EQ(threadPolicy(0), darwin::POLICY_TIMESHARE);
  EXPECT_EQ(threadPolicy(1), darwin::POLICY_FIFO);
  EXPECT_EQ(threadPolicy(2), darwin::POLICY_RR);
  EXPECT_EQ(threadPolicy(3), darwin::POLICY_TIMESHARE);
  EXPECT_EQ(threadPolicy(5), darwin::POLICY_TIMESHARE);
  EXPECT_EQ(threadPolicy(6), darwin::POLICY_FIFO);
}

int32_t priorityOf(uint32_t policy, int32_t nice, uint32_t realTime) {
  ProcessStat stat{};
  stat.policy = policy;
  stat.nice = nice;
  stat.realTimePriority = realTime;
  return threadPriority(stat);
}

TEST(LinuxThreads, NiceValuesFallFrom51To12) {
  EXPECT_EQ(priorityOf(0, 0, 0), 31);
  EXPECT_EQ(priorityOf(0, -20, 0), 51);
  EXPECT_EQ(priorityOf(0, 19, 0), 12);
  for (int32_t nice = -20; nice <= 19; nice++) EXPECT_EQ(priorityOf(0, nice, 0), 31 - nice);
  EXPECT_EQ(priorityOf(0, 1000, 0), 12);
  EXPECT_EQ(priorityOf(0, -1000, 0), 51);
}

TEST(LinuxThreads, RealTimePrioritiesRiseFrom97To127) {
  EXPECT_EQ(priorityOf(1, 0, 1), 97);
  EXPECT_EQ(priorityOf(2, 0, 99), 127);
  for (uint32_t priority = 2; priority <= 99; priority++) {
    EXPECT_GE(priorityOf(1, 0, priority), priorityOf(1, 0, priority - 1));
  }
  EXPECT_EQ(priorityOf(1, 0, 0), 97);
  EXPECT_EQ(priorityOf(1, 0, 4000000000u), 127);
  EXPECT_EQ(priorityOf(6, 0, 0), 127);
  EXPECT_EQ(priorityOf(5, 0, 0), 4);
}

TEST(LinuxThreads, TheFirstLookIsTheAverageOverTheLife) {
  EXPECT_EQ(UsageEstimate().look(5 * kSecond, 10 * kSecond, 20 * kSecond), 500);
  EXPECT_EQ(UsageEstimate().look(0, 10 * kSecond, 20 * kSecond), 0);
  EXPECT_EQ(UsageEstimate().look(50 * kSecond, 10 * kSecond, 20 * kSecond), 1000) << "at most";
  EXPECT_EQ(UsageEstimate().look(0, 10 * kSecond, 10 * kSecond), 0) << "born now";
  EXPECT_EQ(UsageEstimate().look(kMillisecond, 10 * kSecond, 9 * kSecond), 100)
      << "a start ahead of the clock counts as a life of one tick";
}

TEST(LinuxThreads, AnOldEstimateFadesByFiveEighthsEvery125Milliseconds) {
  UsageEstimate estimate;
  ASSERT_EQ(estimate.look(10 * kSecond, 0, 10 * kSecond), 1000);
  // Idle from here on.
  EXPECT_EQ(estimate.look(10 * kSecond, 0, 10 * kSecond + 125 * kMillisecond), 625);
  EXPECT_EQ(estimate.look(10 * kSecond, 0, 10 * kSecond + 250 * kMillisecond), 391);
  EXPECT_EQ(estimate.look(10 * kSecond, 0, 15 * kSecond), 0);
  // Half a processor for 125 ms: 3/8 of that counts.
  EXPECT_EQ(estimate.look(10 * kSecond + 62500000, 0, 15 * kSecond + 125 * kMillisecond), 188);
  // A whole one for long.
  EXPECT_EQ(estimate.look(30 * kSecond + 62500000, 0, 35 * kSecond + 125 * kMillisecond), 1000);
}

TEST(LinuxThreads, LooksWithinOneTickAnswerTheSame) {
  UsageEstimate estimate;
  ASSERT_EQ(estimate.look(kSecond, 0, 4 * kSecond), 250);
  uint64_t tick = nanosecondsPerTick();
  EXPECT_EQ(estimate.look(kSecond + tick, 0, 4 * kSecond + tick - 1), 250);
  EXPECT_EQ(estimate.look(kSecond, 0, 4 * kSecond), 250);
  // What was passed over is counted by the next look: a whole processor for one tick.
  double kept = std::pow(0.625, static_cast<double>(tick) / 125e6);
  EXPECT_EQ(estimate.look(kSecond + tick, 0, 4 * kSecond + tick),
            static_cast<int32_t>(std::lround(250 * kept + 1000 * (1 - kept))));
}

TEST(LinuxThreads, TimesOrClocksThatFallAreHarmless) {
  UsageEstimate estimate;
  ASSERT_EQ(estimate.look(2 * kSecond, 0, 4 * kSecond), 500);
  EXPECT_EQ(estimate.look(kSecond, 0, 3 * kSecond), 500) << "the clock went back";
  EXPECT_EQ(estimate.look(kSecond, 0, 100 * kSecond), 0) << "the processor time went back";
}

TEST(LinuxThreads, FillsAThread) {
  ProcessStat stat{};
  stat.state = 'D';
  stat.policy = 0;
  stat.nice = 5;
  std::strcpy(stat.name, "worker \x1b(1)");
  darwin::proc_threadinfo info;
  std::memset(&info, 0xAA, sizeof info);
  fillThreadInfo(stat, {3, 4, 123}, info);
  EXPECT_EQ(info.pth_user_time, 3 * nanosecondsPerTick());
  EXPECT_EQ(info.pth_system_time, 4 * nanosecondsPerTick());
  EXPECT_EQ(info.pth_cpu_usage, 123);
  EXPECT_EQ(info.pth_policy, darwin::POLICY_TIMESHARE);
  EXPECT_EQ(info.pth_run_state, darwin::TH_STATE_UNINTERRUPTIBLE);
  EXPECT_EQ(info.pth_flags, 0);
  EXPECT_EQ(info.pth_curpri, 26);
  EXPECT_EQ(info.pth_priority, 26);
  EXPECT_EQ(info.pth_maxpriority, 63);
  EXPECT_STREQ(info.pth_name, "worker \x1b(1)");
}

}  // namespace
}  // namespace host::linux_machine
