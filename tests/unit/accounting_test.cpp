#include "nstat/accounting.h"

#include <gtest/gtest.h>

#include <map>

#include "columns/comparators.h"
#include "tests/unit/display_state.h"

namespace {

using namespace sondex;

constexpr int32_t kOwner = 321;

class Accounting : public testing::Test {
 protected:
  static void file(int source, int32_t pid, uint64_t received, uint64_t sent) {
    store(process_pid_info[source], pid);
    store(process_ntstat_info[source].received, received);
    store(process_ntstat_info[source].sent, sent);
  }

  DisplayStateGuard guard;
};

TEST_F(Accounting, OwnerOfNoSourceHasNoFigures) {
  file(3, kOwner + 1, 10, 20);
  EXPECT_EQ(getNTStatInfo(kOwner), nullptr);
  EXPECT_EQ(getRXBytesForProcess(kOwner), -1);
  EXPECT_EQ(getTXBytesForProcess(kOwner), -1);
}

TEST_F(Accounting, OwnerOfThreeSourcesHasTheirSum) {
  file(0, kOwner, 1, 10);
  file(500, kOwner, 2, 20);
  file(501, kOwner + 1, 1000, 1000);
  file(1023, kOwner, 4, 40);
  const NetworkTotals *totals = getNTStatInfo(kOwner);
  ASSERT_NE(totals, nullptr);
  EXPECT_EQ(totals->received, 7u);
  EXPECT_EQ(totals->sent, 70u);
  EXPECT_EQ(getRXBytesForProcess(kOwner), 7);
  EXPECT_EQ(getTXBytesForProcess(kOwner), 70);
}

TEST_F(Accounting, SourceWithoutTrafficStillCounts) {
  file(3, kOwner, 0, 0);
  ASSERT_NE(getNTStatInfo(kOwner), nullptr);
  EXPECT_EQ(getNTStatInfo(kOwner)->received, 0u);
  EXPECT_EQ(getRXBytesForProcess(kOwner), 0);
}

TEST_F(Accounting, LastPlaceIsNotSummed) {
  file(kLastSource, kOwner, 10, 20);
  EXPECT_EQ(kLastSource, 1024);
  EXPECT_EQ(getNTStatInfo(kOwner), nullptr);
  file(0, kOwner, 1, 2);
  EXPECT_EQ(getNTStatInfo(kOwner)->received, 1u);
}

TEST_F(Accounting, SumsOfAMomentAreThoseOfEveryProcessThen) {
  std::map<int32_t, NetworkTotals> expected;
  for (int source = 0; source < kLastSource; source++) {
    const int32_t pid = source % 5 == 0 ? 0 : source * source % 97 - 1;
    const uint64_t received = static_cast<uint64_t>(source) << 33;
    file(source, pid, received, static_cast<uint64_t>(source));
    if (pid == 0) continue;
    expected[pid].received += received;
    expected[pid].sent += static_cast<uint64_t>(source);
  }
  file(kLastSource, 500, 1, 1);
  SourceSums *sums = takeSourceSums();
  ASSERT_NE(sums, nullptr);
  // What is filed later is of another moment.
  for (int source = 0; source < kLastSource; source++) file(source, 500, 9, 9);

  for (int32_t pid = -2; pid < 100; pid++) {
    NetworkTotals totals = {3, 4};
    EXPECT_EQ(sumAtMoment(sums, pid, &totals), pid != 0 && expected.contains(pid)) << pid;
    const NetworkTotals wanted = pid == 0 ? NetworkTotals{3, 4} : expected[pid];
    EXPECT_EQ(totals.received, wanted.received) << pid;
    EXPECT_EQ(totals.sent, wanted.sent) << pid;
  }
  NetworkTotals totals = {};
  EXPECT_FALSE(sumAtMoment(sums, 500, &totals));
  releaseSourceSums(sums);
  releaseSourceSums(nullptr);
}

TEST_F(Accounting, PidZeroIsNeverSummed) {
  file(3, 0, 10, 20);
  EXPECT_EQ(getNTStatInfo(0), nullptr);
  EXPECT_EQ(getRXBytesForProcess(0), -1);
  EXPECT_EQ(getTXBytesForProcess(0), -1);
}

TEST_F(Accounting, PidMinusOneIsAnOwnerLikeAnyOther) {
  EXPECT_EQ(getNTStatInfo(-1), nullptr);
  file(3, -1, 10, 20);
  ASSERT_NE(getNTStatInfo(-1), nullptr);
  EXPECT_EQ(getNTStatInfo(-1)->sent, 20u);
}

TEST_F(Accounting, RemovedSourceNoLongerCounts) {
  file(3, kOwner, 10, 20);
  file(4, kOwner, 1, 2);
  store(process_pid_info[3], 0);
  EXPECT_EQ(getNTStatInfo(kOwner)->received, 1u);
  EXPECT_EQ(load(process_ntstat_info[3].received), 10u) << "the totals stay in the table";
}

TEST_F(Accounting, EachAskingStartsFromZero) {
  file(3, kOwner, 10, 20);
  getNTStatInfo(kOwner);
  EXPECT_EQ(getNTStatInfo(kOwner)->received, 10u);
}

TEST_F(Accounting, AnswerIsOverwrittenByTheNext) {
  file(3, kOwner, 10, 20);
  file(4, kOwner + 1, 1, 2);
  const NetworkTotals *first = getNTStatInfo(kOwner);
  EXPECT_EQ(getNTStatInfo(kOwner + 1), first);
  EXPECT_EQ(first->received, 1u);
}

TEST_F(Accounting, SummingLeavesTheAnswerAlone) {
  file(3, kOwner, 10, 20);
  file(4, kOwner + 1, 1, 2);
  const NetworkTotals *answer = getNTStatInfo(kOwner);
  NetworkTotals sums = {};
  EXPECT_TRUE(sumSources(kOwner + 1, &sums));
  EXPECT_EQ(sums.received, 1u);
  EXPECT_EQ(sums.sent, 2u);
  EXPECT_EQ(answer->received, 10u);
  EXPECT_FALSE(sumSources(0, &sums));
  EXPECT_EQ(sums.received, 1u);
  EXPECT_FALSE(sumSources(kOwner + 2, &sums));
  EXPECT_EQ(sums.received, 0u);
  EXPECT_EQ(sums.sent, 0u);
}

TEST_F(Accounting, SortingLeavesTheAnswerAlone) {
  file(3, kOwner, 10, 20);
  file(4, kOwner + 1, 1, 2);
  ProcessRecord a = {};
  ProcessRecord b = {};
  a.taskAllInfo.pbsd.pbi_pid = kOwner;
  b.taskAllInfo.pbsd.pbi_pid = kOwner + 1;
  const NetworkTotals *answer = getNTStatInfo(kOwner);
  sort_netrx(0, &a, &b);
  sort_nettx(0, &a, &b);
  EXPECT_EQ(answer->received, 10u);
  EXPECT_EQ(answer->sent, 20u);
}

TEST_F(Accounting, WrappersGiveTheLowThirtyTwoBitsSigned) {
  file(3, kOwner, 0x100000005, 0x2ffffffff);
  EXPECT_EQ(getRXBytesForProcess(kOwner), 5);
  EXPECT_EQ(getTXBytesForProcess(kOwner), -1);
  file(3, kOwner, 0x180000000, 0x7fffffff);
  EXPECT_EQ(getRXBytesForProcess(kOwner), INT32_MIN);
  EXPECT_EQ(getTXBytesForProcess(kOwner), INT32_MAX);
  EXPECT_EQ(getNTStatInfo(kOwner)->received, 0x180000000u);
}

TEST_F(Accounting, ReadinessIsTheConnections) {
  EXPECT_EQ(nstat_ok(), 0);
  store(g_nstat_ok, 1);
  EXPECT_EQ(nstat_ok(), 1);
  store(g_nstat_ok, 7);
  EXPECT_EQ(nstat_ok(), 7);
}

}  // namespace
