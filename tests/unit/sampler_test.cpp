#include "proc/sampler.h"

#include <sys/resource.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

#include "darwin/libproc.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::Asked;
using sampled::errorOutputOf;
using sampled::kPid;
using sampled::Process;
using sampled::SampledMachine;
using sampled::SampledTest;
using sampled::Variable;

constexpr char kGone[] = "proc_pidinfo: No such process\n";

// What the last call of the usage function below was asked, and its result.
int g_usageFlavour = -1;
int g_usageResult = 0;

int recordUsage(int, int flavour, darwin::rusage_info_t *) {
  g_usageFlavour = flavour;
  return g_usageResult;
}

bool isAll(const void *bytes, size_t size, unsigned char value) {
  const unsigned char *byte = static_cast<const unsigned char *>(bytes);
  return std::all_of(byte, byte + size, [value](unsigned char b) { return b == value; });
}

TEST(ProcessRecordLayout, HoldsItsFieldsInOrderAndSize) {
  struct Field {
    const char *name;
    size_t offset, size, expectedSize;
  };
#define FIELD(name, expected) \
  { #name, offsetof(ProcessRecord, name), sizeof(ProcessRecord::name), expected }
  const Field kFields[] = {
      FIELD(taskAllInfo, 232),     FIELD(workqueueInfo, 16),  FIELD(numFDs, 4),
      FIELD(fds, 1024 * 8),        FIELD(numThreads, 4),      FIELD(fdDetails, 8),
      FIELD(threadIDs, 512 * 8),   FIELD(threads, 512 * 112), FIELD(totalCPU, 4),
      FIELD(rusage, 232),          FIELD(coalitionInfo, 40),  FIELD(path, 257),
      FIELD(jetsamPriority, 4),    FIELD(jetsamLimit, 4),     FIELD(csStatus, 4),
      FIELD(sandboxed, 4),         FIELD(displayed, 4),       FIELD(previousRusage, 232),
      FIELD(lastNetRX, 8),         FIELD(lastNetTX, 8),       FIELD(decompressionsStash, 4),
      FIELD(compressionsStash, 4),
  };
#undef FIELD
  size_t end = 0;
  for (const Field &field : kFields) {
    SCOPED_TRACE(field.name);
    EXPECT_EQ(field.size, field.expectedSize);
    EXPECT_GE(field.offset, end);
    end = field.offset + field.size;
  }
}

class SampledRecord : public SampledTest {
 protected:
  SampledRecord() : record(static_cast<ProcessRecord *>(std::calloc(1, sizeof(ProcessRecord)))) {}
  ~SampledRecord() override {
    releaseRecord(record);
    std::free(record);
  }

  std::string sample(int32_t pid = kPid, const JetsamList *list = nullptr) {
    return errorOutputOf([&] { EXPECT_EQ(getProcInfo(pid, record, list), 0); });
  }

  // A table of one record of `pid` as the previous one.
  ProcessRecord *givePrevious(int32_t pid) {
    ProcessRecord *previous = allocateProcessTable(1);
    previous->taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(pid);
    store(g_previous_process_information, previous);
    store(previous_num_procs, 1);
    return previous;
  }

  const uint8_t *slot(int32_t i) const {
    return record->fdDetails + static_cast<size_t>(i) * kFDDetailSize;
  }

  int64_t offsetInSlot(int32_t i) const {
    darwin::proc_fileinfo info;
    std::memcpy(&info, slot(i), sizeof info);
    return info.fi_offset;
  }

  ProcessRecord *record;
};

TEST_F(SampledRecord, HoldsWhatTheKernelAnswers) {
  Process &process = machine.add(kPid, "backboardd");
  process.info.pbsd.pbi_ppid = 1;
  process.info.ptinfo.pti_resident_size = 4096;
  process.queue = {7, 1, 2, 4};
  SampledMachine::addThread(process, 0x7000, 12);
  SampledMachine::addThread(process, 0x7100, 30);
  SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
  process.coalitions.coalition_id[0] = 55;
  process.sandboxed = 1;
  g_OsVer = 11;
  EXPECT_EQ(sample(), "");
  EXPECT_EQ(std::memcmp(&record->taskAllInfo, &process.info, 232), 0);
  EXPECT_EQ(record->workqueueInfo.pwq_nthreads, 7u);
  EXPECT_EQ(record->workqueueInfo.pwq_state, 4u);
  EXPECT_EQ(record->numThreads, 2);
  EXPECT_EQ(record->threadIDs[1], 0x7100u);
  EXPECT_EQ(record->threads[1].pth_user_time, 0x7100u);
  EXPECT_EQ(record->totalCPU, 42);
  EXPECT_EQ(record->numFDs, 1);
  EXPECT_EQ(record->coalitionInfo.coalition_id[0], 55u);
  EXPECT_EQ(record->sandboxed, 1);
}

TEST_F(SampledRecord, LeavesAloneWhatIsNotTheSamplers) {
  machine.add(kPid, "a");
  sample();
  EXPECT_STREQ(record->path, "");
  EXPECT_STREQ(record->csStatus, "");
  EXPECT_EQ(record->displayed, 0);
  EXPECT_EQ(record->lastNetRX, 0u);
  EXPECT_EQ(record->decompressionsStash, 0u);
}

TEST_F(SampledRecord, AsksInOrder) {
  Process &process = machine.add(kPid, "a");
  SampledMachine::addThread(process, 0x7000, 1);
  SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  g_OsVer = 11;
  sample();
  EXPECT_EQ(machine.asked, (std::vector<Asked>{{"taskAllInfo", kPid, 0},
                                               {"resourceUsage", kPid, 0},
                                               {"workQueue", kPid, 0},
                                               {"threadHandles", kPid, 0},
                                               {"threadInfo", kPid, 0x7000},
                                               {"descriptors", kPid, 128},
                                               {"pipeDescriptor", kPid, 0},
                                               {"coalition", kPid, 0},
                                               {"sandboxCheck", kPid, 0}}));
}

TEST_F(SampledRecord, OfAGoneProcessIsZeroAndIsReported) {
  EXPECT_EQ(sample(), kGone);
  EXPECT_TRUE(isAll(&record->taskAllInfo, sizeof record->taskAllInfo, 0));
  EXPECT_EQ(record->numThreads, 0);
  EXPECT_EQ(record->numFDs, 0);
  EXPECT_EQ(record->totalCPU, 0);
  EXPECT_EQ(pidOf(record), 0);
  EXPECT_EQ(machine.timesAsked("workQueue"), 1u) << "sampling goes on";
  EXPECT_EQ(machine.timesAsked("sandboxCheck"), 1u);
}

TEST_F(SampledRecord, RefusedOneIsReportedWithTheKernelsReason) {
  machine.add(kPid, "a").sandboxed = 1;
  machine.refusals["taskAllInfo"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(sample(), "proc_pidinfo: Operation not permitted\n");
  EXPECT_EQ(record->sandboxed, 1) << "the other questions are still asked";
}

TEST_F(SampledRecord, OfPidMinusOneFailsWithoutAnythingElse) {
  EXPECT_EQ(sample(-1), kGone);
  EXPECT_EQ(pidOf(record), 0);
  EXPECT_STREQ(record->taskAllInfo.pbsd.pbi_comm, "");
}

TEST_F(SampledRecord, ProcessThatVanishesInBetweenLeavesTheRest) {
  Process &process = machine.add(kPid, "shortlived");
  process.queue.pwq_nthreads = 7;
  SampledMachine::addThread(process, 0x7000, 100);
  SampledMachine::addThread(process, 0x7100, 100);
  SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_SOCKET);
  process.coalitions.coalition_id[0] = 55;
  process.sandboxed = 1;
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  g_OsVer = 11;
  for (int answered = 0; answered <= 10; answered++) {
    SCOPED_TRACE(answered);
    releaseRecord(record);
    std::memset(record, 0, sizeof *record);
    process.questionsLeft = answered;
    EXPECT_EQ(sample(), answered >= 1 ? "" : kGone);
    EXPECT_STREQ(record->taskAllInfo.pbsd.pbi_comm, answered >= 1 ? "shortlived" : "");
    EXPECT_EQ(record->numThreads, answered >= 1 ? 2 : 0);
    EXPECT_EQ(record->rusage.ri_pageins, answered >= 2 ? 0 : kUsageUnknown);
    EXPECT_EQ(record->workqueueInfo.pwq_nthreads, answered >= 3 ? 7u : 0u);
    EXPECT_EQ(record->threadIDs[1], answered >= 4 ? 0x7100u : 0u);
    EXPECT_EQ(record->totalCPU, answered >= 6 ? 200 : answered >= 5 ? 100 : 0);
    EXPECT_EQ(record->threads[1].pth_user_time, answered >= 6 ? 0x7100u : 0u);
    EXPECT_EQ(record->numFDs, answered >= 7 ? 1 : 0);
    EXPECT_EQ(record->fdDetails != nullptr, answered >= 7);
    if (record->fdDetails != nullptr) {
      EXPECT_EQ(isAll(slot(0), kFDDetailSize, 0), answered < 8) << "of its detail";
    }
    EXPECT_EQ(record->coalitionInfo.coalition_id[0], answered >= 9 ? 55u : 0u);
    EXPECT_EQ(record->sandboxed, answered >= 10 ? 1 : -1);
  }
}

TEST_F(SampledRecord, UsageIsUnknownWithoutTheCall) {
  machine.add(kPid, "a").usage.ri_diskio_bytesread = 5;
  givePrevious(kPid)->rusage.ri_diskio_bytesread = 3;
  sample();
  EXPECT_TRUE(isAll(&record->rusage, sizeof record->rusage, 0xff));
  EXPECT_TRUE(isAll(&record->previousRusage, sizeof record->previousRusage, 0));
  EXPECT_EQ(g_Total_Rusage.ri_diskio_bytesread, 0u);
}

TEST_F(SampledRecord, UsageIsUnknownWhenTheCallFails) {
  machine.add(kPid, "a");
  machine.refusals["resourceUsage"] = darwin::DARWIN_EPERM;
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  givePrevious(kPid)->rusage.ri_diskio_bytesread = 3;
  EXPECT_EQ(sample(), "");
  EXPECT_TRUE(isAll(&record->rusage, sizeof record->rusage, 0xff));
  EXPECT_TRUE(isAll(&record->previousRusage, sizeof record->previousRusage, 0));
  EXPECT_EQ(g_Total_Rusage.ri_diskio_byteswritten, 0u);
}

TEST_F(SampledRecord, UsageFlavourFollowsTheKernelGeneration) {
  machine.add(kPid, "a");
  proc_pid_rusage_funcptr = &recordUsage;
  g_usageResult = 0;
  const std::pair<int32_t, int> kExpected[] = {{0, 2}, {8, 2}, {9, 2}, {10, 3}, {11, 3}, {15, 3}};
  for (const auto &[generation, flavour] : kExpected) {
    SCOPED_TRACE(generation);
    g_OsVer = generation;
    g_usageFlavour = -1;
    sample();
    EXPECT_EQ(g_usageFlavour, flavour);
  }
}

TEST_F(SampledRecord, UsageResultAboveZeroIsNoFailure) {
  machine.add(kPid, "a");
  proc_pid_rusage_funcptr = &recordUsage;
  givePrevious(kPid)->rusage.ri_pageins = 3;
  g_usageResult = 1;
  sample();
  EXPECT_EQ(record->previousRusage.ri_pageins, 3u);
  record->previousRusage = {};
  g_usageResult = -1;
  sample();
  EXPECT_EQ(record->previousRusage.ri_pageins, 0u);
}

TEST_F(SampledRecord, SecondUsageStructureLeavesTheThirdsFieldsUnknown) {
  Process &process = machine.add(kPid, "a");
  process.usage.ri_diskio_byteswritten = 9;
  process.usage.ri_serviced_system_time = 77;
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  g_OsVer = 9;
  sample();
  EXPECT_EQ(record->rusage.ri_diskio_byteswritten, 9u);
  EXPECT_EQ(record->rusage.ri_serviced_system_time, kUsageUnknown);
  g_OsVer = 10;
  sample();
  EXPECT_EQ(record->rusage.ri_serviced_system_time, 77u);
}

TEST_F(SampledRecord, DiskBytesAreAddedToTheTotals) {
  Process &process = machine.add(kPid, "a");
  process.usage.ri_diskio_bytesread = 1000;
  process.usage.ri_diskio_byteswritten = 30;
  process.usage.ri_pageins = 5;
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  sample();
  sample();
  EXPECT_EQ(g_Total_Rusage.ri_diskio_bytesread, 2000u);
  EXPECT_EQ(g_Total_Rusage.ri_diskio_byteswritten, 60u);
  EXPECT_EQ(g_Total_Rusage.ri_pageins, 0u) << "only the disk counters are summed";
}

TEST_F(SampledRecord, PreviousUsageIsThatOfTheSamePid) {
  machine.add(kPid, "a");
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  givePrevious(kPid)->rusage.ri_diskio_bytesread = 400;
  sample();
  EXPECT_EQ(record->previousRusage.ri_diskio_bytesread, 400u);
}

TEST_F(SampledRecord, PreviousUsageIsZeroForANewProcess) {
  machine.add(kPid, "a").usage.ri_diskio_bytesread = 7;
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  givePrevious(kPid + 1)->rusage.ri_diskio_bytesread = 400;
  sample();
  EXPECT_TRUE(isAll(&record->previousRusage, sizeof record->previousRusage, 0));
  EXPECT_EQ(record->rusage.ri_diskio_bytesread, 7u);
}

TEST_F(SampledRecord, PreviousUsageIsZeroWithoutAPreviousTable) {
  machine.add(kPid, "a").usage.ri_diskio_bytesread = 7;
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  store(previous_num_procs, 5);
  sample();
  EXPECT_TRUE(isAll(&record->previousRusage, sizeof record->previousRusage, 0));
}

TEST_F(SampledRecord, WorkQueueOfPidZeroStaysZero) {
  machine.add(0, "kernel_task").queue = {7, 1, 2, 4};
  EXPECT_EQ(sample(0), "");
  EXPECT_TRUE(isAll(&record->workqueueInfo, sizeof record->workqueueInfo, 0));
  EXPECT_STREQ(record->taskAllInfo.pbsd.pbi_comm, "kernel_task");
}

TEST_F(SampledRecord, ProcessWithoutWorkQueueIsNoFailure) {
  machine.add(kPid, "a").hasQueue = false;
  EXPECT_EQ(sample(), "");
  EXPECT_TRUE(isAll(&record->workqueueInfo, sizeof record->workqueueInfo, 0));
}

TEST_F(SampledRecord, HoldsFiveHundredTwelveThreads) {
  Process &process = machine.add(kPid, "a");
  for (uint64_t i = 0; i < 512; i++) SampledMachine::addThread(process, 0x1000 + i, 2);
  EXPECT_EQ(sample(), "");
  EXPECT_EQ(record->numThreads, 512);
  EXPECT_EQ(record->threadIDs[511], 0x1000u + 511);
  EXPECT_EQ(record->threads[511].pth_user_time, 0x1000u + 511);
  EXPECT_EQ(record->totalCPU, 1024);
}

class TooManyThreads : public SampledRecord, public testing::WithParamInterface<int> {};

TEST_P(TooManyThreads, AreReportedAndNotRead) {
  Process &process = machine.add(kPid, "a");
  for (int i = 0; i < GetParam(); i++)
    SampledMachine::addThread(process, 0x1000 + static_cast<uint64_t>(i), 2);
  EXPECT_EQ(sample(), "PID 123 has more " + std::to_string(GetParam()) + " threads. Crazzzzy\n");
  EXPECT_EQ(record->numThreads, GetParam());
  EXPECT_EQ(machine.timesAsked("threadHandles"), 0u);
  EXPECT_TRUE(isAll(record->threadIDs, sizeof record->threadIDs, 0));
  EXPECT_TRUE(isAll(record->threads, sizeof record->threads, 0));
  EXPECT_EQ(machine.timesAsked("sandboxCheck"), 1u) << "sampling goes on";
}

INSTANTIATE_TEST_SUITE_P(Counts, TooManyThreads, testing::Values(513, 600));

TEST_F(SampledRecord, TooManyThreadsOfPidZeroAreNotReported) {
  machine.add(0, "kernel_task").info.ptinfo.pti_threadnum = 600;
  EXPECT_EQ(sample(0), "");
  EXPECT_EQ(record->numThreads, 600);
  EXPECT_EQ(machine.timesAsked("threadHandles"), 0u);
}

TEST_F(SampledRecord, NegativeThreadCountsReadNoThread) {
  Process &process = machine.add(kPid, "a");
  for (const int32_t count : {-1, -300000000, INT32_MIN}) {
    SCOPED_TRACE(count);
    process.info.ptinfo.pti_threadnum = count;
    EXPECT_EQ(sample(), "");
    EXPECT_EQ(record->numThreads, count);
    EXPECT_EQ(record->totalCPU, 0);
  }
  EXPECT_EQ(machine.timesAsked("threadInfo"), 0u);
}

TEST_F(SampledRecord, HugeThreadCountIsReportedAndNotRead) {
  machine.add(kPid, "a").info.ptinfo.pti_threadnum = INT32_MAX;
  EXPECT_EQ(sample(), "PID 123 has more 2147483647 threads. Crazzzzy\n");
  EXPECT_EQ(machine.timesAsked("threadInfo"), 0u);
}

TEST_F(SampledRecord, ThreadThatCantBeReadKeepsItsSlot) {
  Process &process = machine.add(kPid, "a");
  SampledMachine::addThread(process, 0x7000, 10);
  SampledMachine::addThread(process, 0x7100, 20);
  SampledMachine::addThread(process, 0x7200, 30);
  process.threads.erase(0x7100);
  EXPECT_EQ(sample(), "");
  EXPECT_EQ(record->totalCPU, 40);
  EXPECT_TRUE(isAll(&record->threads[1], sizeof record->threads[1], 0));
  EXPECT_EQ(record->threads[2].pth_cpu_usage, 30);
}

TEST_F(SampledRecord, ListShorterThanTheCountLeavesHandlesZero) {
  Process &process = machine.add(kPid, "a");
  SampledMachine::addThread(process, 0x7000, 10);
  process.info.ptinfo.pti_threadnum = 3;
  sample();
  EXPECT_EQ(record->numThreads, 3);
  EXPECT_EQ(record->threadIDs[1], 0u);
  EXPECT_EQ(record->totalCPU, 10);
}

TEST_F(SampledRecord, ListLongerThanTheCountIsCut) {
  Process &process = machine.add(kPid, "a");
  for (uint64_t i = 0; i < 600; i++) SampledMachine::addThread(process, 0x1000 + i, 1);
  process.info.ptinfo.pti_threadnum = 2;
  sample();
  EXPECT_EQ(record->threadIDs[1], 0x1001u);
  EXPECT_EQ(record->threadIDs[2], 0u);
  EXPECT_EQ(record->totalCPU, 2);
}

TEST_F(SampledRecord, ThreadListRefusedLeavesNoShares) {
  Process &process = machine.add(kPid, "a");
  SampledMachine::addThread(process, 0x7000, 10);
  machine.refusals["threadHandles"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(sample(), "");
  EXPECT_EQ(record->threadIDs[0], 0u);
  EXPECT_EQ(record->totalCPU, 0);
}

TEST_F(SampledRecord, ThreadListRefusedForgetsTheFirstThread) {
  Process &process = machine.add(kPid, "a");
  SampledMachine::addThread(process, 0x7000, 10);
  sample();
  machine.refusals["threadHandles"] = darwin::DARWIN_EPERM;
  sample();
  EXPECT_EQ(record->threadIDs[0], 0u);
}

TEST_F(SampledRecord, SharesNeitherOverflowNorFall) {
  Process &process = machine.add(kPid, "a");
  SampledMachine::addThread(process, 0x7000, INT32_MAX);
  SampledMachine::addThread(process, 0x7100, INT32_MAX);
  SampledMachine::addThread(process, 0x7200, INT32_MIN);
  sample();
  EXPECT_EQ(record->totalCPU, INT32_MAX);
}

TEST_F(SampledRecord, SampledTwiceSumsTheSharesAnew) {
  Process &process = machine.add(kPid, "a");
  SampledMachine::addThread(process, 0x7000, 10);
  sample();
  sample();
  EXPECT_EQ(record->totalCPU, 10);
}

TEST_F(SampledRecord, RefreshedHoldsTheNewFiguresOfTheSamePid) {
  Process &process = machine.add(kPid, "before");
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  sample();
  std::strcpy(process.info.pbsd.pbi_comm, "after");
  process.usage.ri_diskio_bytesread = 70;
  SampledMachine::addThread(process, 0x7000, 10);
  SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
  process.sandboxed = 1;
  EXPECT_EQ(errorOutputOf([&] { refreshProcInfo(record); }), "");
  EXPECT_STREQ(record->taskAllInfo.pbsd.pbi_comm, "after");
  EXPECT_EQ(record->rusage.ri_diskio_bytesread, 70u);
  EXPECT_EQ(record->totalCPU, 10);
  EXPECT_EQ(record->numFDs, 1);
  EXPECT_EQ(record->sandboxed, 1);
}

TEST_F(SampledRecord, RefreshedIsOfNoSample) {
  Process &process = machine.add(kPid, "a");
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  sample();
  record->jetsamPriority = 10;
  record->lastNetRX = 4;
  process.usage.ri_diskio_bytesread = 70;
  givePrevious(kPid)->rusage.ri_diskio_bytesread = 400;
  refreshProcInfo(record);
  EXPECT_EQ(g_Total_Rusage.ri_diskio_bytesread, 0u);
  EXPECT_EQ(record->previousRusage.ri_diskio_bytesread, 0u);
  EXPECT_EQ(record->jetsamPriority, 10);
  EXPECT_EQ(record->lastNetRX, 4u);
  EXPECT_EQ(machine.timesAsked("memoryStatusList"), 0u);
}

TEST_F(SampledRecord, RefreshedOfAGoneProcessKeepsWhatItHeld) {
  Process &process = machine.add(kPid, "gone");
  SampledMachine::addThread(process, 0x7000, 10);
  SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
  proc_pid_rusage_funcptr = &darwin::proc_pid_rusage;
  sample();
  process.questionsLeft = 0;
  EXPECT_EQ(errorOutputOf([&] { refreshProcInfo(record); }), kGone);
  EXPECT_EQ(pidOf(record), kPid);
  EXPECT_STREQ(record->taskAllInfo.pbsd.pbi_comm, "gone");
  EXPECT_EQ(record->numThreads, 1);
  EXPECT_EQ(record->totalCPU, 10) << "a slot that can't be read keeps its share";
  EXPECT_EQ(record->rusage.ri_diskio_bytesread, kUsageUnknown);
  EXPECT_EQ(record->numFDs, 0);
  EXPECT_EQ(record->fdDetails, nullptr);
}

class SampledDescriptors : public SampledRecord {
 protected:
  SampledDescriptors() : process(machine.add(kPid, "a")) {}

  Process &process;
};

TEST_F(SampledDescriptors, NoneIsAnEmptyListWithoutDetails) {
  EXPECT_EQ(getProcFDInfo(kPid, record), 0);
  EXPECT_EQ(record->numFDs, 0);
  EXPECT_EQ(record->fdDetails, nullptr);
}

TEST_F(SampledDescriptors, ListThatIsRefusedIsEmpty) {
  SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
  machine.refusals["descriptors"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(getProcFDInfo(kPid, record), 0);
  EXPECT_EQ(record->numFDs, 0);
}

class ManyDescriptors : public SampledDescriptors, public testing::WithParamInterface<int> {};

TEST_P(ManyDescriptors, AreReadUpToOneHundredTwentyEight) {
  for (int i = 0; i < GetParam(); i++)
    SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
  EXPECT_EQ(getProcFDInfo(kPid, record), 0);
  const int32_t expected = std::min(GetParam(), 128);
  ASSERT_EQ(record->numFDs, expected);
  EXPECT_EQ(record->fds[expected - 1].proc_fd, expected - 1);
  EXPECT_EQ(offsetInSlot(expected - 1), expected - 1);
  EXPECT_EQ(machine.timesAsked("pipeDescriptor"), static_cast<size_t>(expected));
  EXPECT_EQ(record->fds[128].proc_fdtype, 0u);
}

INSTANTIATE_TEST_SUITE_P(Counts, ManyDescriptors, testing::Values(1, 127, 128, 129, 600));

TEST_F(SampledDescriptors, AreAskedForByPlaceInTheList) {
  process.descriptors = {{5, darwin::PROX_FDTYPE_PIPE}, {9, darwin::PROX_FDTYPE_PIPE}};
  process.open = {{0, darwin::PROX_FDTYPE_PIPE}, {9, darwin::PROX_FDTYPE_PIPE}};
  EXPECT_EQ(getProcFDInfo(kPid, record), 0);
  EXPECT_EQ(record->fds[0].proc_fd, 5);
  EXPECT_EQ(reinterpret_cast<const darwin::proc_fileinfo *>(slot(0))->fi_type, 6);
  EXPECT_EQ(offsetInSlot(0), 0);
  EXPECT_TRUE(isAll(slot(1), kFDDetailSize, 0)) << "number 1 is not open";
  EXPECT_EQ(machine.asked.back(), (Asked{"pipeDescriptor", kPid, 1}));
}

TEST_F(SampledDescriptors, DetailThatFailsLeavesItsSlotAndGoesOn) {
  for (int i = 0; i < 3; i++) SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_SOCKET);
  process.open[1] = darwin::PROX_FDTYPE_PIPE;
  EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(getProcFDInfo(kPid, record), 0); }), "");
  EXPECT_EQ(record->numFDs, 3);
  EXPECT_TRUE(isAll(slot(1), kFDDetailSize, 0));
  EXPECT_EQ(offsetInSlot(2), 2);
}

