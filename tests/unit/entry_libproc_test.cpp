#include <unistd.h>

#include <cstring>
#include <numeric>

#include "host/darwin/errors.h"
#include "host/darwin/libproc.h"
#include "host/darwin/proc_info.h"
#include "host/darwin/syscalls.h"
#include "tests/unit/entry_machine.h"

namespace darwin {
namespace {

using entry_test::EntryTest;

constexpr int kPid = 77;
constexpr int kUntouched = 12345;

// Room for the largest answer, filled so that a write shows.
struct Room {
  Room() { std::memset(bytes, 0xa5, sizeof bytes); }
  bool untouchedFrom(size_t offset) const {
    for (size_t i = offset; i < sizeof bytes; ++i) {
      if (bytes[i] != 0xa5) return false;
    }
    return true;
  }
  template <typename T>
  T as(size_t offset = 0) const {
    T value;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
  }
  alignas(16) unsigned char bytes[8192];
};

class ListPids : public EntryTest {
 protected:
  ListPids() {
    machine.pids = {30, 20, 10, 0, 99};
    for (const int32_t pid : machine.pids) {
      proc_bsdinfo process{};
      process.pbi_pid = static_cast<uint32_t>(pid);
      process.pbi_pgid = pid >= 20 ? 20 : 1;
      process.pbi_uid = pid == 30 ? 501 : 0;
      process.pbi_ruid = pid == 20 ? 502 : 0;
      process.pbi_ppid = pid == 10 ? 30 : 1;
      process.e_tdev = pid == 20 ? 0x10000003 : 0xffffffff;
      process.pbi_flags = pid == 20 ? PROC_FLAG_CONTROLT : 0;
      machine.processes[pid] = process;
    }
    machine.zombies = {99};
  }

  std::vector<int32_t> list(uint32_t type, uint32_t value) {
    Room room;
    const int bytes = proc_listpids(type, value, room.bytes, sizeof room.bytes);
    std::vector<int32_t> pids(static_cast<size_t>(bytes) / 4);
    for (size_t i = 0; i < pids.size(); ++i) pids[i] = room.as<int32_t>(i * 4);
    EXPECT_TRUE(room.untouchedFrom(static_cast<size_t>(bytes)));
    return pids;
  }
};

TEST_F(ListPids, EstimateHasTwentyToSpareAndLooksAtNeitherSizeNorType) {
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 1, nullptr, 0), (5 + 20) * 4);
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 1, nullptr, -1), (5 + 20) * 4);
  EXPECT_EQ(proc_listpids(PROC_UID_ONLY, 501, nullptr, 4), (5 + 20) * 4);
  EXPECT_EQ(proc_listpids(7, 0, nullptr, 0), (5 + 20) * 4);
}

TEST_F(ListPids, EstimateOfAllBeginsASample) {
  EXPECT_NE(proc_listpids(PROC_ALL_PIDS, 1, nullptr, 0), 0);
  EXPECT_EQ(machine.samples, 1);
  EXPECT_EQ(list(PROC_ALL_PIDS, 1).size(), 5u);
  EXPECT_NE(proc_listpids(PROC_UID_ONLY, 501, nullptr, 0), 0);
  EXPECT_EQ(machine.samples, 1);
}

TEST_F(ListPids, WritesAllInTheMachinesOrder) {
  EXPECT_EQ(list(PROC_ALL_PIDS, 1), (std::vector<int32_t>{30, 20, 10, 0, 99}));
}

TEST_F(ListPids, WritesAsManyAsFit) {
  Room room;
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 0, room.bytes, 15), 12);
  EXPECT_EQ(room.as<int32_t>(8), 10);
  EXPECT_TRUE(room.untouchedFrom(12));
}

TEST_F(ListPids, RefusesABufferThatHoldsNoneBeforeLookingAtTheType) {
  Room room;
  for (const int size : {3, 0, -1}) {
    errno = 0;
    EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 0, room.bytes, size), 0);
    EXPECT_EQ(errno, DARWIN_ENOMEM);
  }
  errno = 0;
  EXPECT_EQ(proc_listpids(7, 0, room.bytes, 3), 0);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_TRUE(room.untouchedFrom(0));
  EXPECT_EQ(machine.asked, 0);
}

