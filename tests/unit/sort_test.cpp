#include "columns/sort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "columns/comparators.h"
#include "tests/unit/display_state.h"

namespace {

using namespace sondex;

class Sorting : public testing::Test {
 protected:
  struct Row {
    int32_t pid;
    int32_t cpu;
    const char *name;
  };

  void current(const std::vector<Row> &rows) {
    releaseProcessTable(load(g_process_information));
    ProcessRecord *table = allocateProcessTable(rows.size() + 1);
    for (size_t i = 0; i < rows.size(); i++) {
      table[i].taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(rows[i].pid);
      table[i].totalCPU = rows[i].cpu;
      std::strncpy(table[i].taskAllInfo.pbsd.pbi_comm, rows[i].name, 15);
    }
    store(g_process_information, table);
    store(num_procs, static_cast<int32_t>(rows.size()));
  }

  std::vector<int32_t> sortedBy(Comparator comparator) {
    doSort(comparator);
    std::vector<int32_t> pids;
    for (int32_t i = 0; i < load(num_procs); i++)
      pids.push_back(pidOf(&load(g_process_information)[i]));
    return pids;
  }

  DisplayStateGuard guard;
};

using Pids = std::vector<int32_t>;

TEST_F(Sorting, PutsTheComparatorsFirstInFront) {
  current({{1, 30, "b"}, {2, 10, "c"}, {3, 20, "a"}});
  EXPECT_EQ(sortedBy(sort_cpu_usage), (Pids{1, 3, 2}));
  EXPECT_EQ(sortedBy(sort_pid), (Pids{3, 2, 1}));
  EXPECT_EQ(sortedBy(sort_name), (Pids{2, 1, 3}));
}

TEST_F(Sorting, ByNetworkGoesByTheSumsOfAllSources) {
  current({{1, 0, "a"}, {2, 0, "b"}, {3, 0, "c"}});
  const auto file = [](int source, int32_t pid, uint64_t received, uint64_t sent) {
    store(process_pid_info[source], pid);
    store(process_ntstat_info[source].received, received);
    store(process_ntstat_info[source].sent, sent);
  };
  file(4, 1, 50, 1);
  file(900, 1, 50, 1);
  file(7, 3, 70, 9);
  EXPECT_EQ(sortedBy(sort_netrx), (Pids{2, 3, 1}));
  EXPECT_EQ(sortedBy(sort_nettx), (Pids{2, 1, 3}));
  file(7, 2, 1000, 9);
  EXPECT_EQ(sortedBy(sort_netrx), (Pids{3, 1, 2})) << "each sort goes by the sums of its time";
}

TEST_F(Sorting, HandsTheReverseFlagOn) {
  current({{1, 30, "b"}, {2, 10, "c"}, {3, 20, "a"}});
  store(g_reverse, 1);
  EXPECT_EQ(sortedBy(sort_cpu_usage), (Pids{2, 3, 1}));
  EXPECT_EQ(sortedBy(sort_name), (Pids{3, 1, 2}));
}

TEST_F(Sorting, KeepsTheOrderOfEqualKeys) {
  const std::vector<Row> rows = {{9, 5, "x"}, {1, 5, "x"}, {4, 7, "y"}, {3, 5, "x"}, {8, 7, "y"}};
  for (const int32_t reverse : {0, 1}) {
    store(g_reverse, reverse);
    current(rows);
    EXPECT_EQ(sortedBy(sort_cpu_usage),
              reverse == 0 ? (Pids{4, 8, 9, 1, 3}) : (Pids{9, 1, 3, 4, 8}));
    current(rows);
    EXPECT_EQ(sortedBy(sort_name), reverse == 0 ? (Pids{4, 8, 9, 1, 3}) : (Pids{9, 1, 3, 4, 8}));
  }
}

TEST_F(Sorting, TwiceIsTheSameAsOnce) {
  current({{9, 5, "x"}, {1, 5, "x"}, {4, 7, "y"}, {3, 5, "x"}});
  const Pids once = sortedBy(sort_cpu_usage);
  EXPECT_EQ(sortedBy(sort_cpu_usage), once);
}

TEST_F(Sorting, MovesWholeRecords) {
  current({{1, 10, "first"}, {2, 20, "second"}});
  ProcessRecord *table = load(g_process_information);
  table[1].numFDs = 2;
  table[1].fds[1].proc_fd = 77;
  table[1].fdDetails = static_cast<uint8_t *>(std::calloc(2, kFDDetailSize));
  table[1].numThreads = 1;
  table[1].threads[0].pth_cpu_usage = 20;
  table[1].lastNetTX = 4;
  const uint8_t *details = table[1].fdDetails;
  doSort(sort_cpu_usage);
  EXPECT_STREQ(table[0].taskAllInfo.pbsd.pbi_comm, "second");
  EXPECT_EQ(table[0].fds[1].proc_fd, 77);
  EXPECT_EQ(table[0].fdDetails, details);
  EXPECT_EQ(table[0].threads[0].pth_cpu_usage, 20);
  EXPECT_EQ(table[0].lastNetTX, 4u);
  EXPECT_STREQ(table[1].taskAllInfo.pbsd.pbi_comm, "first");
  EXPECT_EQ(table[1].fdDetails, nullptr);
  EXPECT_EQ(table[1].numThreads, 0);
}

TEST_F(Sorting, LeavesRecordsBeyondTheCountAlone) {
  current({{1, 10, "a"}, {2, 20, "b"}, {3, 30, "c"}});
  store(num_procs, 2);
  doSort(sort_cpu_usage);
  store(num_procs, 3);
  EXPECT_EQ(pidOf(&load(g_process_information)[0]), 2);
  EXPECT_EQ(pidOf(&load(g_process_information)[2]), 3);
}

TEST_F(Sorting, OfNothingDoesNothing) {
  doSort(sort_pid);
  store(num_procs, 5);
  doSort(sort_pid);
  store(num_procs, 0);
  current({});
  doSort(sort_pid);
  current({{1, 30, "b"}});
  EXPECT_EQ(sortedBy(sort_pid), (Pids{1}));
}

TEST_F(Sorting, WithoutAComparatorKeepsTheOrder) {
  current({{1, 30, "b"}, {2, 10, "c"}});
  EXPECT_EQ(sortedBy(nullptr), (Pids{1, 2}));
}

// Network totals change while the table is sorted by them.
TEST_F(Sorting, ByAComparatorThatContradictsItselfKeepsEveryRecord) {
  constexpr int32_t kCount = 300;
  const Comparator comparators[] = {
      [](int32_t, const ProcessRecord *, const ProcessRecord *) { return -1; },
      [](int32_t, const ProcessRecord *, const ProcessRecord *) { return 1; },
      [](int32_t, const ProcessRecord *, const ProcessRecord *) { return 0; },
      [](int32_t, const ProcessRecord *, const ProcessRecord *) {
        static std::mt19937 random(7);
        return static_cast<int>(random() % 3) - 1;
      },
      // Each third is before the next, and the last before the first.
      [](int32_t, const ProcessRecord *a, const ProcessRecord *b) {
        return (pidOf(b) - pidOf(a) + kCount) % 3 == 1 ? -1 : 1;
      },
  };
  std::vector<Row> rows;
  for (int32_t pid = 1; pid <= kCount; pid++) rows.push_back({pid, 7 * pid, "p"});
  for (size_t i = 0; i < std::size(comparators); i++) {
    SCOPED_TRACE(i);
    current(rows);
    Pids pids = sortedBy(comparators[i]);
    for (int32_t at = 0; at < kCount; at++) {
      const ProcessRecord &record = load(g_process_information)[at];
      ASSERT_EQ(record.totalCPU, 7 * pidOf(&record));
    }
    std::sort(pids.begin(), pids.end());
    for (int32_t at = 0; at < kCount; at++) ASSERT_EQ(pids[static_cast<size_t>(at)], at + 1);
  }
}

TEST_F(Sorting, OfManyRecordsIsStable) {
  std::mt19937 random(31);
  std::vector<Row> rows;
  for (int32_t pid = 1; pid <= 400; pid++)
    rows.push_back({pid, static_cast<int32_t>(random() % 12), "p"});
  current(rows);
  std::stable_sort(rows.begin(), rows.end(),
                   [](const Row &a, const Row &b) { return a.cpu > b.cpu; });
  Pids expected;
  for (const Row &row : rows) expected.push_back(row.pid);
  EXPECT_EQ(sortedBy(sort_cpu_usage), expected);
}

}  // namespace