TEST_F(SampledDescriptors, EachTypeIsAskedForItsOwnDetails) {
  const struct {
    uint32_t type;
    const char *question;
  } kRows[] = {{darwin::PROX_FDTYPE_SOCKET, "socketDescriptor"},
               {darwin::PROX_FDTYPE_KQUEUE, "kqueueEvents"},
               {darwin::PROX_FDTYPE_PIPE, "pipeDescriptor"}};
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.question);
    process.descriptors.clear();
    SampledMachine::addDescriptor(process, row.type);
    machine.asked.clear();
    EXPECT_EQ(getProcFDInfo(kPid, record), 0);
    EXPECT_EQ(machine.asked,
              (std::vector<Asked>{{"descriptors", kPid, 128}, {row.question, kPid, 0}}));
  }
}

TEST_F(SampledDescriptors, DetailsLargerThanASlotAreRefusedByTheKernel) {
  for (const uint32_t type :
       {darwin::PROX_FDTYPE_VNODE, darwin::PROX_FDTYPE_PSHM, darwin::PROX_FDTYPE_PSEM}) {
    SCOPED_TRACE(type);
    process.descriptors.clear();
    SampledMachine::addDescriptor(process, type);
    errno = 0;
    EXPECT_EQ(getProcFDInfo(kPid, record), 0);
    EXPECT_EQ(errno, darwin::DARWIN_ENOMEM);
    EXPECT_EQ(record->numFDs, 1);
    EXPECT_TRUE(isAll(slot(0), kFDDetailSize, 0));
  }
}