TEST_F(ListPids, RefusesUnknownTypes) {
  Room room;
  for (const uint32_t type : {0u, 7u, 0xffffffffu}) {
    errno = 0;
    EXPECT_EQ(proc_listpids(type, 0, room.bytes, 400), 0);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
}

TEST_F(ListPids, FiltersByKind) {
  EXPECT_EQ(list(PROC_PGRP_ONLY, 20), (std::vector<int32_t>{30, 20, 99}));
  EXPECT_EQ(list(PROC_TTY_ONLY, 0x10000003), (std::vector<int32_t>{20}));
  EXPECT_EQ(list(PROC_TTY_ONLY, 0xffffffff), (std::vector<int32_t>{}));
  EXPECT_EQ(list(PROC_UID_ONLY, 501), (std::vector<int32_t>{30}));
  EXPECT_EQ(list(PROC_RUID_ONLY, 502), (std::vector<int32_t>{20}));
  EXPECT_EQ(list(PROC_PPID_ONLY, 30), (std::vector<int32_t>{10}));
}

TEST_F(ListPids, FilteredListIsCutAfterFiltering) {
  Room room;
  EXPECT_EQ(proc_listpids(PROC_PGRP_ONLY, 20, room.bytes, 8), 8);
  EXPECT_EQ(room.as<int32_t>(4), 20);
  EXPECT_TRUE(room.untouchedFrom(8));
}

TEST_F(ListPids, PassesTheMachinesRefusalOn) {
  machine.refusal = DARWIN_ENOTSUP;
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 1, nullptr, 0), 0);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
}

TEST_F(ListPids, ExceptionIsNoMemory) {
  machine.throws = true;
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 1, nullptr, 0), 0);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
}

TEST_F(ListPids, SuccessLeavesErrnoAlone) {
  errno = kUntouched;
  EXPECT_EQ(list(PROC_ALL_PIDS, 0).size(), 5u);
  EXPECT_EQ(errno, kUntouched);
}

class PidInfo : public EntryTest {
 protected:
  PidInfo() {
    proc_bsdinfo process{};
    process.pbi_pid = kPid;
    process.pbi_ppid = 1;
    process.pbi_pgid = 70;
    process.pbi_status = SRUN;
    process.pbi_flags = PROC_FLAG_LP64;
    process.pbi_uid = 501;
    process.pbi_gid = 20;
    process.pbi_ruid = 502;
    process.pbi_rgid = 21;
    process.pbi_svuid = 503;
    process.pbi_svgid = 22;
    std::strcpy(process.pbi_comm, "backboardd");
    machine.processes[kPid] = process;
    machine.task.pti_threadnum = 3;
    machine.path = "/usr/libexec/backboardd";
    machine.queue.pwq_nthreads = 4;
    machine.handles = {0x7000, 0x7100, 0x7200};
    machine.threadNumbers = {901, 902, 903};
    machine.coalitions.coalition_id[0] = 55;
    machine.open = {{0, PROX_FDTYPE_VNODE}, {1, PROX_FDTYPE_PIPE}, {4, PROX_FDTYPE_SOCKET}};
    machine.slots = 64;
  }

  Room room;
};

struct SizedFlavour {
  int flavour;
  uint64_t arg;
  int size;
};

constexpr SizedFlavour kStructures[] = {
    {PROC_PIDTASKALLINFO, 0, 232},      {PROC_PIDTBSDINFO, 0, 136},
    {PROC_PIDTASKINFO, 0, 96},          {PROC_PIDTHREADINFO, 0x7100, 112},
    {PROC_PIDWORKQUEUEINFO, 0, 16},     {PROC_PIDT_SHORTBSDINFO, 0, 64},
    {PROC_PIDTHREADID64INFO, 902, 112}, {PROC_PIDCOALITIONINFO, 0, 40},
    {PROC_PIDREGIONINFO, 0x1000, 96},   {PROC_PIDREGIONPATHINFO, 0x1000, 1272},
};

TEST_F(PidInfo, AnswersExactlyTheSizeOfTheFlavour) {
  for (const SizedFlavour &row : kStructures) {
    SCOPED_TRACE(row.flavour);
    room = Room();
    errno = kUntouched;
    EXPECT_EQ(proc_pidinfo(kPid, row.flavour, row.arg, room.bytes, sizeof room.bytes), row.size);
    EXPECT_TRUE(room.untouchedFrom(static_cast<size_t>(row.size)));
    EXPECT_EQ(errno, kUntouched);
    EXPECT_EQ(proc_pidinfo(kPid, row.flavour, row.arg, room.bytes, row.size), row.size);
  }
}

