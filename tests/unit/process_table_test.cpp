#include "proc/process_table.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "columns/comparators.h"
#include "columns/sort.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::SampledMachine;
using sampled::SampledTest;

class ProcessTable : public testing::Test {
 protected:
  DisplayStateGuard guard;

  // A table with those PIDs.
  static ProcessRecord *tableOf(const std::vector<int32_t> &pids) {
    ProcessRecord *table = allocateProcessTable(pids.size());
    for (size_t i = 0; i < pids.size(); i++)
      table[i].taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(pids[i]);
    return table;
  }

  // How many tables are out, counted by those that can still be had.
  size_t tablesOut() const { return room - roomLeft(); }

  static size_t roomLeft() {
    std::vector<ProcessRecord *> tables;
    while (hasRoomForTable()) tables.push_back(allocateProcessTable(1));
    EXPECT_EQ(allocateProcessTable(1), nullptr);
    for (ProcessRecord *table : tables) releaseProcessTable(table);
    return tables.size();
  }

  const size_t room = roomLeft();
};

TEST_F(ProcessTable, IsZeroAtFirst) {
  ProcessRecord *table = allocateProcessTable(3);
  ASSERT_NE(table, nullptr);
  const char *bytes = reinterpret_cast<const char *>(table);
  EXPECT_TRUE(std::all_of(bytes, bytes + 3 * sizeof(ProcessRecord), [](char b) { return b == 0; }));
  releaseProcessTable(table);
}

TEST_F(ProcessTable, IsRefusedWhenNoMemoryCanHoldIt) {
  EXPECT_EQ(allocateProcessTable(SIZE_MAX), nullptr);
  EXPECT_EQ(allocateProcessTable(SIZE_MAX / sizeof(ProcessRecord)), nullptr);
}

TEST_F(ProcessTable, OnlySoManyAreOutAtATime) {
  std::vector<ProcessRecord *> tables;
  while (ProcessRecord *table = allocateProcessTable(1)) {
    tables.push_back(table);
    ASSERT_LT(tables.size(), 100u);
  }
  EXPECT_GE(tables.size(), 4u) << "current, previous, one being filled, one that waits";
  releaseProcessTable(tables.back());
  tables.back() = allocateProcessTable(1);
  EXPECT_NE(tables.back(), nullptr) << "a released table makes room";
  for (ProcessRecord *table : tables) releaseProcessTable(table);
}

TEST_F(ProcessTable, ReleasedNullIsIgnored) {
  releaseProcessTable(nullptr);
  retireProcessTable(nullptr);
  ProcessRecord *table = allocateProcessTable(1);
  EXPECT_NE(table, nullptr);
  releaseProcessTable(table);
}

TEST_F(ProcessTable, ReleasedTakesTheDetailsAlong) {
  ProcessRecord *table = allocateProcessTable(2);
  for (int i = 0; i < 2; i++)
    table[i].fdDetails = static_cast<uint8_t *>(std::malloc(kFDDetailSize));
  releaseRecord(&table[0]);
  EXPECT_EQ(table[0].fdDetails, nullptr);
  releaseRecord(&table[0]);
  EXPECT_EQ(tablesOut(), 1u);
  releaseProcessTable(table);
  EXPECT_EQ(tablesOut(), 0u);
}

TEST_F(ProcessTable, IsZeroWhenHandedOutAgain) {
  constexpr size_t kCount = 300;
  ProcessRecord *table = allocateProcessTable(kCount);
  for (size_t i = 0; i < kCount; i++) {
    ProcessRecord &record = table[i];
    record.taskAllInfo.pbsd.pbi_pid = 7;
    record.numFDs = static_cast<int32_t>(i % 129);
    for (int32_t fd = 0; fd < record.numFDs; fd++) record.fds[fd] = {fd + 1, 1};
    record.numThreads = static_cast<int32_t>(i % 513);
    for (int32_t thread = 0; thread < record.numThreads; thread++) {
      record.threadIDs[thread] = 5;
      record.threads[thread].pth_cpu_usage = 5;
    }
    record.totalCPU = 9;
    record.compressionsStash = 9;
  }
  releaseProcessTable(table);
  table = allocateProcessTable(kCount);
  const char *bytes = reinterpret_cast<const char *>(table);
  EXPECT_TRUE(
      std::all_of(bytes, bytes + kCount * sizeof(ProcessRecord), [](char b) { return b == 0; }));
  releaseProcessTable(table);
}