TEST_F(SampledDescriptors, EventsOfAKqueueFillTheirSlotAndNoMore) {
  process.events = 100;
  SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_KQUEUE);
  SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
  process.open.erase(1);
  EXPECT_EQ(getProcFDInfo(kPid, record), 0);
  const size_t whole = kFDDetailSize / sizeof(darwin::kevent_extinfo);
  EXPECT_TRUE(isAll(slot(0), whole * sizeof(darwin::kevent_extinfo), 0x5a));
  EXPECT_TRUE(isAll(slot(1), kFDDetailSize, 0));
}

TEST_F(SampledDescriptors, UnhandledTypeEndsTheDetails) {
  for (const uint32_t type : {0u, 7u, 8u, 9u, 10u, 11u, 0xffffffffu}) {
    SCOPED_TRACE(type);
    process.descriptors.clear();
    SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
    SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
    SampledMachine::addDescriptor(process, type);
    SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
    EXPECT_EQ(getProcFDInfo(kPid, record), -1);
    EXPECT_EQ(record->numFDs, 4);
    EXPECT_EQ(offsetInSlot(1), 1);
    EXPECT_TRUE(isAll(slot(2), kFDDetailSize, 0));
    EXPECT_TRUE(isAll(slot(3), kFDDetailSize, 0));
  }
}

