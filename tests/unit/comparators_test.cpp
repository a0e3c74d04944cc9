#include "columns/comparators.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string_view>

#include "nstat/accounting.h"
#include "state/display.h"
#include "tests/unit/display_state.h"

namespace {

using namespace sondex;

class Comparators : public testing::Test {
 protected:
  DisplayStateGuard guard;
  std::unique_ptr<ProcessRecord> a = std::make_unique<ProcessRecord>();
  std::unique_ptr<ProcessRecord> b = std::make_unique<ProcessRecord>();

  // `a` comes first by default, and last when reversed, whichever way round they are compared.
  void expectFirst(Comparator compare) const {
    EXPECT_EQ(compare(0, a.get(), b.get()), -1);
    EXPECT_EQ(compare(0, b.get(), a.get()), 1);
    EXPECT_EQ(compare(1, a.get(), b.get()), 1);
    EXPECT_EQ(compare(1, b.get(), a.get()), -1);
    EXPECT_EQ(compare(-7, a.get(), b.get()), 1);
  }

  void expectTie(Comparator compare, int answer) const {
    EXPECT_EQ(compare(0, a.get(), b.get()), answer);
    EXPECT_EQ(compare(0, b.get(), a.get()), answer);
    EXPECT_EQ(compare(1, a.get(), b.get()), -answer);
    EXPECT_EQ(compare(1, b.get(), a.get()), -answer);
  }
};

struct KeyCase {
  const char *name;
  Comparator compare;
  std::function<void(ProcessRecord &, int)> setKey;
};

void PrintTo(const KeyCase &row, std::ostream *out) {
  *out << row.name;
}

class DescendingComparators : public Comparators, public testing::WithParamInterface<KeyCase> {};

TEST_P(DescendingComparators, LargerKeyFirst) {
  const KeyCase &row = GetParam();
  for (const auto &[larger, smaller] : {std::pair{2, 1}, {1, 0}, {100, 99}, {120, 7}}) {
    SCOPED_TRACE(larger);
    row.setKey(*a, larger);
    row.setKey(*b, smaller);
    expectFirst(row.compare);
  }
}

TEST_P(DescendingComparators, EqualKeysAreNeverCalledEqual) {
  const KeyCase &row = GetParam();
  expectTie(row.compare, 1);
  row.setKey(*a, 5);
  row.setKey(*b, 5);
  expectTie(row.compare, 1);
}

TEST_P(DescendingComparators, LooksAtItsKeyOnly) {
  const KeyCase &row = GetParam();
  std::memset(static_cast<void *>(a.get()), 0, sizeof *a);
  std::memset(static_cast<void *>(b.get()), 0x11, sizeof *b);
  row.setKey(*a, 100);
  row.setKey(*b, 99);
  expectFirst(row.compare);
}

const KeyCase kDescending[] = {
    {"pid", sort_pid,
     [](ProcessRecord &r, int key) { r.taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(key); }},
    {"ppid", sort_ppid,
     [](ProcessRecord &r, int key) { r.taskAllInfo.pbsd.pbi_ppid = static_cast<uint32_t>(key); }},
    {"uid", sort_uid,
     [](ProcessRecord &r, int key) { r.taskAllInfo.pbsd.pbi_uid = static_cast<uint32_t>(key); }},
    {"tty", sort_tty,
     [](ProcessRecord &r, int key) { r.taskAllInfo.pbsd.e_tdev = static_cast<uint32_t>(key); }},
    {"priority", sort_priority,
     [](ProcessRecord &r, int key) { r.taskAllInfo.ptinfo.pti_priority = key; }},
    {"numthreads", sort_numthreads,
     [](ProcessRecord &r, int key) { r.taskAllInfo.ptinfo.pti_threadnum = key; }},
    {"csw", sort_csw, [](ProcessRecord &r, int key) { r.taskAllInfo.ptinfo.pti_csw = key; }},
    {"numfds", sort_numfds, [](ProcessRecord &r, int key) { r.numFDs = key; }},
    {"vsize", sort_vsize,
     [](ProcessRecord &r, int key) {
       r.taskAllInfo.ptinfo.pti_virtual_size = static_cast<uint64_t>(key) << 56;
     }},
    {"rsize", sort_rsize,
     [](ProcessRecord &r, int key) {
       r.taskAllInfo.ptinfo.pti_resident_size = static_cast<uint64_t>(key) << 56;
     }},
    {"stime", sort_stime,
     [](ProcessRecord &r, int key) {
       r.taskAllInfo.pbsd.pbi_start_tvsec = static_cast<uint64_t>(key) << 32;
     }},
    {"time", sort_time,
     [](ProcessRecord &r, int key) {
       // The system time counts as much: it decides between neighbours here.
       r.taskAllInfo.ptinfo.pti_total_user = 1000;
       r.taskAllInfo.ptinfo.pti_total_system = static_cast<uint64_t>(key) << 40;
     }},
    {"cpu_usage", sort_cpu_usage, [](ProcessRecord &r, int key) { r.totalCPU = key; }},
    {"coalition", sort_coalition,
     [](ProcessRecord &r, int key) {
       r.coalitionInfo.coalition_id[0] = static_cast<uint64_t>(key) << 56;
     }},
    {"sandbox", sort_sandbox, [](ProcessRecord &r, int key) { r.sandboxed = key; }},
    {"memstatus", sort_memstatus, [](ProcessRecord &r, int key) { r.jetsamPriority = key; }},
    {"memlimit", sort_memlimit, [](ProcessRecord &r, int key) { r.jetsamLimit = key; }},
    {"cs", sort_cs,
     [](ProcessRecord &r, int key) {
       r.csStatus[0] = static_cast<char>(key);
       r.csStatus[1] = static_cast<char>(127 - key);
     }},
    {"io_rusage", sort_io_rusage,
     [](ProcessRecord &r, int key) {
       r.rusage.ri_diskio_bytesread = 1000 - static_cast<uint64_t>(key);
       r.rusage.ri_diskio_byteswritten = 2 * static_cast<uint64_t>(key);
     }},
    {"io_rusage_read", sort_io_rusage_read,
     [](ProcessRecord &r, int key) {
       r.rusage.ri_diskio_bytesread = static_cast<uint64_t>(key) << 56;
     }},
    {"io_rusage_written", sort_io_rusage_written,
     [](ProcessRecord &r, int key) {
       r.rusage.ri_diskio_byteswritten = static_cast<uint64_t>(key) << 56;
     }},
};

INSTANTIATE_TEST_SUITE_P(AllKeys, DescendingComparators, testing::ValuesIn(kDescending),
                         [](const testing::TestParamInfo<KeyCase> &row) {
                           return std::string(row.param.name);
                         });

TEST_F(Comparators, NegativeFiguresAreSmall) {
  a->taskAllInfo.ptinfo.pti_priority = 0;
  b->taskAllInfo.ptinfo.pti_priority = -1;
  expectFirst(sort_priority);
  a->jetsamPriority = 0;
  b->jetsamPriority = -1;
  expectFirst(sort_memstatus);
  a->jetsamLimit = 0;
  b->jetsamLimit = -1;
  expectFirst(sort_memlimit);
  a->sandboxed = 0;
  b->sandboxed = -1;
  expectFirst(sort_sandbox);
}

TEST_F(Comparators, SizesCountersAndTimesAreUnsigned) {
  darwin::proc_taskinfo &task = a->taskAllInfo.ptinfo;
  task.pti_virtual_size = task.pti_resident_size = task.pti_total_system = UINT64_MAX;
  a->taskAllInfo.pbsd.pbi_start_tvsec = UINT64_MAX;
  a->coalitionInfo.coalition_id[0] = UINT64_MAX;
  a->rusage.ri_diskio_bytesread = a->rusage.ri_diskio_byteswritten = UINT64_MAX;
  // As in a process without figures: the sum of both wraps, and is still the largest.
  for (const Comparator compare : {sort_vsize, sort_rsize, sort_time, sort_stime, sort_coalition,
                                   sort_io_rusage, sort_io_rusage_read, sort_io_rusage_written}) {
    expectFirst(compare);
  }
}

TEST_F(Comparators, UserIDsAreUnsigned) {
  a->taskAllInfo.pbsd.pbi_uid = 4294967294u;
  b->taskAllInfo.pbsd.pbi_uid = 501;
  expectFirst(sort_uid);
}

TEST_F(Comparators, TimesThatDontFitSaturate) {
  a->taskAllInfo.ptinfo.pti_total_user = UINT64_MAX - 1;
  a->taskAllInfo.ptinfo.pti_total_system = 100;
  b->taskAllInfo.ptinfo.pti_total_user = UINT64_MAX - 1;
  expectFirst(sort_time);
}

TEST_F(Comparators, CodeSigningTextIsSignedBytes) {
  a->csStatus[0] = '\0';
  b->csStatus[0] = '\x80';
  expectFirst(sort_cs);
  b->csStatus[0] = '\xFF';
  expectFirst(sort_cs);
  a->csStatus[0] = 'S';
  b->csStatus[0] = 'N';
  expectFirst(sort_cs);
}

TEST_F(Comparators, SixtyFourBitProcessesFirst) {
  a->taskAllInfo.pbsd.pbi_flags = 0x10;
  b->taskAllInfo.pbsd.pbi_flags = 0xFFFFFFEF;
  expectFirst(sort_bitness);
  b->taskAllInfo.pbsd.pbi_flags = 0x11;
  expectTie(sort_bitness, 1);
}

TEST_F(Comparators, DiskCountersInDeltaModeAreGrowthSinceTheSampleBefore) {
  store(g_Delta, 1);
  a->rusage.ri_diskio_bytesread = 1000;
  a->previousRusage.ri_diskio_bytesread = 400;
  b->rusage.ri_diskio_bytesread = 9000;
  b->previousRusage.ri_diskio_bytesread = 8500;
  expectFirst(sort_io_rusage_read);
  a->rusage.ri_diskio_byteswritten = 70;
  b->rusage.ri_diskio_byteswritten = 900;
  b->previousRusage.ri_diskio_byteswritten = 831;
  expectFirst(sort_io_rusage_written);
  // The same growth.
  b->previousRusage.ri_diskio_bytesread = 8400;
  expectTie(sort_io_rusage_read, 1);
  b->previousRusage.ri_diskio_byteswritten = 830;
  expectTie(sort_io_rusage_written, 1);

  store(g_Delta, 0);
  std::swap(a, b);
  expectFirst(sort_io_rusage_read);
  expectFirst(sort_io_rusage_written);
}

TEST_F(Comparators, DiskGrowthIsUnsigned) {
  store(g_Delta, 1);
  a->previousRusage.ri_diskio_bytesread = 1;
  b->rusage.ri_diskio_bytesread = 1000000;
  expectFirst(sort_io_rusage_read);
  a->previousRusage.ri_diskio_byteswritten = 1;
  b->rusage.ri_diskio_byteswritten = 1000000;
  expectFirst(sort_io_rusage_written);
}

TEST_F(Comparators, TotalOfBothDiskCountersKnowsNoDelta) {
  store(g_Delta, 1);
  a->rusage.ri_diskio_bytesread = 10;
  a->previousRusage.ri_diskio_bytesread = 10;
  b->rusage.ri_diskio_byteswritten = 9;
  expectFirst(sort_io_rusage);
}

class NameComparator : public Comparators {
 protected:
  static void setName(ProcessRecord &record, std::string_view name) {
    char(&field)[16] = record.taskAllInfo.pbsd.pbi_comm;
    std::memset(field, 0, sizeof field);
    std::memcpy(field, name.data(), name.size());
  }
  int compare(int32_t reverse, std::string_view first, std::string_view second) {
    setName(*a, first);
    setName(*b, second);
    return sort_name(reverse, a.get(), b.get());
  }
};

TEST_F(NameComparator, DescendingWithoutRegardToCase) {
  for (const auto &[first, second] : {std::pair{"beta", "alpha"},
                                      {"Beta", "alpha"},
                                      {"beta", "ALPHA"},
                                      {"ab", "a"},
                                      {"a", ""},
                                      {"launchd2", "launchd"}}) {
    EXPECT_LT(compare(0, first, second), 0) << first << ' ' << second;
    EXPECT_GT(compare(0, second, first), 0) << first << ' ' << second;
    EXPECT_GT(compare(1, first, second), 0) << first << ' ' << second;
    EXPECT_LT(compare(1, second, first), 0) << first << ' ' << second;
  }
}

TEST_F(NameComparator, OnlyThisOneAnswersEqual) {
  EXPECT_EQ(compare(0, "SpringBoard", "springboard"), 0);
  EXPECT_EQ(compare(1, "SpringBoard", "springboard"), 0);
  EXPECT_EQ(compare(0, "", ""), 0);
}

TEST_F(NameComparator, NamesThatFillTheirFieldEndThere) {
  // What follows the name in the record must not count.
  a->taskAllInfo.pbsd.pbi_name[0] = 'a';
  b->taskAllInfo.pbsd.pbi_name[0] = 'z';
  EXPECT_EQ(compare(0, "sixteen-letters!", "SIXTEEN-LETTERS!"), 0);
  EXPECT_LT(compare(0, "sixteen-letters!", "sixteen-letters"), 0);
}

class StatusComparator : public Comparators {
 protected:
  static void setStatus(ProcessRecord &record, uint32_t status, int32_t threads) {
    record.taskAllInfo.pbsd.pbi_status = status;
    record.taskAllInfo.ptinfo.pti_numrunning = threads;
  }
};

struct Status {
  uint32_t status;
  int32_t running;
};

TEST_F(StatusComparator, RunningZombieStoppedSleepingRunnableIdle) {
  const Status order[] = {{3, 1}, {5, 0}, {4, 0}, {3, 0}, {2, 0}, {1, 0}, {0, 0}};
  for (size_t i = 0; i < sizeof order / sizeof order[0]; i++) {
    for (size_t j = i + 1; j < sizeof order / sizeof order[0]; j++) {
      SCOPED_TRACE(testing::Message() << i << " before " << j);
      setStatus(*a, order[i].status, order[i].running);
      setStatus(*b, order[j].status, order[j].running);
      expectFirst(sort_status);
    }
  }
}

TEST_F(StatusComparator, EqualKeys) {
  for (const Status &status : {Status{1, 0}, {3, 0}, {5, 0}, {0, 0}}) {
    setStatus(*a, status.status, status.running);
    setStatus(*b, status.status, status.running);
    expectTie(sort_status, -1);
  }
  // Running threads make the status of no matter, and their number too.
  setStatus(*a, 5, 1);
  setStatus(*b, 1, 17);
  expectTie(sort_status, -1);
  // Status 9 has the key of a running process, and those above come before.
  setStatus(*b, 9, 0);
  expectTie(sort_status, -1);
  setStatus(*b, 12, 0);
  std::swap(a, b);
  expectFirst(sort_status);
}

class NetworkComparators : public Comparators {
 protected:
  NetworkComparators() {
    a->taskAllInfo.pbsd.pbi_pid = 100;
    b->taskAllInfo.pbsd.pbi_pid = 200;
  }
  static void file(int source, int32_t pid, uint64_t received, uint64_t sent) {
    store(process_pid_info[source], pid);
    store(process_ntstat_info[source].received, received);
    store(process_ntstat_info[source].sent, sent);
  }
};

TEST_F(NetworkComparators, SmallestFirst) {
  file(1, 100, 10, 2000);
  file(2, 200, 20, 1000);
  expectFirst(sort_netrx);
  std::swap(a, b);
  expectFirst(sort_nettx);
}

TEST_F(NetworkComparators, SumsOfAllSourcesCount) {
  file(1, 100, 10, 10);
  file(2, 200, 6, 7);
  file(3, 200, 5, 4);
  expectFirst(sort_netrx);
  expectFirst(sort_nettx);
}

TEST_F(NetworkComparators, EqualKeys) {
  file(1, 100, 33, 44);
  file(2, 200, 33, 44);
  expectTie(sort_netrx, -1);
  expectTie(sort_nettx, -1);
}

TEST_F(NetworkComparators, ProcessesWithoutCountersHaveZero) {
  expectTie(sort_netrx, -1);
  expectTie(sort_nettx, -1);
  file(2, 200, 1, 1);
  expectFirst(sort_netrx);
  expectFirst(sort_nettx);
  file(2, 200, 0, 0);
  expectTie(sort_netrx, -1);
  expectTie(sort_nettx, -1);
}

TEST_F(NetworkComparators, SourcesWithoutAnOwnerAreNotTheKernelTasks) {
  a->taskAllInfo.pbsd.pbi_pid = 0;
  file(1, 0, 50, 60);
  file(2, 200, 1, 1);
  expectFirst(sort_netrx);
  expectFirst(sort_nettx);
}

TEST_F(NetworkComparators, FiguresAreCutToSigned32Bits) {
  // 2 GiB is negative, 4 GiB is nothing.
  file(1, 100, 0x80000000, 0xFFFFFFFF);
  expectFirst(sort_netrx);
  expectFirst(sort_nettx);
  file(1, 100, 0x100000000, 0x100000000);
  expectTie(sort_netrx, -1);
  expectTie(sort_nettx, -1);
  file(1, 100, 0x100000005, 0x700000005);
  file(2, 200, 6, 6);
  expectFirst(sort_netrx);
  expectFirst(sort_nettx);
  file(2, 200, 0x7FFFFFFF, 0x7FFFFFFF);
  expectFirst(sort_netrx);
  expectFirst(sort_nettx);
}

}  // namespace