TEST_F(ProcessTable, RetiredIsReleasedWhenNobodyReads) {
  ProcessRecord *table = allocateProcessTable(2);
  EXPECT_EQ(tablesOut(), 1u);
  retireProcessTable(table);
  EXPECT_EQ(tablesOut(), 0u);
}

TEST_F(ProcessTable, RetiredWaitsForItsReaders) {
  ProcessRecord *table = tableOf({5, 7});
  table[1].fdDetails = static_cast<uint8_t *>(std::malloc(kFDDetailSize));
  table[1].fdDetails[0] = 9;
  enterProcessTables();
  enterProcessTables();
  retireProcessTable(table);
  ASSERT_EQ(tablesOut(), 1u);
  EXPECT_EQ(pidOf(&table[1]), 7);
  EXPECT_EQ(table[1].fdDetails[0], 9);
  EXPECT_EQ(findProcessInformationByPid({table, 2}, 7), &table[1]);
  leaveProcessTables();
  retireProcessTable(nullptr);
  EXPECT_EQ(tablesOut(), 1u) << "one reader is still inside";
  leaveProcessTables();
  EXPECT_EQ(tablesOut(), 1u) << "leaving frees nothing: that is the main thread's";
  retireProcessTable(nullptr);
  EXPECT_EQ(tablesOut(), 0u);
}

TEST_F(ProcessTable, RetiredOnesWaitTogether) {
  ProcessRecord *first = tableOf({5});
  ProcessRecord *second = tableOf({6});
  ProcessRecord *kept = tableOf({7});
  enterProcessTables();
  retireProcessTable(first);
  retireProcessTable(second);
  EXPECT_EQ(tablesOut(), 3u);
  leaveProcessTables();
  retireProcessTable(nullptr);
  EXPECT_EQ(tablesOut(), 1u) << "one that nobody retired";
  EXPECT_EQ(pidOf(kept), 7);
  releaseProcessTable(kept);
}

class Lookup : public ProcessTable {
 protected:
  // Every answer of the lookup, for PIDs in and out of the table, against a scan.
  static void expectAnswersAsAScan(ProcessRecord *table, int32_t count) {
    std::vector<int32_t> wanted = {0, -1, 1, 99999, INT32_MAX, INT32_MIN};
    for (int32_t i = 0; i < count; i++) {
      wanted.push_back(pidOf(&table[i]));
      wanted.push_back(pidOf(&table[i]) + 64);
    }
    for (const int32_t pid : wanted) {
      ProcessRecord *expected = nullptr;
      for (int32_t i = 0; i < count && expected == nullptr; i++)
        if (pidOf(&table[i]) == pid) expected = &table[i];
      ASSERT_EQ(findProcessInformationByPid({table, count}, pid), expected) << pid;
    }
  }
};

TEST_F(Lookup, InNoTableFindsNone) {
  EXPECT_EQ(findProcessInformationByPid({nullptr, 5}, 0), nullptr);
}

TEST_F(Lookup, OfAnyPidAnswersAsAScan) {
  const std::vector<std::vector<int32_t>> tables = {
      {5}, {0}, {-1}, {5, 5, 5}, {30, 0, 10, 0, -1, 10, 30, 20}, {64, 128, 192, 256, 64, 0}};
  for (const std::vector<int32_t> &pids : tables) {
    ProcessRecord *table = tableOf(pids);
    const int32_t count = static_cast<int32_t>(pids.size());
    expectAnswersAsAScan(table, count);
    indexProcessTable({table, count});
    expectAnswersAsAScan(table, count);
    releaseProcessTable(table);
  }
}