TEST_F(SampledDescriptors, UnhandledTypeDoesNotStopTheSample) {
  SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_FSEVENTS);
  process.sandboxed = 1;
  EXPECT_EQ(sample(), "");
  EXPECT_EQ(record->sandboxed, 1);
}

TEST_F(SampledDescriptors, ReadAgainReplaceTheDetails) {
  for (int i = 0; i < 100; i++) SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_PIPE);
  EXPECT_EQ(getProcFDInfo(kPid, record), 0);
  process.descriptors.clear();
  EXPECT_EQ(getProcFDInfo(kPid, record), 0);
  EXPECT_EQ(record->fdDetails, nullptr);
}

class SampledCoalition : public SampledRecord {
 protected:
  SampledCoalition() { machine.add(kPid, "a").coalitions = {{55, 66}, 1, 2, 3}; }
};

TEST_F(SampledCoalition, OfKernelsBeforeElevenIsAskedWithLessThanTheyWantNow) {
  for (const int32_t generation : {0, 9, 10}) {
    g_OsVer = generation;
    EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(getProcCoalitionInfo(kPid, record), 0); }), "");
    EXPECT_TRUE(isAll(&record->coalitionInfo, sizeof record->coalitionInfo, 0));
  }
}

TEST_F(SampledCoalition, HasBothIdentifiersFromElevenOn) {
  Variable debug("ZDEBUG", "1");
  for (const int32_t generation : {11, 15}) {
    g_OsVer = generation;
    record->coalitionInfo = {};
    EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(getProcCoalitionInfo(kPid, record), 0); }), "");
    EXPECT_EQ(record->coalitionInfo.coalition_id[0], 55u);
    EXPECT_EQ(record->coalitionInfo.coalition_id[1], 66u);
    EXPECT_EQ(record->coalitionInfo.reserved3, 3u);
  }
}