TEST_F(PidInfo, RefusesLessThanTheSizeOfTheFlavour) {
  const SizedFlavour others[] = {{PROC_PIDLISTFDS, 0, 8},
                                 {PROC_PIDLISTTHREADS, 0, 8},
                                 {PROC_PIDPATHINFO, 0, 1024},
                                 {PROC_PIDLISTTHREADIDS, 0, 8}};
  std::vector<SizedFlavour> all(std::begin(kStructures), std::end(kStructures));
  all.insert(all.end(), std::begin(others), std::end(others));
  for (const SizedFlavour &row : all) {
    SCOPED_TRACE(row.flavour);
    for (const int size : {row.size - 1, 0, -1}) {
      errno = 0;
      EXPECT_EQ(proc_pidinfo(kPid, row.flavour, row.arg, room.bytes, size), 0);
      EXPECT_EQ(errno, DARWIN_ENOMEM);
    }
  }
  EXPECT_TRUE(room.untouchedFrom(0));
  EXPECT_EQ(machine.asked, 0);
}

TEST_F(PidInfo, RefusesFlavoursThatItDoesNotHave) {
  for (const int flavour : {-1, 0, 9, 10, 14, 16, 17, 19, 21, 22, 23, 29, 1000}) {
    SCOPED_TRACE(flavour);
    errno = 0;
    EXPECT_EQ(proc_pidinfo(kPid, flavour, 0, room.bytes, sizeof room.bytes), 0);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
}

TEST_F(PidInfo, ChecksFlavourThenSizeThenProcess) {
  EXPECT_EQ(proc_pidinfo(12, 1000, 0, room.bytes, 0), 0);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(proc_pidinfo(12, PROC_PIDTBSDINFO, 0, room.bytes, 135), 0);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_EQ(proc_pidinfo(12, PROC_PIDTBSDINFO, 0, room.bytes, 136), 0);
  EXPECT_EQ(errno, DARWIN_ESRCH);
  EXPECT_EQ(proc_pidinfo(-1, PROC_PIDTASKALLINFO, 0, room.bytes, 232), 0);
  EXPECT_EQ(errno, DARWIN_ESRCH);
}

TEST_F(PidInfo, WorkQueueOfPidZeroIsRefusedBeforeTheSizeIsLookedAt) {
  EXPECT_EQ(proc_pidinfo(0, PROC_PIDWORKQUEUEINFO, 0, room.bytes, 3), 0);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(machine.asked, 0);
}

TEST_F(PidInfo, RegionsOfPidZeroAreHiddenByLateKernels) {
  constexpr int kFlavours[] = {7, 8, 22, 23, 31};
  for (const host::KernelFamily family : {10002u, 11417u}) {
    machine.family = family;
    for (const int flavour : kFlavours) {
      SCOPED_TRACE(flavour);
      // Before the flavour and the size are looked at.
      for (const int size : {0, static_cast<int>(sizeof room.bytes)}) {
        errno = 0;
        EXPECT_EQ(proc_pidinfo(0, flavour, 0, room.bytes, size), 0);
        EXPECT_EQ(errno, DARWIN_EPERM);
      }
    }
  }
  EXPECT_EQ(machine.asked, 0);
  EXPECT_TRUE(room.untouchedFrom(0));
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDREGIONPATHINFO, 0, room.bytes, 1272), 1272);
  EXPECT_EQ(proc_pidinfo(0, PROC_PIDTASKINFO, 0, room.bytes, 95), 0);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
}

TEST_F(PidInfo, RegionsOfPidZeroAreToldByEarlierKernels) {
  for (const host::KernelFamily family : {4903u, 10001u}) {
    machine.family = family;
    EXPECT_EQ(proc_pidinfo(0, PROC_PIDREGIONINFO, 0, room.bytes, 96), 96);
    EXPECT_EQ(proc_pidinfo(0, PROC_PIDREGIONPATHINFO, 0, room.bytes, 1272), 1272);
    EXPECT_EQ(proc_pidinfo(0, 22, 0, room.bytes, sizeof room.bytes), 0);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
}

TEST_F(PidInfo, OldKernelsKnowNoCoalitions) {
  for (const host::KernelFamily family : {2050u, 2422u, 2781u}) {
    machine.family = family;
    errno = 0;
    EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDCOALITIONINFO, 0, room.bytes, 40), 0);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
  EXPECT_EQ(machine.asked, 0);
}