TEST_F(Lookup, OfRandomTablesAnswersAsAScan) {
  std::mt19937 random(4711);
  for (int round = 0; round < 20; round++) {
    std::vector<int32_t> pids(1 + random() % 700);
    // Few enough numbers for duplicates, and multiples of a power of two, which crowd an index.
    const int32_t spread = round % 2 == 0 ? 1 : 4096;
    for (int32_t &pid : pids) pid = static_cast<int32_t>(random() % 900) * spread - 5;
    ProcessRecord *table = tableOf(pids);
    indexProcessTable({table, static_cast<int32_t>(pids.size())});
    expectAnswersAsAScan(table, static_cast<int32_t>(pids.size()));
    releaseProcessTable(table);
  }
}

TEST_F(Lookup, WithAnotherCountThanIndexedAnswersAsAScan) {
  ProcessRecord *table = tableOf({5, 6, 7, 8});
  indexProcessTable({table, 3});
  for (const int32_t count : {0, 1, 2, 4}) expectAnswersAsAScan(table, count);
  EXPECT_EQ(findProcessInformationByPid({table, -1}, 5), nullptr);
  releaseProcessTable(table);
}

TEST_F(Lookup, IndexedAgainFollowsTheNewContents) {
  ProcessRecord *table = tableOf({5, 6, 7});
  indexProcessTable({table, 3});
  table[0].taskAllInfo.pbsd.pbi_pid = 50;
  indexProcessTable({table, 3});
  expectAnswersAsAScan(table, 3);
  EXPECT_EQ(findProcessInformationByPid({table, 3}, 5), nullptr);
  releaseProcessTable(table);
}

TEST_F(Lookup, AfterSortingAnswersAsAScan) {
  ProcessRecord *table = tableOf({5, 9, 7, 9, 1});
  store(g_process_information, table);
  store(num_procs, 5);
  indexProcessTable({table, 5});
  doSort(sort_pid);
  ASSERT_EQ(pidOf(&table[0]), 9);
  ASSERT_EQ(pidOf(&table[4]), 1);
  expectAnswersAsAScan(table, 5);
}

TEST_F(Lookup, InATableMadeElsewhereScans) {
  std::vector<ProcessRecord> table(2);
  table[1].taskAllInfo.pbsd.pbi_pid = 7;
  indexProcessTable({table.data(), 2});
  expectAnswersAsAScan(table.data(), 2);
}

TEST_F(Lookup, OfAnEmptyIndexFindsNone) {
  ProcessRecord *table = tableOf({5});
  indexProcessTable({table, 0});
  indexProcessTable({table, -3});
  EXPECT_EQ(findProcessInformationByPid({table, 0}, 5), nullptr);
  EXPECT_EQ(findProcessInformationByPid({table, 1}, 5), &table[0]);
  releaseProcessTable(table);
}

// Bytes in use, as the C library counts them, large blocks apart: a sanitizer's heap doesn't.
size_t heapInUse() {
  const struct mallinfo2 counted = mallinfo2();
  return counted.uordblks + counted.hblkhd;
}

bool isHeapCounted() {
  const size_t before = heapInUse();
  const std::unique_ptr<char[]> some(new char[5000]);
  return heapInUse() > before;
}

TEST_F(Lookup, FormerIndexesAreFreedOnceNobodyReads) {
  if (!isHeapCounted()) GTEST_SKIP() << "the heap is not the C library's";
  ProcessRecord *table = tableOf(std::vector<int32_t>(3000, 5));
  const auto indexOften = [table] {
    for (int i = 0; i < 50; i++) indexProcessTable({table, 3000});
    return heapInUse();
  };
  // The C library counts the small blocks that it keeps for itself: once it has its fill of them.
  enterProcessTables();
  indexOften();
  leaveProcessTables();
  const size_t before = indexOften();
  EXPECT_EQ(indexOften(), before);
  enterProcessTables();
  EXPECT_GT(indexOften(), before) << "a reader may be in any of them";
  leaveProcessTables();
  EXPECT_EQ(indexOften(), before);
  releaseProcessTable(table);
}

TEST_F(Lookup, OfAnIndexedTableDoesNotScan) {
  constexpr int32_t kRecords = 1000;
  std::vector<int32_t> pids(kRecords);
  std::iota(pids.begin(), pids.end(), 1);
  ProcessRecord *table = tableOf(pids);
  indexProcessTable({table, kRecords});
  // The first record changes behind the index's back: an indexed lookup doesn't see it, a scan
  // does.
  table[0].taskAllInfo.pbsd.pbi_pid = kRecords;
  EXPECT_EQ(findProcessInformationByPid({table, kRecords}, kRecords), &table[kRecords - 1]);
  releaseProcessTable(table);
}

