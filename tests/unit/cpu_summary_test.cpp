#include "screens/cpu_summary.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "host/darwin/mach_host.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::SampledTest;
using testing::Eq;
using testing::ExitedWithCode;
using testing::StrEq;

constexpr char kNoRoot[] = " (can't tell you more without being root) ";

class CPUSummary : public SampledTest {
 protected:
  CPUSummary() {
    host_self = darwin::mach_host_self();
    machine.basic.logical_cpu = 4;
    machine.basic.logical_cpu_max = 6;
  }

  // Takes the ports of `count` processors, and a frame to compare the next one with.
  void start(size_t count) {
    machine.processors.assign(count, {{100, 100, 100, 100}});
    ASSERT_EQ(get_host_processors(host_self), darwin::KERN_SUCCESS);
    showProcessorInfo();
  }

  void tick(size_t processor, uint32_t user, uint32_t system, uint32_t idle, uint32_t nice) {
    uint32_t *ticks = machine.processors[processor].cpu_ticks;
    ticks[0] += user;
    ticks[1] += system;
    ticks[2] += idle;
    ticks[3] += nice;
  }

  static std::string line(const char *shares) {
    return std::string("CPU:   4/6 active ") + (geteuid() != 0 ? kNoRoot : "") + shares;
  }
};

// What the first frame of a process shows is seen in a fresh one.
class FreshCPUSummary : public CPUSummary {
 protected:
  FreshCPUSummary() : m_style(GTEST_FLAG_GET(death_test_style)) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
  }
  ~FreshCPUSummary() override { GTEST_FLAG_SET(death_test_style, m_style); }

  [[noreturn]] static void showAndEnd() {
    std::fputs(showProcessorInfo(), stderr);
    std::exit(0);
  }

  [[noreturn]] static void showAsNobodyAndEnd() {
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setuid(65534) != 0)) std::abort();
    prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
    showAndEnd();
  }

 private:
  std::string m_style;
};

using FreshCPUSummaryDeathTest = FreshCPUSummary;

TEST_F(FreshCPUSummaryDeathTest, WithoutRootSaysSo) {
  EXPECT_EXIT(showAsNobodyAndEnd(), ExitedWithCode(0),
              Eq("CPU:   4/6 active  (can't tell you more without being root) \n"));
}

TEST_F(FreshCPUSummaryDeathTest, OfEachProcessorWithoutRootIsAnEmptyLine) {
  store(g_EachCPU, 1);
  EXPECT_EXIT(showAsNobodyAndEnd(), ExitedWithCode(0), Eq("\n"));
}

TEST_F(FreshCPUSummaryDeathTest, OfRootWithoutPortsHasNoNote) {
  if (geteuid() != 0) GTEST_SKIP() << "root's line";
  EXPECT_EXIT(showAndEnd(), ExitedWithCode(0), Eq("CPU:   4/6 active \n"));
}

TEST_F(FreshCPUSummaryDeathTest, FirstFrameShowsTheSharesSinceBoot) {
  machine.processors = {{{100, 200, 650, 50}}};
  EXPECT_EXIT(
      {
        get_host_processors(host_self);
        showAndEnd();
      },
      ExitedWithCode(0), Eq(line("   10.00% User,  20.00% System,  65.00% Idle \n")));
}

TEST_F(CPUSummary, ShowsTheSharesSinceTheFrameBefore) {
  start(2);
  tick(0, 10, 20, 70, 0);
  tick(1, 0, 0, 100, 0);
  EXPECT_EQ(showProcessorInfo(), line("    5.00% User,  10.00% System,  85.00% Idle \n"));
  EXPECT_EQ(g_totalTicksThisSample, 200u);
  tick(0, 100, 0, 0, 0);
  EXPECT_EQ(showProcessorInfo(), line("  100.00% User,   0.00% System,   0.00% Idle \n"));
  EXPECT_EQ(g_totalTicksThisSample, 100u);
}

TEST_F(CPUSummary, CountsNiceTicksWithoutShowingThem) {
  start(1);
  tick(0, 25, 25, 0, 50);
  EXPECT_EQ(showProcessorInfo(), line("   25.00% User,  25.00% System,   0.00% Idle \n"));
}

TEST_F(CPUSummary, DividesTheFirstFourByTheTicksOfAll) {
  start(6);
  for (size_t i = 0; i < 6; i++) tick(i, 60, 40, 0, 0);
  EXPECT_EQ(showProcessorInfo(), line("   40.00% User,  26.67% System,   0.00% Idle \n"));
  EXPECT_EQ(g_totalTicksThisSample, 600u);
  tick(5, 0, 0, 100, 0);
  EXPECT_EQ(showProcessorInfo(), line("    0.00% User,   0.00% System,   0.00% Idle \n"));
}

TEST_F(CPUSummary, WithoutTicksDividesByZero) {
  start(2);
  EXPECT_EQ(showProcessorInfo(), line("     nan% User,    nan% System,    nan% Idle \n"));
  EXPECT_EQ(g_totalTicksThisSample, 0u);
}

TEST_F(CPUSummary, CountersMayWrap) {
  start(1);
  machine.processors[0] = {{0xfffffff0, 0xfffffff0, 100, 100}};
  showProcessorInfo();
  tick(0, 0x20, 0x20, 0, 0);
  EXPECT_EQ(showProcessorInfo(), line("   50.00% User,  50.00% System,   0.00% Idle \n"));
  EXPECT_EQ(g_totalTicksThisSample, 0x40u);
}