TEST_F(SampledCoalition, FailureIsSaidOnlyWhenDebugging) {
  g_OsVer = 11;
  machine.refusals["coalition"] = darwin::DARWIN_EPERM;
  const auto ask = [&] { EXPECT_EQ(getProcCoalitionInfo(kPid, record), 0); };
  {
    Variable debug("ZDEBUG", nullptr);
    EXPECT_EQ(errorOutputOf(ask), "");
  }
  Variable debug("ZDEBUG", "1");
  EXPECT_EQ(errorOutputOf(ask), "RC: 0\ncoalition: Operation not permitted\n");
  g_OsVer = 10;
  machine.refusals.clear();
  EXPECT_EQ(errorOutputOf(ask), "RC: 0\ncoalition: Cannot allocate memory\n");
}

TEST_F(SampledCoalition, FailureIsSaidOutsideTheScreen) {
  g_OsVer = 11;
  machine.refusals["coalition"] = darwin::DARWIN_EPERM;
  const CursesScreen screen(10, 80);
  const auto ask = [&] { getProcCoalitionInfo(kPid, record); };
  {
    Variable debug("ZDEBUG", nullptr);
    ask();
    EXPECT_FALSE(isendwin());
  }
  Variable debug("ZDEBUG", "1");
  EXPECT_EQ(errorOutputOf(ask), "RC: 0\ncoalition: Operation not permitted\n");
  EXPECT_TRUE(isendwin());
}