TEST_F(Lookup, MayRunWhileTheMainThreadReplacesTables) {
  store(g_process_information, tableOf({5, 6, 7}));
  std::atomic<bool> done{false};
  std::atomic<int> found{0};
  std::thread reader([&] {
    while (!done.load()) {
      enterProcessTables();
      ProcessRecord *table = load(g_process_information);
      const ProcessRecord *record = findProcessInformationByPid({table, 3}, 6);
      if (record == &table[1] && pidOf(record) == 6) found++;
      leaveProcessTables();
    }
  });
  for (int round = 0; round < 2000 || found.load() == 0; round++) {
    ProcessRecord *next = nullptr;
    while ((next = allocateProcessTable(3)) == nullptr) retireProcessTable(nullptr);
    for (uint32_t i = 0; i < 3; i++) next[i].taskAllInfo.pbsd.pbi_pid = 5 + i;
    ProcessRecord *former = load(g_process_information);
    indexProcessTable({former, 3});
    store(g_process_information, next);
    retireProcessTable(former);
  }
  done = true;
  reader.join();
  retireProcessTable(nullptr);
  EXPECT_GT(found.load(), 0);
}

using Version = ProcessTable;

TEST_F(Version, IsAnotherForEveryTable) {
  ProcessRecord *first = tableOf({5});
  ProcessRecord *second = tableOf({5});
  const uint64_t former = versionOf(first);
  EXPECT_NE(former, 0u);
  EXPECT_NE(versionOf(second), 0u);
  EXPECT_NE(versionOf(second), former);
  releaseProcessTable(first);
  EXPECT_EQ(versionOf(first), 0u);
  ProcessRecord *again = tableOf({5});
  ASSERT_EQ(again, first) << "else this shows nothing";
  EXPECT_NE(versionOf(again), former);
  EXPECT_NE(versionOf(again), versionOf(second));
  releaseProcessTable(again);
  releaseProcessTable(second);
}

TEST_F(Version, IsAnotherForEveryOrder) {
  ProcessRecord *table = tableOf({5, 6});
  const uint64_t former = versionOf(table);
  indexProcessTable({table, 2});
  EXPECT_EQ(versionOf(table), former);
  ProcessRecord *order[] = {&table[1], &table[0]};
  reorderProcessTable({table, 2}, order);
  EXPECT_NE(versionOf(table), former);
  EXPECT_NE(versionOf(table), 0u);
  releaseProcessTable(table);
}

TEST_F(Version, OfATableMadeElsewhereIsNone) {
  std::vector<ProcessRecord> table(1);
  EXPECT_EQ(versionOf(table.data()), 0u);
  EXPECT_EQ(versionOf(nullptr), 0u);
}

using PreviousTable = ProcessTable;

TEST_F(PreviousTable, IsTakenWithItsCount) {
  store(previous_num_procs, 7);
  EXPECT_EQ(previousTable().records, nullptr);
  EXPECT_EQ(previousTable().count, 0) << "whatever the count says";
  ProcessRecord *table = tableOf({5, 6});
  store(g_previous_process_information, table);
  store(previous_num_procs, 2);
  EXPECT_EQ(previousTable().records, table);
  EXPECT_EQ(previousTable().count, 2);
}

// Addresses that nobody follows, each of them used once and telling how many records it stands for.
TEST_F(PreviousTable, IsNeverSeenWithTheCountOfALargerOne) {
  constexpr uintptr_t kRounds = 1'000'000;
  const auto tableOfRound = [](uintptr_t round) {
    return TableView{reinterpret_cast<ProcessRecord *>(round), static_cast<int32_t>(round % 3 + 1)};
  };
  std::atomic<bool> done{false};
  std::atomic<uintptr_t> seen{0};
  std::atomic<uintptr_t> tooMany{0};
  std::thread reader([&] {
    while (!done.load()) {
      const TableView table = previousTable();
      if (table.records == nullptr) continue;
      seen++;
      if (table.count > tableOfRound(reinterpret_cast<uintptr_t>(table.records)).count) tooMany++;
    }
  });
  for (uintptr_t round = 1; round < kRounds || seen.load() < kRounds; round++)
    setPreviousTable(tableOfRound(round));
  done = true;
  reader.join();
  setPreviousTable({});
  EXPECT_EQ(tooMany.load(), 0u);
}