TEST_F(CPUSummary, OfEachProcessorHasALineForEach) {
  start(3);
  store(g_EachCPU, 1);
  tick(0, 10, 20, 65, 5);
  tick(1, 100, 0, 0, 0);
  tick(2, 1, 1, 1, 0);
  g_totalTicksThisSample = 4711;
  EXPECT_STREQ(showProcessorInfo(),
               "CPU 0:  10.00% User,  20.00% System,  65.00% Idle,  5.00% Nice\n"
               "    1: 100.00% User,   0.00% System,   0.00% Idle,  0.00% Nice\n"
               "    2:  33.33% User,  33.33% System,  33.33% Idle,  0.00% Nice\n");
  EXPECT_EQ(g_totalTicksThisSample, 4711u) << "set by the single line only";
  EXPECT_EQ(g_num_cpus, 4);
}

TEST_F(CPUSummary, OfEachProcessorWithoutTicksDividesByZero) {
  start(1);
  store(g_EachCPU, 1);
  EXPECT_STREQ(showProcessorInfo(),
               "CPU 0:    nan% User,    nan% System,    nan% Idle,   nan% Nice\n");
}

// Three of 4000 are 0.075 percent: just above that in single precision, just below in double.
TEST_F(CPUSummary, OfEachProcessorIsReckonedInSinglePrecision) {
  start(1);
  store(g_EachCPU, 1);
  tick(0, 3, 0, 0, 3997);
  EXPECT_THAT(showProcessorInfo(), testing::StartsWith("CPU 0:   0.08% User,   0.00% System,"));
}

TEST_F(CPUSummary, CounterThatFallsDividesByZeroWhereAnotherMakesUpForIt) {
  start(1);
  store(g_EachCPU, 1);
  tick(0, 10, 0, static_cast<uint32_t>(-10), 0);
  EXPECT_STREQ(showProcessorInfo(),
               "CPU 0:    inf% User,    nan% System,    inf% Idle,   nan% Nice\n");
}

// Shares as wide as they can be, of as many processors as are shown.
TEST_F(CPUSummary, WidestTextHasRoom) {
  start(32);
  store(g_EachCPU, 1);
  for (size_t i = 0; i < 32; i++) tick(i, UINT32_MAX, UINT32_MAX, UINT32_MAX, 4);
  const std::string text = showProcessorInfo();
  EXPECT_THAT(text, testing::EndsWith("\n    31: 429496729600.00% User, 429496729600.00% System, "
                                      "429496729600.00% Idle, 400.00% Nice\n"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 32);
}

TEST_F(CPUSummary, BothFormsCompareWithTheLastFrame) {
  start(1);
  store(g_EachCPU, 1);
  tick(0, 100, 0, 0, 0);
  showProcessorInfo();
  store(g_EachCPU, 0);
  tick(0, 0, 50, 50, 0);
  EXPECT_EQ(showProcessorInfo(), line("    0.00% User,  50.00% System,  50.00% Idle \n"));
  store(g_EachCPU, 1);
  tick(0, 0, 0, 50, 0);
  EXPECT_STREQ(showProcessorInfo(),
               "CPU 0:   0.00% User,   0.00% System, 100.00% Idle,  0.00% Nice\n");
}

TEST_F(CPUSummary, ShowsThirtyTwoProcessorsAtMost) {
  store(g_EachCPU, 1);
  for (const size_t count : {31u, 32u, 33u, 500u}) {
    SCOPED_TRACE(count);
    start(count);
    for (size_t i = 0; i < count; i++) tick(i, 50, 0, 50, 0);
    const std::string text = showProcessorInfo();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'),
              std::min<long>(32, static_cast<long>(count)));
    EXPECT_EQ(text.back(), '\n');
    EXPECT_THAT(text, testing::EndsWith("% Nice\n"));
  }
}

TEST_F(CPUSummary, ProcessorThatDoesNotAnswerHasNoTicks) {
  start(1);
  machine.refusals["processorLoad"] = darwin::DARWIN_EPERM;
  tick(0, 10, 10, 10, 10);
  store(g_EachCPU, 1);
  EXPECT_STREQ(showProcessorInfo(),
               "CPU 0:    nan% User,    nan% System,    nan% Idle,   nan% Nice\n");
}

TEST_F(CPUSummary, HostThatDoesNotAnswerHasNoProcessors) {
  start(1);
  g_num_cpus = 9;
  machine.refusals["hostBasicInfo"] = darwin::DARWIN_EPERM;
  tick(0, 0, 0, 10, 0);
  EXPECT_EQ(std::string(showProcessorInfo()).substr(0, 18), "CPU:   0/0 active ");
  EXPECT_EQ(g_num_cpus, 0);
}

TEST_F(CPUSummary, CountsTheHostsLogicalProcessors) {
  start(1);
  machine.basic.logical_cpu = 5;
  machine.basic.physical_cpu = 3;
  showProcessorInfo();
  EXPECT_EQ(g_num_cpus, 5);
}

TEST_F(CPUSummary, PortsAreRootsOnly) {
  machine.processors.resize(2);
  machine.privileges = {false};
  host_self = darwin::mach_host_self();
  EXPECT_EQ(get_host_processors(host_self), darwin::KERN_INVALID_ARGUMENT);
}

}  // namespace