TEST_F(SampledRecord, TakesBandAndLimitFromTheList) {
  machine.add(kPid, "a");
  machine.entries = {{9, 1, 0, 100, 0}, {kPid, 10, 0, 250, 0}};
  JetsamList *list = getMemoryStatusPriorityList();
  ASSERT_NE(list, nullptr);
  sample(kPid, list);
  EXPECT_EQ(record->jetsamPriority, 10);
  EXPECT_EQ(record->jetsamLimit, 250);
  std::free(list);
}

TEST_F(SampledRecord, NotInTheListOrWithoutOneHasZeroBandAndLimit) {
  machine.add(kPid, "a");
  machine.entries = {{9, 1, 0, 100, 0}};
  JetsamList *list = getMemoryStatusPriorityList();
  ASSERT_NE(list, nullptr);
  for (const JetsamList *given : {list, static_cast<JetsamList *>(nullptr)}) {
    sample(kPid, given);
    EXPECT_EQ(record->jetsamPriority, 0);
    EXPECT_EQ(record->jetsamLimit, 0);
  }
  std::free(list);
}

TEST_F(SampledRecord, SandboxAnswerIsKeptAsItIs) {
  Process &process = machine.add(kPid, "a");
  for (const int answer : {0, 1, -1}) {
    process.sandboxed = answer;
    sample();
    EXPECT_EQ(record->sandboxed, answer);
  }
}