class Reorder : public ProcessTable {
 protected:
  static void fill(void *bytes, size_t size, std::mt19937 &random) {
    unsigned char *byte = static_cast<unsigned char *>(bytes);
    for (size_t i = 0; i < size; i++) byte[i] = static_cast<unsigned char>(random());
  }

  // Random bytes all over but in slots beyond the counts, as a sampled record has it. Descriptor
  // details are a mark that nobody follows.
  static void fillRecord(ProcessRecord *record, int32_t fds, int32_t threads,
                         std::mt19937 &random) {
    fill(record, sizeof *record, random);
    record->numFDs = fds;
    record->numThreads = threads;
    const size_t usedFDs = static_cast<size_t>(std::clamp(fds, 0, kFDSlots));
    const size_t usedThreads =
        threads > kThreadSlots ? 0 : static_cast<size_t>(std::max(threads, 0));
    std::memset(record->fds + usedFDs, 0, (kFDSlots - usedFDs) * sizeof record->fds[0]);
    std::memset(record->threadIDs + usedThreads, 0,
                (kThreadSlots - usedThreads) * sizeof record->threadIDs[0]);
    std::memset(record->threads + usedThreads, 0,
                (kThreadSlots - usedThreads) * sizeof record->threads[0]);
  }

  static void clearMarks(ProcessRecord *table, size_t count) {
    for (size_t i = 0; i < count; i++) table[i].fdDetails = nullptr;
  }
};

TEST_F(Reorder, KeepsEveryByteOfEveryRecord) {
  std::mt19937 random(1234);
  const int32_t kFDCounts[] = {0, 1, 128, 1024, 2000, -1};
  const int32_t kThreadCounts[] = {0, 1, 511, 512, 513, 600, INT32_MAX, -1, INT32_MIN};
  for (size_t count = 1; count <= 24; count++) {
    SCOPED_TRACE(count);
    ProcessRecord *table = allocateProcessTable(count);
    for (size_t i = 0; i < count; i++)
      fillRecord(&table[i], kFDCounts[random() % 6], kThreadCounts[random() % 9], random);
    std::vector<ProcessRecord> before(table, table + count);
    std::vector<ProcessRecord *> order(count);
    for (size_t i = 0; i < count; i++) order[i] = &table[i];
    std::shuffle(order.begin(), order.end(), random);
    std::vector<size_t> from(count);
    for (size_t i = 0; i < count; i++) from[i] = static_cast<size_t>(order[i] - table);
    reorderProcessTable({table, static_cast<int32_t>(count)}, order.data());
    for (size_t i = 0; i < count; i++)
      EXPECT_EQ(std::memcmp(&table[i], &before[from[i]], sizeof(ProcessRecord)), 0) << i;
    clearMarks(table, count);
    releaseProcessTable(table);
  }
}

TEST_F(Reorder, InOrderAlreadyChangesNothing) {
  std::mt19937 random(99);
  ProcessRecord *table = allocateProcessTable(3);
  ProcessRecord *order[3];
  for (int i = 0; i < 3; i++) {
    fillRecord(&table[i], 3, 4, random);
    order[i] = &table[i];
  }
  std::vector<ProcessRecord> before(table, table + 3);
  reorderProcessTable({table, 3}, order);
  EXPECT_EQ(std::memcmp(table, before.data(), 3 * sizeof(ProcessRecord)), 0);
  reorderProcessTable({table, 0}, order);
  EXPECT_EQ(std::memcmp(table, before.data(), 3 * sizeof(ProcessRecord)), 0);
  clearMarks(table, 3);
  releaseProcessTable(table);
}