TEST_F(PidInfo, CoalitionsHaveTheKernelsOwnLength) {
  machine.coalitions.coalition_id[1] = 66;
  for (const host::KernelFamily family : {2782u, 3246u}) {
    machine.family = family;
    room = Room();
    errno = 0;
    EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDCOALITIONINFO, 0, room.bytes, 31), 0);
    EXPECT_EQ(errno, DARWIN_ENOMEM);
    for (const int size : {32, 40}) {
      EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDCOALITIONINFO, 0, room.bytes, size), 32);
      const uint64_t words[] = {55, 0, 0, 0};
      EXPECT_EQ(std::memcmp(room.bytes, words, sizeof words), 0);
      EXPECT_TRUE(room.untouchedFrom(32));
    }
  }
  for (const host::KernelFamily family : {3247u, 7195u}) {
    machine.family = family;
    errno = 0;
    EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDCOALITIONINFO, 0, room.bytes, 32), 0);
    EXPECT_EQ(errno, DARWIN_ENOMEM);
    EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDCOALITIONINFO, 0, room.bytes, 64), 40);
    EXPECT_EQ(room.as<proc_pidcoalitioninfo>().coalition_id[1], 66u);
    EXPECT_TRUE(room.untouchedFrom(40));
  }
  machine.family = 2782;
  machine.refusal = DARWIN_ESRCH;
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDCOALITIONINFO, 0, room.bytes, 32), 0);
  EXPECT_EQ(errno, DARWIN_ESRCH);
}

TEST_F(PidInfo, PassesTheMachinesRefusalOn) {
  for (const host::Errno refusal : {DARWIN_EPERM, DARWIN_ESRCH, DARWIN_ENOTSUP}) {
    machine.refusal = refusal;
    for (const SizedFlavour &row : kStructures) {
      errno = 0;
      EXPECT_EQ(proc_pidinfo(kPid, row.flavour, row.arg, room.bytes, sizeof room.bytes), 0);
      EXPECT_EQ(errno, refusal);
    }
  }
  EXPECT_TRUE(room.untouchedFrom(0));
}

TEST_F(PidInfo, ExceptionIsNoMemory) {
  machine.throws = true;
  for (const SizedFlavour &row : kStructures) {
    errno = 0;
    EXPECT_EQ(proc_pidinfo(kPid, row.flavour, row.arg, room.bytes, sizeof room.bytes), 0);
    EXPECT_EQ(errno, DARWIN_ENOMEM);
  }
}

TEST_F(PidInfo, NullBufferFaults) {
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDTASKALLINFO, 0, nullptr, 232), 0);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  errno = 0;
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTTHREADS, 0, nullptr, 64), 0);
  EXPECT_EQ(errno, DARWIN_EFAULT);
}

TEST_F(PidInfo, TaskInfoIsTheTailOfTaskAllInfo) {
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDTASKINFO, 0, room.bytes, 96), 96);
  EXPECT_EQ(room.as<proc_taskinfo>().pti_threadnum, 3);
}

TEST_F(PidInfo, RegionInfoIsTheHeadOfTheOneWithThePath) {
  machine.memoryRegion.prp_prinfo.pri_address = 0x100004000;
  machine.memoryRegion.prp_prinfo.pri_size = 0x8000;
  std::strcpy(machine.memoryRegion.prp_vip.vip_path, "/sbin/launchd");
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDREGIONINFO, 0x100000000, room.bytes, 96), 96);
  EXPECT_EQ(machine.addressAsked, 0x100000000u);
  EXPECT_EQ(room.as<proc_regioninfo>().pri_address, 0x100004000u);
  EXPECT_TRUE(room.untouchedFrom(96));
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDREGIONPATHINFO, 0x100000001, room.bytes, 1272), 1272);
  EXPECT_EQ(machine.addressAsked, 0x100000001u);
  EXPECT_EQ(room.as<proc_regionwithpathinfo>().prp_prinfo.pri_size, 0x8000u);
  EXPECT_STREQ(room.as<proc_regionwithpathinfo>().prp_vip.vip_path, "/sbin/launchd");
}

TEST_F(PidInfo, ShortFormHasTheFieldsOfTheLongOne) {
  ASSERT_EQ(proc_pidinfo(kPid, PROC_PIDT_SHORTBSDINFO, 0, room.bytes, 64), 64);
  const uint32_t head[] = {kPid, 1, 70, SRUN};
  const uint32_t tail[] = {PROC_FLAG_LP64, 501, 20, 502, 21, 503, 22, 0};
  EXPECT_EQ(std::memcmp(room.bytes, head, sizeof head), 0);
  EXPECT_STREQ(reinterpret_cast<const char *>(room.bytes + 16), "backboardd");
  EXPECT_EQ(std::memcmp(room.bytes + 32, tail, sizeof tail), 0);
}