class PIDList : public SampledTest {
 protected:
  // The table is current afterwards, so that the guard releases it.
  ProcessRecord *take() {
    ProcessRecord *former = load(g_process_information);
    errors = errorOutputOf([] { setCurrentTable(getPIDList()); });
    releaseProcessTable(former);
    return load(g_process_information);
  }

  std::vector<int32_t> sampledPids() const {
    std::vector<int32_t> pids;
    for (const Asked &asked : machine.asked)
      if (asked.question == "taskAllInfo") pids.push_back(asked.pid);
    return pids;
  }

  std::string errors;
};

TEST_F(PIDList, SizeIsTheKernelsEstimate) {
  machine.pids = {3, 2, 1};
  EXPECT_EQ(getArrayOfPIDs(), (3 + 20) * 4);
  machine.refusals["processIDs"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(getArrayOfPIDs(), 0);
}

TEST_F(PIDList, KeepsTheKernelsOrderAndEndsInPidMinusOne) {
  machine.add(30, "c");
  machine.add(10, "a");
  machine.add(20, "b");
  machine.add(0, "kernel_task");
  const ProcessRecord *table = take();
  // The estimate less 19 is one more than there are.
  ASSERT_EQ(load(num_procs), 5);
  EXPECT_EQ(sampledPids(), (std::vector<int32_t>{30, 10, 20, 0, -1}));
  EXPECT_EQ(pidOf(&table[0]), 30);
  EXPECT_STREQ(table[2].taskAllInfo.pbsd.pbi_comm, "b");
  EXPECT_STREQ(table[3].taskAllInfo.pbsd.pbi_comm, "kernel_task");
  EXPECT_EQ(pidOf(&table[4]), 0);
  EXPECT_STREQ(table[4].taskAllInfo.pbsd.pbi_comm, "");
  EXPECT_EQ(errors, kGone);
}

TEST_F(PIDList, HasRoomForOneRecordMore) {
  machine.add(30, "c");
  ProcessRecord *table = take();
  EXPECT_TRUE(isAll(&table[load(num_procs)], sizeof(ProcessRecord), 0));
}

TEST_F(PIDList, NoProcessAtAllIsOneRecordOfPidMinusOne) {
  take();
  EXPECT_EQ(load(num_procs), 1);
  EXPECT_EQ(sampledPids(), (std::vector<int32_t>{-1}));
}

TEST_F(PIDList, UnusedEntriesOfAShrunkSystemArePidMinusOne) {
  for (int32_t pid = 5; pid > 0; pid--) machine.add(pid, "a");
  machine.pidsChange = true;
  machine.laterPids = {5, 4};
  take();
  EXPECT_EQ(load(num_procs), 6);
  EXPECT_EQ(sampledPids(), (std::vector<int32_t>{5, 4, -1, -1, -1, -1}));
}

TEST_F(PIDList, GrownSystemLosesTheEndOfTheList) {
  for (int32_t pid = 3; pid > 0; pid--) machine.add(pid, "a");
  machine.pidsChange = true;
  machine.laterPids = {9, 8, 7, 3, 2, 1};
  take();
  EXPECT_EQ(sampledPids(), (std::vector<int32_t>{9, 8, 7, 3}));
}

TEST_F(PIDList, EstimateCanBeFilledByFarMoreThanItAllowed) {
  machine.add(1, "a");
  machine.pidsChange = true;
  for (int32_t pid = 5000; pid > 0; pid--) machine.laterPids.push_back(pid);
  take();
  EXPECT_EQ(sampledPids(), (std::vector<int32_t>{5000, 4999}));
}

TEST_F(PIDList, TakesTheMemoryStatusListOnlyAsRoot) {
  machine.add(kPid, "a");
  machine.entries = {{kPid, 10, 0, 250, 0}};
  EXPECT_EQ(take()->jetsamPriority, 0);
  EXPECT_EQ(machine.timesAsked("memoryStatusList"), 0u);
  EXPECT_EQ(g_jetsam_list, nullptr);
  g_r00t = 1;
  EXPECT_EQ(take()->jetsamPriority, 10);
  EXPECT_NE(g_jetsam_list, nullptr);
}

TEST_F(PIDList, TakesTheMemoryStatusListAnewEachTime) {
  machine.add(kPid, "a");
  machine.entries = {{kPid, 10, 0, 250, 0}};
  g_r00t = 1;
  take();
  machine.entries[0].priority = 11;
  EXPECT_EQ(take()->jetsamPriority, 11);
  machine.refusals["memoryStatusList"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(take()->jetsamPriority, 0);
  EXPECT_EQ(g_jetsam_list, nullptr);
  EXPECT_EQ(errors, std::string("memorystatus_control: Operation not permitted\n") + kGone);
}

TEST_F(PIDList, MakesATableOfItsOwnEachTime) {
  machine.add(kPid, "a");
  ProcessRecord *first = take();
  store(g_process_information, nullptr);
  EXPECT_NE(take(), first);
  releaseProcessTable(first);
}

TEST_F(PIDList, EndsTheProgramWhenNothingIsListed) {
  machine.refusals["processIDs"] = darwin::DARWIN_EPERM;
  EXPECT_EXIT(getPIDList(), testing::ExitedWithCode(10),
              testing::Eq("proc_listpids: Operation not permitted\n"
                          "Can't continue! Did AAPL add another entitlement?? You might be able to "
                          "fix this by re-signing me..\n"));
}

TEST_F(PIDList, LeavesTheScreenBeforeItEndsTheProgram) {
  machine.refusals["processIDs"] = darwin::DARWIN_EPERM;
  EXPECT_EXIT(
      {
        const CursesScreen screen(10, 80);
        atexit([] {
          if (!isendwin()) _exit(1);
        });
        getPIDList();
      },
      testing::ExitedWithCode(10), testing::StartsWith("proc_listpids: Operation not permitted\n"));
}

TEST_F(PIDList, EndsTheProgramWithoutMemoryForATable) {
  machine.add(kPid, "a");
  EXPECT_EXIT(
      {
        while (allocateProcessTable(1) != nullptr) {
        }
        getPIDList();
      },
      testing::ExitedWithCode(10), "Can't continue! Did AAPL add another entitlement\\?\\?");
}

}  // namespace