class UntouchedPages : public SampledTest {
 protected:
  // Huge pages would come whole at the first touch.
  UntouchedPages() { prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0); }
  ~UntouchedPages() override { prctl(PR_SET_THP_DISABLE, 0, 0, 0, 0); }

  static size_t pagesOf(size_t records) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (records * sizeof(ProcessRecord) + page - 1) / page;
  }

  static size_t presentPages(ProcessRecord *table, size_t records) {
    std::vector<unsigned char> present(pagesOf(records));
    EXPECT_EQ(mincore(table, records * sizeof(ProcessRecord), present.data()), 0);
    return static_cast<size_t>(
        std::count_if(present.begin(), present.end(), [](unsigned char p) { return p & 1; }));
  }
};

TEST_F(UntouchedPages, OfANewTableAreNotThere) {
  // More than any table that another test may have left to be handed out again.
  constexpr size_t kCount = 5000;
  ProcessRecord *table = allocateProcessTable(kCount);
  EXPECT_EQ(presentPages(table, kCount), 0u);
  releaseProcessTable(table);
}

TEST_F(UntouchedPages, BehindTheSampledRecordsStayUntouchedByARelease) {
  constexpr size_t kCount = 5300;  // a mapping of its own, as above
  constexpr size_t kUsed = 2;
  ProcessRecord *table = allocateProcessTable(kCount);
  for (size_t i = 0; i < kUsed; i++) table[i].taskAllInfo.pbsd.pbi_pid = 7;
  limitProcessTable(table, kUsed);
  releaseProcessTable(table);
  table = allocateProcessTable(kCount);
  EXPECT_LE(presentPages(table, kCount), pagesOf(kUsed) + 1);
  EXPECT_EQ(pidOf(&table[kUsed - 1]), 0);
  releaseProcessTable(table);
}

TEST_F(UntouchedPages, OfSpareRecordsStayUntouchedByRefreshes) {
  for (int32_t pid = 1; pid <= 10; pid++) machine.add(pid, "daemon");
  // The one to be handed out again is much too large: the first sample maps its own.
  releaseProcessTable(allocateProcessTable(6000));
  const auto samplePages = [](ProcessRecord **records) {
    TableView table = {};
    errorOutputOf([&table] { table = getPIDList(); });
    *records = table.records;
    constexpr size_t kSpare = 19;
    return presentPages(table.records, static_cast<size_t>(table.count) + kSpare);
  };
  ProcessRecord *first = nullptr;
  const size_t pages = samplePages(&first);
  EXPECT_GT(pages, 0u);
  releaseProcessTable(first);
  ProcessRecord *second = nullptr;
  EXPECT_EQ(samplePages(&second), pages);
  EXPECT_EQ(second, first) << "else this shows nothing";
  releaseProcessTable(second);
}

TEST_F(UntouchedPages, StayUntouchedBySamplingAndSorting) {
  constexpr int32_t kProcesses = 300;
  std::mt19937 random(7);
  for (int32_t pid = 1; pid <= kProcesses; pid++) {
    sampled::Process &process = machine.add(pid, "daemon");
    for (uint64_t i = 0; i < random() % 4; i++)
      SampledMachine::addThread(process, 0x1000 + i, static_cast<int32_t>(random() % 900));
    for (uint32_t i = 0; i < random() % 6; i++)
      SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
  }
  errorOutputOf([] { setCurrentTable(getPIDList()); });
  ProcessRecord *table = load(g_process_information);
  const size_t records = static_cast<size_t>(load(num_procs)) + 1;
  const size_t sampledPages = presentPages(table, records);
  // Of some seventeen pages of a record, those of its figures and of the first slots.
  EXPECT_LT(sampledPages, pagesOf(records) / 2);
  for (const Comparator comparator : {sort_pid, sort_cpu_usage, sort_numfds, sort_name}) {
    doSort(comparator);
    EXPECT_LE(presentPages(table, records), sampledPages + records);
    EXPECT_LT(presentPages(table, records), pagesOf(records) / 2);
  }
  EXPECT_EQ(findProcessInformationByPid({table, load(num_procs)}, 17)->numThreads,
            machine.processes[17].info.ptinfo.pti_threadnum);
}

}  // namespace