TEST_F(PidInfo, ZombiesAnswerOnlyWhenAskedForInTheBsdFlavour) {
  machine.zombies = {kPid};
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDTBSDINFO, 0, room.bytes, 136), 0);
  EXPECT_EQ(errno, DARWIN_ESRCH);
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDTBSDINFO, 1, room.bytes, 136), 136);
  errno = 0;
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDT_SHORTBSDINFO, 1, room.bytes, 64), 0);
  EXPECT_EQ(errno, DARWIN_ESRCH);
}

TEST_F(PidInfo, ThreadListsAreCutToTheBuffer) {
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTTHREADS, 0, room.bytes, 4096), 24);
  EXPECT_EQ(room.as<uint64_t>(16), 0x7200u);
  room = Room();
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTTHREADS, 0, room.bytes, 23), 16);
  EXPECT_TRUE(room.untouchedFrom(16));
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTTHREADIDS, 0, room.bytes, 8), 8);
  EXPECT_EQ(room.as<uint64_t>(), 901u);
}

TEST_F(PidInfo, ThreadsAreFoundByTheirOwnKindOfKey) {
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDTHREADINFO, 0x7200, room.bytes, 112), 112);
  EXPECT_EQ(room.as<proc_threadinfo>().pth_user_time, 0x7200u);
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDTHREADINFO, 902, room.bytes, 112), 0);
  EXPECT_EQ(errno, DARWIN_ESRCH);
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDTHREADID64INFO, 902, room.bytes, 112), 112);
  EXPECT_EQ(room.as<proc_threadinfo>().pth_user_time, 902u);
}

TEST_F(PidInfo, DescriptorEstimateIsTheTableWithTwentyToSpare) {
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTFDS, 0, nullptr, 0), (64 + 20) * 8);
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTFDS, 0, nullptr, -1), (64 + 20) * 8);
  machine.refusal = DARWIN_EPERM;
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTFDS, 0, nullptr, 0), 0);
  EXPECT_EQ(errno, DARWIN_EPERM);
}

TEST_F(PidInfo, DescriptorListIsCutToTheBufferEvenWhenTheMachineGivesMore) {
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTFDS, 0, room.bytes, 1024), 24);
  EXPECT_EQ(machine.limitAsked, 128u);
  EXPECT_EQ(room.as<proc_fdinfo>(16).proc_fd, 4);
  room = Room();
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTFDS, 0, room.bytes, 17), 16);
  EXPECT_EQ(machine.limitAsked, 2u);
  EXPECT_TRUE(room.untouchedFrom(16));
}

TEST_F(PidInfo, NoDescriptorsIsNoFailure) {
  machine.open.clear();
  errno = kUntouched;
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDLISTFDS, 0, room.bytes, 1024), 0);
  EXPECT_EQ(errno, kUntouched);
}

TEST_F(PidInfo, PathIsWrittenAndTheCallAnswersZero) {
  errno = kUntouched;
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDPATHINFO, 0, room.bytes, 4096), 0);
  EXPECT_EQ(errno, kUntouched);
  EXPECT_STREQ(reinterpret_cast<const char *>(room.bytes), "/usr/libexec/backboardd");
  EXPECT_TRUE(room.untouchedFrom(machine.path.size() + 1));
}

TEST_F(PidInfo, PathNeedsABufferOfTheRightSize) {
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDPATHINFO, 0, room.bytes, 4097), 0);
  EXPECT_EQ(errno, DARWIN_EOVERFLOW);
  machine.path = std::string(1024, 'p');
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDPATHINFO, 0, room.bytes, 1024), 0);
  EXPECT_EQ(errno, DARWIN_ENOSPC);
  EXPECT_TRUE(room.untouchedFrom(0));
  machine.path.resize(1023);
  errno = 0;
  EXPECT_EQ(proc_pidinfo(kPid, PROC_PIDPATHINFO, 0, room.bytes, 1024), 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(std::strlen(reinterpret_cast<const char *>(room.bytes)), 1023u);
}

TEST_F(PidInfo, RawCallAnswersMinusOneOnFailure) {
  const uint64_t noArgument = 0;
  EXPECT_EQ(syscall(DARWIN_SYS_proc_info, PROC_INFO_CALL_PIDINFO, kPid,
                    static_cast<uint32_t>(PROC_PIDTBSDINFO), noArgument,
                    static_cast<void *>(room.bytes), 136),
            136);
  EXPECT_EQ(syscall(DARWIN_SYS_proc_info, PROC_INFO_CALL_PIDINFO, kPid,
                    static_cast<uint32_t>(PROC_PIDTBSDINFO), noArgument,
                    static_cast<void *>(room.bytes), 135),
            -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
}

TEST_F(PidInfo, RawCallHasTheOtherThreeQuestionsToo) {
  machine.pids = {3, 2, 1};
  machine.types = {{4, PROX_FDTYPE_SOCKET}};
  machine.usage.ri_user_time = 9;
  const uint64_t none = 0;
  const uint64_t fd = 4;
  void *nowhere = nullptr;
  void *there = room.bytes;
  EXPECT_EQ(syscall(DARWIN_SYS_proc_info, PROC_INFO_CALL_LISTPIDS, 1, 0u, none, nowhere, 0), 92);
  EXPECT_EQ(syscall(DARWIN_SYS_proc_info, PROC_INFO_CALL_PIDFDINFO, kPid, 3u, fd, there, 792), 792);
  EXPECT_EQ(syscall(DARWIN_SYS_proc_info, PROC_INFO_CALL_PIDRUSAGE, kPid, 0u, none, there, 0), 0);
  EXPECT_EQ(room.as<rusage_info_v0>().ri_user_time, 9u);
  EXPECT_EQ(syscall(DARWIN_SYS_proc_info, 4, kPid, 0u, none, there, 0), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
}

class FdInfo : public EntryTest {
 protected:
  FdInfo() {
    machine.types = {{1, PROX_FDTYPE_VNODE},   {2, PROX_FDTYPE_SOCKET}, {3, PROX_FDTYPE_PSHM},
                     {4, PROX_FDTYPE_PSEM},    {5, PROX_FDTYPE_KQUEUE}, {6, PROX_FDTYPE_PIPE},
                     {10, PROX_FDTYPE_CHANNEL}};
    machine.events.resize(3);
    for (size_t i = 0; i < machine.events.size(); ++i) machine.events[i].kqext_kev.ident = 100 + i;
  }

  int ask(int fd, int flavour, int size) {
    errno = 0;
    return proc_pidfdinfo(kPid, fd, flavour, room.bytes, size);
  }

  Room room;
};

struct FdFlavour {
  int flavour;
  int fd;
  int size;
  int otherType;
  int otherTypeLater = DARWIN_EBADF;
};

constexpr FdFlavour kDescriptors[] = {
    {PROC_PIDFDVNODEINFO, 1, 176, DARWIN_ENOTSUP},
    {PROC_PIDFDVNODEPATHINFO, 1, 1200, DARWIN_ENOTSUP},
    {PROC_PIDFDSOCKETINFO, 2, 792, DARWIN_EOPNOTSUPP, DARWIN_ENOTSOCK},
    {PROC_PIDFDPSEMINFO, 4, 1184, DARWIN_EBADF},
    {PROC_PIDFDPSHMINFO, 3, 1192, DARWIN_EBADF},
    {PROC_PIDFDPIPEINFO, 6, 184, DARWIN_EBADF},
    {PROC_PIDFDKQUEUEINFO, 5, 168, DARWIN_EBADF},
    {PROC_PIDFDCHANNELINFO, 10, 56, DARWIN_EBADF},
};

TEST_F(FdInfo, AnswersExactlyTheSizeOfTheFlavour) {
  for (const FdFlavour &row : kDescriptors) {
    SCOPED_TRACE(row.flavour);
    room = Room();
    EXPECT_EQ(ask(row.fd, row.flavour, sizeof room.bytes), row.size);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(room.as<proc_fileinfo>().fi_offset, row.fd);
    EXPECT_TRUE(room.untouchedFrom(static_cast<size_t>(row.size)));
    EXPECT_EQ(ask(row.fd, row.flavour, row.size), row.size);
  }
}

TEST_F(FdInfo, RefusesLessThanTheSizeOfTheFlavour) {
  for (const FdFlavour &row : kDescriptors) {
    SCOPED_TRACE(row.flavour);
    for (const int size : {row.size - 1, 0, -1}) {
      EXPECT_EQ(ask(row.fd, row.flavour, size), 0);
      EXPECT_EQ(errno, DARWIN_ENOMEM);
    }
  }
  EXPECT_EQ(ask(5, PROC_PIDFDKQUEUE_EXTINFO, 103), 0);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_TRUE(room.untouchedFrom(0));
  EXPECT_EQ(machine.asked, 0);
}

TEST_F(FdInfo, OnlySomeFlavoursFitInAKibibyte) {
  for (const FdFlavour &row : kDescriptors) {
    SCOPED_TRACE(row.flavour);
    const bool fits = row.size <= 1024;
    EXPECT_EQ(ask(row.fd, row.flavour, 1024), fits ? row.size : 0);
    EXPECT_EQ(errno, fits ? 0 : DARWIN_ENOMEM);
  }
}

TEST_F(FdInfo, RefusesUnknownFlavoursFirst) {
  for (const int flavour : {-1, 0, 8, 11, 100}) {
    EXPECT_EQ(ask(1, flavour, 0), 0);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
}

TEST_F(FdInfo, ChecksFlavourThenSizeThenProcess) {
  machine.refusal = DARWIN_ESRCH;
  EXPECT_EQ(ask(1, 8, 0), 0);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(ask(1, PROC_PIDFDVNODEPATHINFO, 1024), 0);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_EQ(machine.asked, 0);
  EXPECT_EQ(ask(1, PROC_PIDFDVNODEPATHINFO, 1200), 0);
  EXPECT_EQ(errno, DARWIN_ESRCH);
}

TEST_F(FdInfo, SomeTypesAreAskedForInVain) {
  machine.types[7] = PROX_FDTYPE_FSEVENTS;
  machine.types[9] = PROX_FDTYPE_NETPOLICY;
  machine.types[11] = PROX_FDTYPE_NEXUS;
  EXPECT_EQ(ask(7, PROC_PIDFDPIPEINFO, 1024), 0);
  EXPECT_EQ(errno, DARWIN_EBADF);
  EXPECT_EQ(ask(9, PROC_PIDFDKQUEUE_EXTINFO, 1024), 0);
  EXPECT_EQ(errno, DARWIN_EBADF);
  EXPECT_EQ(ask(11, 11, 1024), 0);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_TRUE(room.untouchedFrom(0));
}

TEST_F(FdInfo, OldKernelsDoNotTellEvents) {
  machine.family = 3246;
  EXPECT_EQ(ask(5, PROC_PIDFDKQUEUE_EXTINFO, 1024), 0);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  machine.family = 3247;
  EXPECT_EQ(ask(5, PROC_PIDFDKQUEUE_EXTINFO, 1024), 3);
}

TEST_F(FdInfo, NumbersThatAreNotOpenAreBad) {
  for (const FdFlavour &row : kDescriptors) {
    SCOPED_TRACE(row.flavour);
    for (const int fd : {40, -1}) {
      EXPECT_EQ(ask(fd, row.flavour, sizeof room.bytes), 0);
      EXPECT_EQ(errno, DARWIN_EBADF);
    }
  }
}

TEST_F(FdInfo, OtherTypesAreRefusedAsTheKernelDoes) {
  for (const host::KernelFamily family : {4903u, 6153u, 7195u, 11417u}) {
    machine.family = family;
    for (const FdFlavour &row : kDescriptors) {
      SCOPED_TRACE(row.flavour);
      const int other = row.fd == 6 ? 1 : 6;
      EXPECT_EQ(ask(other, row.flavour, sizeof room.bytes), 0);
      EXPECT_EQ(errno, family < 7195 ? row.otherType : row.otherTypeLater);
    }
  }
  EXPECT_EQ(ask(1, PROC_PIDFDKQUEUE_EXTINFO, 1024), 0);
  EXPECT_EQ(errno, DARWIN_EBADF);
  EXPECT_TRUE(room.untouchedFrom(0));
}

TEST_F(FdInfo, WithoutTypesAnotherTypeCountsAsNotOpen) {
  machine.tellsTypes = false;
  EXPECT_EQ(ask(6, PROC_PIDFDVNODEPATHINFO, 1200), 0);
  EXPECT_EQ(errno, DARWIN_EBADF);
  EXPECT_EQ(ask(1, PROC_PIDFDVNODEPATHINFO, 1200), 1200);
}

TEST_F(FdInfo, EventsAnswerHowManyAreRegistered) {
  EXPECT_EQ(ask(5, PROC_PIDFDKQUEUE_EXTINFO, sizeof room.bytes), 3);
  EXPECT_TRUE(room.untouchedFrom(3 * 104));
  EXPECT_EQ(room.as<kevent_extinfo>(208).kqext_kev.ident, 102u);
  room = Room();
  EXPECT_EQ(ask(5, PROC_PIDFDKQUEUE_EXTINFO, 2 * 104 + 103), 3);
  EXPECT_TRUE(room.untouchedFrom(2 * 104));
  EXPECT_EQ(room.as<kevent_extinfo>(104).kqext_kev.ident, 101u);
}

TEST_F(FdInfo, NoEventsIsNoFailure) {
  machine.events.clear();
  EXPECT_EQ(ask(5, PROC_PIDFDKQUEUE_EXTINFO, 1024), 0);
  EXPECT_EQ(errno, 0);
  EXPECT_TRUE(room.untouchedFrom(0));
}

TEST_F(FdInfo, RefusalsExceptionsAndNullBuffers) {
  for (const FdFlavour &row : kDescriptors) {
    SCOPED_TRACE(row.flavour);
    machine.throws = false;
    machine.refusal = DARWIN_EPERM;
    EXPECT_EQ(ask(row.fd, row.flavour, sizeof room.bytes), 0);
    EXPECT_EQ(errno, DARWIN_EPERM);
    machine.refusal = host::kAnswered;
    errno = 0;
    EXPECT_EQ(proc_pidfdinfo(kPid, row.fd, row.flavour, nullptr, row.size), 0);
    EXPECT_EQ(errno, DARWIN_EFAULT);
    machine.throws = true;
    EXPECT_EQ(ask(row.fd, row.flavour, sizeof room.bytes), 0);
    EXPECT_EQ(errno, DARWIN_ENOMEM);
  }
  EXPECT_TRUE(room.untouchedFrom(0));
}

class Rusage : public EntryTest {
 protected:
  int ask(int version) {
    errno = kUntouched;
    return proc_pid_rusage(kPid, version, reinterpret_cast<rusage_info_t *>(room.bytes));
  }

  Room room;
};

TEST_F(Rusage, WritesExactlyTheSizeOfTheVersion) {
  std::memset(&machine.usage, 0x11, sizeof machine.usage);
  const size_t sizes[] = {96, 144, 160, 232, 296};
  for (int version = 0; version < 5; ++version) {
    SCOPED_TRACE(version);
    room = Room();
    EXPECT_EQ(ask(version), 0);
    EXPECT_EQ(errno, kUntouched);
    const size_t size = sizes[version];
    EXPECT_EQ(std::memcmp(room.bytes, &machine.usage, size), 0);
    EXPECT_TRUE(room.untouchedFrom(size));
  }
}

TEST_F(Rusage, RefusesVersionsThatTheKernelDoesNotKnowAfterTheProcess) {
  for (const int version : {5, 6, -1}) {
    machine.refusal = host::kAnswered;
    EXPECT_EQ(ask(version), -1);
    EXPECT_EQ(errno, DARWIN_EINVAL);
    machine.refusal = DARWIN_ESRCH;
    EXPECT_EQ(ask(version), -1);
    EXPECT_EQ(errno, DARWIN_ESRCH);
  }
  EXPECT_TRUE(room.untouchedFrom(0));
}

TEST_F(Rusage, VersionsCameWithTheKernels) {
  const struct {
    host::KernelFamily family;
    int newest;
  } kRows[] = {{2422, 2}, {2781, 2}, {2782, 3}, {4569, 3}, {4570, 4}, {11417, 4}};
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.family);
    machine.family = row.family;
    EXPECT_EQ(ask(row.newest), 0);
    room = Room();
    EXPECT_EQ(ask(row.newest + 1), -1);
    EXPECT_EQ(errno, DARWIN_EINVAL);
    EXPECT_TRUE(room.untouchedFrom(0));
  }
}

TEST_F(Rusage, RefusalsExceptionsAndNullBuffers) {
  machine.refusal = DARWIN_EPERM;
  EXPECT_EQ(ask(3), -1);
  EXPECT_EQ(errno, DARWIN_EPERM);
  machine.refusal = host::kAnswered;
  EXPECT_EQ(proc_pid_rusage(kPid, 3, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  machine.throws = true;
  EXPECT_EQ(ask(3), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_TRUE(room.untouchedFrom(0));
}

}  // namespace
}  // namespace darwin
