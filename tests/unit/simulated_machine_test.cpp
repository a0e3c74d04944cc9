// What a simulated device says about itself and its processes.
#include "host/simulator/simulated_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "simulated_device.h"

namespace simulated_test {
namespace {

using host::KernelName;
using host::ProcessArguments;
using host::simulator::ExitProcess;
using host::simulator::ForkProcess;
using host::simulator::Jetsam;
using host::simulator::Processor;
using host::simulator::Region;
using host::simulator::StartProcess;
using host::simulator::StopProcess;
using host::simulator::Swap;
using host::simulator::WorkQueue;
using testing::Each;
using testing::ElementsAre;

TEST(SimulatedClockTest, AStepIsMadeFromTheSecondSampleOn) {
  SimulatedMachine machine(device());
  EXPECT_EQ(machine.now(), 0s);
  machine.beginSample();
  EXPECT_EQ(machine.now(), 0s);
  EXPECT_EQ(machine.timeOfDay(), kStart);
  machine.beginSample();
  EXPECT_EQ(machine.now(), 1s);
  EXPECT_EQ(machine.timeOfDay(), kStart + 1);
  machine.beginSample();
  EXPECT_EQ(machine.now(), 2s);
}

TEST(SimulatedClockTest, AnyStepAndAdvanceByHand) {
  Device given = device();
  given.clock.step = 250ms;
  SimulatedMachine machine(given);
  machine.beginSample();
  machine.beginSample();
  EXPECT_EQ(machine.now(), 250ms);
  machine.advance(2s);
  EXPECT_EQ(machine.now(), 2250ms);
  EXPECT_EQ(machine.timeOfDay(), kStart + 2);
  machine.advance(-1s);
  EXPECT_EQ(machine.now(), 2250ms);
  machine.advance(Nanoseconds::max());
  EXPECT_EQ(machine.now(), Nanoseconds::max());
}

TEST(SimulatedClockTest, AWallClockGoesOnByItself) {
  Device given = device();
  given.clock.isStepped = false;
  SimulatedMachine machine(given);
  const auto deadline = std::chrono::steady_clock::now() + 60s;
  const Nanoseconds first = machine.now();
  while (machine.now() <= first + 1ms && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  EXPECT_GT(machine.now(), first + 1ms);
  const Nanoseconds before = machine.now();
  machine.beginSample();
  machine.beginSample();
  machine.advance(1000s);
  EXPECT_GE(machine.now(), before);
  EXPECT_LT(machine.now(), before + 100s);
  EXPECT_GE(machine.timeOfDay(), kStart);
  EXPECT_LT(machine.timeOfDay(), kStart + 100);
}

TEST(SimulatedClockTest, WithoutAStartItIsTheTimeOfThisSystem) {
  Device given = device();
  given.clock.start.reset();
  const int64_t before = std::time(nullptr);
  SimulatedMachine machine(given);
  EXPECT_GE(machine.timeOfDay(), before);
  EXPECT_LE(machine.timeOfDay(), std::time(nullptr));
}

TEST(SimulatedClockTest, TheLastSecondIsTheLast) {
  Device given = device();
  given.clock.start = INT64_MAX;
  SimulatedMachine machine(given);
  machine.advance(5s);
  EXPECT_EQ(machine.timeOfDay(), INT64_MAX);
}

Region region(uint64_t address, uint64_t size) {
  Region made;
  made.address = address;
  made.size = size;
  return made;
}

TEST(SimulatedMachineTest, RefusesWhatContradictsItself) {
  EXPECT_THROW(SimulatedMachine(device({process(5), process(5)})), std::invalid_argument);
  EXPECT_THROW(SimulatedMachine(device({process(100000)})), std::invalid_argument);
  EXPECT_THROW(SimulatedMachine(device({process(-2)})), std::invalid_argument);

  Process twins = process(5);
  twins.threads = {thread(), thread()};
  twins.threads[0].id = twins.threads[1].id = 77;
  EXPECT_THROW(SimulatedMachine(device({twins})), std::invalid_argument);
  twins.threads[0].id = twins.threads[1].id = 0;
  twins.threads[0].handle = twins.threads[1].handle = 0x1000;
  EXPECT_THROW(SimulatedMachine(device({twins})), std::invalid_argument);
  twins.pid = 0;  // the kernel's threads have no handles
  EXPECT_NO_THROW(SimulatedMachine(device({twins})));

  Process first = process(5);
  Process second = process(6);
  first.threads[0].id = second.threads[0].id = 77;
  EXPECT_THROW(SimulatedMachine(device({first, second})), std::invalid_argument);

  Process open = process(5);
  open.descriptors = {descriptor(3, host::simulator::File{}),
                      descriptor(3, host::simulator::File{})};
  EXPECT_THROW(SimulatedMachine(device({open})), std::invalid_argument);
  open.descriptors[0].number = -2;
  EXPECT_THROW(SimulatedMachine(device({open})), std::invalid_argument);

  Process mapped = process(5);
  mapped.regions = {region(0x1000, 0x2000), region(0x2000, 0x1000)};
  EXPECT_THROW(SimulatedMachine(device({mapped})), std::invalid_argument);
  mapped.regions = {region(0x1000, 0)};
  EXPECT_THROW(SimulatedMachine(device({mapped})), std::invalid_argument);
  mapped.regions = {region(UINT64_MAX - 10, 100)};
  EXPECT_THROW(SimulatedMachine(device({mapped})), std::invalid_argument);

  Device timeless = device();
  timeless.kernel.timebaseDenominator = 0;
  EXPECT_THROW(SimulatedMachine{timeless}, std::invalid_argument);

  Device pageless = device();
  pageless.kernel.pageSize = 0;
  EXPECT_THROW(SimulatedMachine{pageless}, std::invalid_argument);

  Device later = device();
  later.events = {at(5s, StartProcess{open})};
  EXPECT_THROW(SimulatedMachine{later}, std::invalid_argument);
}

TEST(SimulatedMachineTest, ListsTheNewestFirstThenTheKernelThenZombies) {
  SimulatedMachine machine(device({process(0, "kernel_task"), process(1), zombie(40), process(30),
                                   zombie(20), process(50), process(12)}));
  EXPECT_THAT(pidsOf(machine), ElementsAre(12, 50, 30, 1, 0, 20, 40));
}

TEST(SimulatedMachineTest, ProcessesWithoutAPidGetTheNextFreeOnes) {
  SimulatedMachine machine(device({process(0), process(1), process(-1), process(50), process(-1),
                                   process(52), process(-1), process(3)}));
  EXPECT_THAT(pidsOf(machine), ElementsAre(3, 53, 52, 51, 50, 2, 1, 0));
}

TEST(SimulatedMachineTest, AnswersForAZombieWhatAKernelDoes) {
  SimulatedMachine machine(device({process(1), zombie(20, 9)}));
  darwin::proc_bsdinfo info{};
  EXPECT_EQ(machine.bsdInfo(20, false, info), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.bsdInfo(20, true, info), kAnswered);
  EXPECT_EQ(info.pbi_status, darwin::SZOMB);
  EXPECT_EQ(info.pbi_xstatus, 9U);
  EXPECT_EQ(info.pbi_nfiles, 0U);
  darwin::rusage_info_v4 usage{};
  EXPECT_EQ(machine.resourceUsage(20, usage), kAnswered);
  darwin::proc_taskallinfo task{};
  EXPECT_EQ(machine.taskAllInfo(20, task), darwin::DARWIN_ESRCH);
  std::vector<uint64_t> ids;
  EXPECT_EQ(machine.threadIDs(20, ids), darwin::DARWIN_ESRCH);
  std::string path;
  EXPECT_EQ(machine.executablePath(20, path), darwin::DARWIN_ESRCH);
  darwin::proc_pidcoalitioninfo coalition{};
  EXPECT_EQ(machine.coalition(20, coalition), darwin::DARWIN_ESRCH);
  uint32_t flags = 0;
  EXPECT_EQ(machine.codeSigningFlags(20, flags), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.sandboxCheck(20), -1);
}

TEST(SimulatedMachineTest, TellsOfZombiesAsLinuxDoes) {
  Device given = device({process(1), zombie(20, 9), process(30)});
  given.tellsOfZombies = true;
  SimulatedMachine machine(given);
  EXPECT_THAT(pidsOf(machine), ElementsAre(30, 20, 1));
  darwin::proc_taskallinfo task{};
  EXPECT_EQ(machine.taskAllInfo(20, task), kAnswered);
  EXPECT_EQ(task.pbsd.pbi_status, darwin::SZOMB);
  EXPECT_EQ(task.ptinfo.pti_threadnum, 0);
  EXPECT_EQ(machine.sandboxCheck(20), 0);
  darwin::proc_bsdinfo info{};
  EXPECT_EQ(machine.bsdInfo(20, false, info), darwin::DARWIN_ESRCH);
  std::vector<uint64_t> ids;
  EXPECT_EQ(machine.threadIDs(20, ids), darwin::DARWIN_ESRCH);
}

// The error of every question about a process.
std::vector<Errno> refusalsOf(SimulatedMachine &machine, int32_t pid) {
  darwin::proc_taskallinfo task{};
  darwin::proc_bsdinfo bsd{};
  darwin::proc_workqueueinfo queue{};
  darwin::proc_threadinfo threadInfo{};
  darwin::rusage_info_v4 usage{};
  darwin::proc_regionwithpathinfo mapped{};
  darwin::vnode_fdinfowithpath vnode{};
  darwin::socket_fdinfo socket{};
  darwin::psem_fdinfo semaphore{};
  darwin::pshm_fdinfo memory{};
  darwin::pipe_fdinfo pipe{};
  darwin::kqueue_fdinfo queueInfo{};
  darwin::channel_fdinfo channel{};
  std::vector<darwin::kevent_extinfo> events;
  std::vector<uint64_t> numbers;
  std::vector<darwin::proc_fdinfo> open;
  ProcessArguments arguments;
  size_t slots = 0;
  int32_t state = 0;
  return {machine.taskAllInfo(pid, task),
          machine.bsdInfo(pid, true, bsd),
          machine.workQueue(pid, queue),
          machine.threadHandles(pid, numbers),
          machine.threadInfo(pid, 1, threadInfo),
          machine.threadIDs(pid, numbers),
          machine.threadInfoByID(pid, 1, threadInfo),
          machine.resourceUsage(pid, usage),
          machine.applicationState(pid, state),
          machine.arguments(pid, arguments),
          machine.region(pid, 0, mapped),
          machine.descriptors(pid, 10, open),
          machine.descriptorTableSize(pid, slots),
          machine.vnodeDescriptor(pid, 0, vnode),
          machine.socketDescriptor(pid, 0, socket),
          machine.semaphoreDescriptor(pid, 0, semaphore),
          machine.sharedMemoryDescriptor(pid, 0, memory),
          machine.pipeDescriptor(pid, 0, pipe),
          machine.kqueueDescriptor(pid, 0, queueInfo),
          machine.kqueueEvents(pid, 0, events),
          machine.channelDescriptor(pid, 0, channel)};
}

// The error of every question that is about any process, whoever asks.
std::vector<Errno> openAnswersOf(SimulatedMachine &machine, int32_t pid) {
  std::string path;
  darwin::proc_pidcoalitioninfo coalition{};
  uint32_t flags = 0;
  std::vector<uint8_t> blob;
  return {machine.executablePath(pid, path), machine.coalition(pid, coalition),
          machine.codeSigningFlags(pid, flags), machine.codeSignature(pid, blob),
          machine.containerPath(pid, path)};
}

TEST(SimulatedMachineTest, KnowsNothingOfAProcessThatIsNotThere) {
  SimulatedMachine machine(device({process(1)}));
  EXPECT_THAT(refusalsOf(machine, 77), Each(darwin::DARWIN_ESRCH));
  EXPECT_THAT(refusalsOf(machine, -1), Each(darwin::DARWIN_ESRCH));
  EXPECT_THAT(openAnswersOf(machine, 77), Each(darwin::DARWIN_ESRCH));
  EXPECT_EQ(machine.sandboxCheck(77), -1);
}

TEST(SimulatedMachineTest, TellsEverybodyTheGroupOfAProcess) {
  Process own = process(20);
  own.group = 7;
  Device given = device({process(1), own, zombie(30, 9)});
  given.caller = 501;
  SimulatedMachine machine(given);
  pid_t group = -1;
  EXPECT_EQ(machine.processGroup(20, group), kAnswered);
  EXPECT_EQ(group, 7);
  EXPECT_EQ(machine.processGroup(30, group), kAnswered);
  EXPECT_EQ(group, 30);
  EXPECT_EQ(machine.processGroup(77, group), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.processGroup(-1, group), darwin::DARWIN_ESRCH);
  EXPECT_EQ(group, 30);
}

TEST(SimulatedMachineTest, RefusesOtherUsersProcessesToAllButRoot) {
  Process own = process(20);
  own.user = 501;
  own.container = "/private/var/own";
  Process others = process(21);
  others.user = 502;
  others.sandboxed = 1;
  others.container = "/private/var/other";
  Device given = device({process(1), own, others});
  given.caller = 501;
  SimulatedMachine machine(given);
  EXPECT_FALSE(machine.isPrivileged());
  EXPECT_EQ(machine.callerUser(), 501U);
  EXPECT_THAT(refusalsOf(machine, 21), Each(darwin::DARWIN_EPERM));
  EXPECT_THAT(refusalsOf(machine, 99), Each(darwin::DARWIN_ESRCH));
  EXPECT_THAT(openAnswersOf(machine, 21), Each(kAnswered));
  EXPECT_EQ(machine.sandboxCheck(21), 1);
  darwin::proc_taskallinfo task{};
  EXPECT_EQ(machine.taskAllInfo(20, task), kAnswered);
  EXPECT_THAT(pidsOf(machine), ElementsAre(21, 20, 1));

  given.caller = 0;
  SimulatedMachine root(given);
  EXPECT_TRUE(root.isPrivileged());
  EXPECT_EQ(root.taskAllInfo(21, task), kAnswered);
}

TEST(SimulatedMachineTest, SaysWhoAProcessIs) {
  Process given = process(300, "a-name-that-is-too-long-for-the-kernel");
  given.parent = 7;
  given.group = 250;
  given.user = 501;
  given.realUser = 502;
  given.savedUser = 503;
  given.groupID = 20;
  given.realGroupID = 21;
  given.savedGroupID = 22;
  given.flags = darwin::PROC_FLAG_CONTROLT | darwin::PROC_FLAG_LP64;
  given.status = darwin::SSLEEP;
  given.terminal = 0x10000002;
  given.terminalGroup = 251;
  given.jobs = 3;
  given.nice = -5;
  given.age = 100'000'250'000ns;  // 100.00025 s
  SimulatedMachine machine(device({given}));
  const darwin::proc_bsdinfo info = bsdOf(machine, 300);
  EXPECT_EQ(info.pbi_flags, darwin::PROC_FLAG_CONTROLT | darwin::PROC_FLAG_LP64);
  EXPECT_EQ(info.pbi_status, darwin::SSLEEP);
  EXPECT_EQ(info.pbi_pid, 300U);
  EXPECT_EQ(info.pbi_ppid, 7U);
  EXPECT_EQ(info.pbi_uid, 501U);
  EXPECT_EQ(info.pbi_ruid, 502U);
  EXPECT_EQ(info.pbi_svuid, 503U);
  EXPECT_EQ(info.pbi_gid, 20U);
  EXPECT_EQ(info.pbi_rgid, 21U);
  EXPECT_EQ(info.pbi_svgid, 22U);
  EXPECT_STREQ(info.pbi_comm, "a-name-that-is-");
  EXPECT_STREQ(info.pbi_name, "a-name-that-is-too-long-for-the");
  EXPECT_EQ(info.pbi_pgid, 250U);
  EXPECT_EQ(info.pbi_pjobc, 3U);
  EXPECT_EQ(info.e_tdev, 0x10000002U);
  EXPECT_EQ(info.e_tpgid, 251U);
  EXPECT_EQ(info.pbi_nice, -5);
  EXPECT_EQ(info.pbi_nfiles, 25U);
  EXPECT_EQ(info.pbi_start_tvsec, 1'599'999'899U);
  EXPECT_EQ(info.pbi_start_tvusec, 999'750U);
}

TEST(SimulatedMachineTest, AProcessOf32BitsWithItsOwnGroupAndALongName) {
  Process given = process(300, "short");
  given.is64Bit = false;
  given.longName = "the longer form";
  SimulatedMachine machine(device({given}));
  const darwin::proc_bsdinfo info = bsdOf(machine, 300);
  EXPECT_EQ(info.pbi_flags & darwin::PROC_FLAG_LP64, 0U);
  EXPECT_EQ(info.pbi_pgid, 300U);
  EXPECT_STREQ(info.pbi_comm, "short");
  EXPECT_STREQ(info.pbi_name, "the longer form");
  EXPECT_EQ(info.e_tdev, UINT32_MAX);
}

TEST(SimulatedMachineTest, AProcessCanNotHaveStartedBeforeTheEpoch) {
  Process given = process(300);
  given.age = Nanoseconds::max();
  SimulatedMachine machine(device({given}));
  // 2^63 ns are 9,223,372,036 s.
  EXPECT_EQ(bsdOf(machine, 300).pbi_start_tvsec, 0U);
  EXPECT_EQ(bsdOf(machine, 300).pbi_start_tvusec, 0U);
}

TEST(SimulatedMachineTest, SaysWhatATaskUses) {
  Process given = process(300);
  given.virtualSize = 1'000'000;
  given.residentSize = Figure::growing(50'000, 1000);
  given.userTime = Figure::growing(3'000'000'000, 500'000'000);
  given.systemTime = 1'500'000'000;
  given.faults = 10;
  given.pageIns = 11;
  given.copyOnWriteFaults = 12;
  given.messagesSent = 13;
  given.messagesReceived = 14;
  given.machCalls = UINT64_MAX;
  given.unixCalls = 16;
  given.contextSwitches = Figure::growing(17, 2);
  given.priority = 47;
  given.policy = darwin::POLICY_FIFO;
  given.threads = {busyThread(900), busyThread(100), thread()};
  given.threads[0].userTime = 600'000'000;
  given.threads[1].userTime = 900'000'000;
  given.threads[2].systemTime = 750'000'000;
  SimulatedMachine machine(device({given}));
  machine.advance(2s);
  const darwin::proc_taskinfo info = taskOf(machine, 300);
  // Whole pages of 16 KiB.
  EXPECT_EQ(info.pti_virtual_size, 999'424U);
  EXPECT_EQ(info.pti_resident_size, 49'152U);
  // 24 units are a microsecond.
  EXPECT_EQ(info.pti_total_user, 96'000'000U);    // 4 s
  EXPECT_EQ(info.pti_total_system, 36'000'000U);  // 1.5 s
  EXPECT_EQ(info.pti_threads_user, 36'000'000U);  // 1.5 s
  EXPECT_EQ(info.pti_threads_system, 18'000'000U);
  EXPECT_EQ(info.pti_policy, darwin::POLICY_FIFO);
  EXPECT_EQ(info.pti_faults, 10);
  EXPECT_EQ(info.pti_pageins, 11);
  EXPECT_EQ(info.pti_cow_faults, 12);
  EXPECT_EQ(info.pti_messages_sent, 13);
  EXPECT_EQ(info.pti_messages_received, 14);
  EXPECT_EQ(info.pti_syscalls_mach, INT32_MAX);
  EXPECT_EQ(info.pti_syscalls_unix, 16);
  EXPECT_EQ(info.pti_csw, 21);
  EXPECT_EQ(info.pti_threadnum, 3);
  EXPECT_EQ(info.pti_numrunning, 2);
  EXPECT_EQ(info.pti_priority, 47);
}

TEST(SimulatedMachineTest, AnotherTimeBaseHasOtherUnits) {
  Process given = process(300);
  given.userTime = 1'000;
  given.systemTime = UINT64_MAX;
  Device one = device({given});
  one.kernel.timebaseNumerator = 1;
  one.kernel.timebaseDenominator = 1;
  SimulatedMachine machine(one);
  EXPECT_EQ(taskOf(machine, 300).pti_total_user, 1'000U);
  one.kernel.timebaseDenominator = 7;
  one.kernel.timebaseNumerator = 2;
  SimulatedMachine other(one);
  EXPECT_EQ(taskOf(other, 300).pti_total_user, 3'500U);
  EXPECT_EQ(taskOf(other, 300).pti_total_system, UINT64_MAX);
}

TEST(SimulatedMachineTest, SaysWhatAProcessHasUsedUp) {
  Process given = process(300);
  given.age = 3600s;
  given.userTime = 1'000'000'000;
  given.systemTime = 2'000'000'000;
  given.pageIns = 5;
  given.wiredSize = 6 * kPage;
  given.residentSize = 7 * kPage + 1;
  given.footprint = 9 * kPage - 1;
  given.usage->diskRead = Figure::growing(100, 10);
  given.usage->diskWritten = 101;
  given.usage->idleWakeups = 102;
  given.usage->interruptWakeups = 103;
  given.usage->logicalWrites = 104;
  given.usage->instructions = 105;
  given.usage->cycles = 106;
  given.usage->billedEnergy = 107;
  given.usage->servicedEnergy = 108;
  given.usage->billedSystemTime = 125;
  given.usage->servicedSystemTime = 250;
  Process refusing = process(301);
  refusing.usage.reset();
  SimulatedMachine machine(device({given, refusing}));
  machine.advance(3s);
  const darwin::rusage_info_v4 usage = usageOf(machine, 300);
  EXPECT_EQ(usage.ri_user_time, 24'000'000U);
  EXPECT_EQ(usage.ri_system_time, 48'000'000U);
  EXPECT_EQ(usage.ri_pageins, 5U);
  EXPECT_EQ(usage.ri_wired_size, 6 * kPage);
  EXPECT_EQ(usage.ri_resident_size, 7 * kPage);
  EXPECT_EQ(usage.ri_phys_footprint, 8 * kPage);
  // Up for a day at the start: 82,800 s before the process.
  EXPECT_EQ(usage.ri_proc_start_abstime, uint64_t{82'800} * 24'000'000);
  EXPECT_EQ(usage.ri_proc_exit_abstime, 0U);
  EXPECT_EQ(usage.ri_diskio_bytesread, 130U);
  EXPECT_EQ(usage.ri_diskio_byteswritten, 101U);
  EXPECT_EQ(usage.ri_pkg_idle_wkups, 102U);
  EXPECT_EQ(usage.ri_interrupt_wkups, 103U);
  EXPECT_EQ(usage.ri_logical_writes, 104U);
  EXPECT_EQ(usage.ri_instructions, 105U);
  EXPECT_EQ(usage.ri_cycles, 106U);
  EXPECT_EQ(usage.ri_billed_energy, 107U);
  EXPECT_EQ(usage.ri_serviced_energy, 108U);
  EXPECT_EQ(usage.ri_billed_system_time, 3U);
  EXPECT_EQ(usage.ri_serviced_system_time, 6U);
  darwin::rusage_info_v4 refused{};
  EXPECT_EQ(machine.resourceUsage(301, refused), darwin::DARWIN_ENOTSUP);
}

TEST(SimulatedMachineTest, SaysWhatElseItKnowsOfAProcess) {
  Process given = process(300, "worker");
  given.arguments = {"worker", "-v"};
  given.environment = {"A=1"};
  given.is64Bit = false;
  given.workQueue = WorkQueue{9, 2, 3, darwin::WQ_EXCEEDED_TOTAL_THREAD_LIMIT};
  given.coalitions = std::array<uint64_t, 2>{41, 42};
  given.sandboxed = 1;
  given.container = "/private/var/containers/one";
  given.codeSigningFlags = 0x26000001;
  given.codeSignature = {1, 2, 3};
  given.applicationState = 2;
  SimulatedMachine machine(device({process(0), given, process(301)}));

  std::string path;
  EXPECT_EQ(machine.executablePath(300, path), kAnswered);
  EXPECT_EQ(path, "/usr/libexec/worker");
  EXPECT_EQ(machine.executablePath(0, path), darwin::DARWIN_ESRCH);
  ProcessArguments arguments;
  EXPECT_EQ(machine.arguments(300, arguments), kAnswered);
  EXPECT_EQ(arguments.path, "/usr/libexec/worker");
  EXPECT_THAT(arguments.arguments, ElementsAre("worker", "-v"));
  EXPECT_THAT(arguments.environment, ElementsAre("A=1"));
  EXPECT_FALSE(arguments.is64Bit);
  darwin::proc_workqueueinfo queue{};
  EXPECT_EQ(machine.workQueue(300, queue), kAnswered);
  EXPECT_EQ(queue.pwq_nthreads, 9U);
  EXPECT_EQ(queue.pwq_runthreads, 2U);
  EXPECT_EQ(queue.pwq_blockedthreads, 3U);
  EXPECT_EQ(queue.pwq_state, darwin::WQ_EXCEEDED_TOTAL_THREAD_LIMIT);
  EXPECT_EQ(machine.workQueue(301, queue), darwin::DARWIN_ESRCH);
  darwin::proc_pidcoalitioninfo coalition{};
  EXPECT_EQ(machine.coalition(300, coalition), kAnswered);
  EXPECT_EQ(coalition.coalition_id[darwin::COALITION_TYPE_RESOURCE], 41U);
  EXPECT_EQ(coalition.coalition_id[darwin::COALITION_TYPE_JETSAM], 42U);
  EXPECT_EQ(machine.sandboxCheck(300), 1);
  EXPECT_EQ(machine.sandboxCheck(301), 0);
  EXPECT_EQ(machine.containerPath(300, path), kAnswered);
  EXPECT_EQ(path, "/private/var/containers/one");
  EXPECT_EQ(machine.containerPath(301, path), darwin::DARWIN_ENOTSUP);
  uint32_t flags = 0;
  EXPECT_EQ(machine.codeSigningFlags(300, flags), kAnswered);
  EXPECT_EQ(flags, 0x26000001U);
  std::vector<uint8_t> blob;
  EXPECT_EQ(machine.codeSignature(300, blob), kAnswered);
  EXPECT_THAT(blob, ElementsAre(1, 2, 3));
  EXPECT_EQ(machine.codeSignature(301, blob), kAnswered);
  EXPECT_TRUE(blob.empty());
  int32_t state = 0;
  EXPECT_EQ(machine.applicationState(300, state), kAnswered);
  EXPECT_EQ(state, 2);
  EXPECT_EQ(machine.applicationState(301, state), darwin::DARWIN_ENOTSUP);
}

TEST(SimulatedMachineTest, SaysWhatAThreadDoes) {
  Process given = process(300);
  Thread busy = busyThread(250);
  busy.userTime = Figure::growing(1'000, 200'000'000);
  busy.systemTime = 2'000;
  busy.flags = darwin::TH_FLAGS_SWAPPED;
  busy.policy = darwin::POLICY_RR;
  busy.sleepTime = 4;
  busy.priority = 31;
  busy.currentPriority = 33;
  busy.largestPriority = 63;
  busy.name = "com.example.worker";
  given.threads = {busy, busyThread(5000)};
  given.threads[1].name = std::string(100, 'x');
  SimulatedMachine machine(device({given}));
  machine.advance(1s);
  const darwin::proc_threadinfo info = threadOf(machine, 300);
  EXPECT_EQ(info.pth_user_time, 200'001'000U);
  EXPECT_EQ(info.pth_system_time, 2'000U);
  EXPECT_EQ(info.pth_cpu_usage, 250);
  EXPECT_EQ(info.pth_policy, darwin::POLICY_RR);
  EXPECT_EQ(info.pth_run_state, darwin::TH_STATE_RUNNING);
  EXPECT_EQ(info.pth_flags, darwin::TH_FLAGS_SWAPPED);
  EXPECT_EQ(info.pth_sleep_time, 4);
  EXPECT_EQ(info.pth_curpri, 33);
  EXPECT_EQ(info.pth_priority, 31);
  EXPECT_EQ(info.pth_maxpriority, 63);
  EXPECT_STREQ(info.pth_name, "com.example.worker");
  const darwin::proc_threadinfo other = threadOf(machine, 300, 1);
  EXPECT_EQ(other.pth_cpu_usage, 1000);
  EXPECT_EQ(std::string(other.pth_name), std::string(63, 'x'));
}

TEST(SimulatedMachineTest, ThreadsAreFoundByHandleAndByID) {
  Process given = process(300);
  given.threads = {thread("first"), thread("second"), thread("third")};
  given.threads[1].handle = 0x16D0E3000;  // what the first would get
  given.threads[1].id = 7;
  SimulatedMachine machine(device({given, process(301)}));
  std::vector<uint64_t> handles;
  ASSERT_EQ(machine.threadHandles(300, handles), kAnswered);
  ASSERT_THAT(handles, ElementsAre(0x16D16F000, 0x16D0E3000, 0x16D1FB000));
  const char *names[] = {"first", "second", "third"};
  const std::vector<uint64_t> ids = threadIDsOf(machine, 300);
  ASSERT_EQ(ids.size(), 3U);
  EXPECT_EQ(ids[1], 7U);
  for (size_t i = 0; i < 3; ++i) {
    darwin::proc_threadinfo info{};
    EXPECT_EQ(machine.threadInfo(300, handles[i], info), kAnswered);
    EXPECT_STREQ(info.pth_name, names[i]);
    info = {};
    EXPECT_EQ(machine.threadInfoByID(300, ids[i], info), kAnswered);
    EXPECT_STREQ(info.pth_name, names[i]);
    // It is another process's.
    EXPECT_EQ(machine.threadInfoByID(301, ids[i], info), darwin::DARWIN_ESRCH);
  }
  darwin::proc_threadinfo info{};
  EXPECT_EQ(machine.threadInfo(300, 0, info), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.threadInfo(300, 0x999, info), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.threadInfoByID(300, 0, info), darwin::DARWIN_ESRCH);
}

TEST(SimulatedMachineTest, TheKernelsThreadsHaveNoHandles) {
  Process kernel = process(0, "kernel_task");
  kernel.threads = {thread("first"), thread("second")};
  SimulatedMachine machine(device({kernel}));
  std::vector<uint64_t> handles;
  ASSERT_EQ(machine.threadHandles(0, handles), kAnswered);
  EXPECT_THAT(handles, ElementsAre(0U, 0U));
  darwin::proc_threadinfo info{};
  ASSERT_EQ(machine.threadInfo(0, 0, info), kAnswered);
  EXPECT_STREQ(info.pth_name, "first");
  EXPECT_STREQ(threadOf(machine, 0, 1).pth_name, "second");
}

TEST(SimulatedMachineTest, NoTwoThreadsOfADeviceHaveTheSameID) {
  Process first = process(1);
  first.threads = std::vector<Thread>(300, thread());
  Process second = process(2);
  second.threads = std::vector<Thread>(300, thread());
  second.threads[5].id = 0x110;  // one that would have been chosen
  SimulatedMachine machine(device({first, second}));
  machine.happen(ForkProcess{2, 3});
  std::vector<uint64_t> all;
  for (const int32_t pid : {1, 2, 3}) {
    const std::vector<uint64_t> ids = threadIDsOf(machine, pid);
    EXPECT_EQ(ids.size(), 300U);
    all.insert(all.end(), ids.begin(), ids.end());
  }
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
  EXPECT_NE(all.front(), 0U);
}

// As the description of device files says it.
TEST(SimulatedMachineTest, ThreadIDsAreChosenInTheOrderOfTheProcesses) {
  Process first = process(300);
  first.threads = {thread(), thread(), thread()};
  first.threads[1].id = 5;
  Process second = process(40);
  second.threads = {thread(), thread()};
  second.threads[0].id = 258;
  SimulatedMachine machine(device({first, zombie(41), second}));
  EXPECT_THAT(threadIDsOf(machine, 300), ElementsAre(257, 5, 259));
  EXPECT_THAT(threadIDsOf(machine, 40), ElementsAre(258, 261));
  machine.happen(ForkProcess{40, 42});
  EXPECT_THAT(threadIDsOf(machine, 42), ElementsAre(262, 263));
}

TEST(SimulatedMachineTest, FindsTheRegionAtAnAddressOrTheNext) {
  Process given = process(300);
  Region text = region(0x100000000, 0x8000);
  text.protection = 5;
  text.largestProtection = 5;
  text.inheritance = 2;
  text.flags = 2;
  text.offset = 0x4000;
  text.behaviour = 3;
  text.tag = 33;
  text.shareMode = darwin::SM_COW;
  text.references = 6;
  text.depth = 7;
  text.object = 8;
  text.wiredCount = 9;
  text.shadowDepth = 10;
  text.resident = Figure::growing(1, 1);
  text.privateResident = 4;
  text.sharedResident = 5;
  text.sharedNowPrivate = 6;
  text.swappedOut = 7;
  text.dirty = UINT64_MAX;
  text.path = std::string(2000, 'p');
  // Out of order in the description.
  given.regions = {region(0x100020000, 0x4000), text, region(0x100008000, 0x4000)};
  Device described = device({given, process(301)});
  described.kernel.pageSize = 4096;
  SimulatedMachine machine(described);
  machine.advance(2s);

  const auto addressAt = [&](uint64_t address) {
    darwin::proc_regionwithpathinfo info{};
    EXPECT_EQ(machine.region(300, address, info), kAnswered);
    return info.prp_prinfo.pri_address;
  };
  EXPECT_EQ(addressAt(0), 0x100000000U);
  EXPECT_EQ(addressAt(0x100000000), 0x100000000U);
  EXPECT_EQ(addressAt(0x100007FFF), 0x100000000U);
  EXPECT_EQ(addressAt(0x100008000), 0x100008000U);
  EXPECT_EQ(addressAt(0x10000C000), 0x100020000U);
  EXPECT_EQ(addressAt(0x100023FFF), 0x100020000U);
  darwin::proc_regionwithpathinfo info{};
  EXPECT_EQ(machine.region(300, 0x100024000, info), darwin::DARWIN_EINVAL);
  EXPECT_EQ(machine.region(300, UINT64_MAX, info), darwin::DARWIN_EINVAL);
  EXPECT_EQ(machine.region(301, 0, info), darwin::DARWIN_EINVAL);

  ASSERT_EQ(machine.region(300, 0x100000010, info), kAnswered);
  const darwin::proc_regioninfo &found = info.prp_prinfo;
  EXPECT_EQ(found.pri_size, 0x8000U);
  EXPECT_EQ(found.pri_protection, 5U);
  EXPECT_EQ(found.pri_max_protection, 5U);
  EXPECT_EQ(found.pri_inheritance, 2U);
  EXPECT_EQ(found.pri_flags, 2U);
  EXPECT_EQ(found.pri_offset, 0x4000U);
  EXPECT_EQ(found.pri_behavior, 3U);
  EXPECT_EQ(found.pri_user_tag, 33U);
  EXPECT_EQ(found.pri_share_mode, darwin::SM_COW);
  EXPECT_EQ(found.pri_ref_count, 6U);
  EXPECT_EQ(found.pri_depth, 7U);
  EXPECT_EQ(found.pri_obj_id, 8U);
  EXPECT_EQ(found.pri_user_wired_count, 9U);
  EXPECT_EQ(found.pri_shadow_depth, 10U);
  EXPECT_EQ(found.pri_pages_resident, 3U);
  EXPECT_EQ(found.pri_private_pages_resident, 4U);
  EXPECT_EQ(found.pri_shared_pages_resident, 5U);
  EXPECT_EQ(found.pri_pages_shared_now_private, 6U);
  EXPECT_EQ(found.pri_pages_swapped_out, 7U);
  EXPECT_EQ(found.pri_pages_dirtied, 8U) << "more than the region has";
  EXPECT_EQ(std::string(info.prp_vip.vip_path), std::string(1023, 'p'));
}

TEST(SimulatedMachineTest, ListsJetsamByBandAndThenByStart) {
  Process kernel = process(0);
  kernel.jetsam = Jetsam{};
  Process phone = process(30);
  phone.jetsam = Jetsam{10, 50, darwin::SIDL, 99};
  Process idle = process(20);
  idle.jetsam = Jetsam{0, -1, 0, 0};
  Process alsoIdle = process(25);
  alsoIdle.jetsam = Jetsam{0, 6, 0, 0};
  Process dead = zombie(26);
  dead.jetsam = Jetsam{};
  SimulatedMachine machine(device({kernel, phone, idle, process(24), alsoIdle, dead}));
  std::vector<darwin::memorystatus_priority_entry> entries;
  ASSERT_EQ(machine.memoryStatusList(entries), kAnswered);
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(entries[0].pid, 20);
  EXPECT_EQ(entries[0].limit, -1);
  EXPECT_EQ(entries[1].pid, 25);
  EXPECT_EQ(entries[1].limit, 6);
  EXPECT_EQ(entries[2].pid, 30);
  EXPECT_EQ(entries[2].priority, 10);
  EXPECT_EQ(entries[2].limit, 50);
  EXPECT_EQ(entries[2].state, 1U);
  EXPECT_EQ(entries[2].user_data, 99U);
}

Process inBand(int32_t pid, int32_t band) {
  Process made = process(pid);
  made.jetsam = Jetsam{band, 50, 0, 99};
  return made;
}

std::vector<darwin::memorystatus_priority_entry> jetsamListOf(SimulatedMachine &machine) {
  std::vector<darwin::memorystatus_priority_entry> entries;
  EXPECT_EQ(machine.memoryStatusList(entries), kAnswered);
  return entries;
}

TEST(SimulatedMachineTest, APlaceInTheMemoryStatusListIsKept) {
  SimulatedMachine machine(device({inBand(20, 0), inBand(21, 0), inBand(22, 0), inBand(30, 10)}));
  const auto order = [&] {
    std::vector<int32_t> pids;
    for (const auto &entry : jetsamListOf(machine)) pids.push_back(entry.pid);
    return pids;
  };
  ASSERT_EQ(machine.setMemoryStatusPlace(20, {12, false, 7}), kAnswered);
  EXPECT_THAT(order(), ElementsAre(21, 22, 30, 20));
  EXPECT_EQ(jetsamListOf(machine)[3].priority, 12);
  EXPECT_EQ(jetsamListOf(machine)[3].user_data, 7U);
  EXPECT_EQ(jetsamListOf(machine)[3].limit, 50);
  // The last of its band, or the first.
  EXPECT_EQ(machine.setMemoryStatusPlace(21, {0, false, 0}), kAnswered);
  EXPECT_THAT(order(), ElementsAre(22, 21, 30, 20));
  EXPECT_EQ(machine.setMemoryStatusPlace(30, {0, true, 0}), kAnswered);
  EXPECT_THAT(order(), ElementsAre(30, 22, 21, 20));
  EXPECT_EQ(machine.setMemoryStatusPlace(20, {0, true, 0}), kAnswered);
  EXPECT_THAT(order(), ElementsAre(20, 30, 22, 21));
}

TEST(SimulatedMachineTest, TheDefaultBandIsThatOfTheKernel) {
  Device given = device({inBand(20, 0)});
  for (const auto &[version, band] :
       {std::pair{"xnu-4903.1", 18}, std::pair{"xnu-8020.1", 18}, std::pair{"xnu-8792.1", 180}}) {
    given.kernel.version = version;
    SimulatedMachine machine(given);
    EXPECT_EQ(machine.setMemoryStatusPlace(20, {}), kAnswered);
    EXPECT_EQ(jetsamListOf(machine)[0].priority, band) << version;
  }
}

TEST(SimulatedMachineTest, MemoryLimitsAreKept) {
  Process given = inBand(20, 0);
  given.jetsam->inactiveLimit = 40;
  given.jetsam->limitAttributes = 1;
  SimulatedMachine machine(device({given}));
  darwin::memorystatus_memlimit_properties limits{};
  ASSERT_EQ(machine.memoryLimits(20, limits), kAnswered);
  EXPECT_EQ(limits.memlimit_active, 50);
  EXPECT_EQ(limits.memlimit_active_attr, 1U);
  EXPECT_EQ(limits.memlimit_inactive, 40);
  EXPECT_EQ(limits.memlimit_inactive_attr, 0U);

  ASSERT_EQ(machine.setMemoryLimits(20, {70, 0, 60, 1}), kAnswered);
  ASSERT_EQ(machine.memoryLimits(20, limits), kAnswered);
  EXPECT_EQ(limits.memlimit_active, 70);
  EXPECT_EQ(limits.memlimit_active_attr, 0U);
  EXPECT_EQ(limits.memlimit_inactive, 60);
  EXPECT_EQ(limits.memlimit_inactive_attr, 1U);
  EXPECT_EQ(jetsamListOf(machine)[0].limit, 70);
  EXPECT_EQ(jetsamListOf(machine)[0].user_data, 99U);

  for (const int32_t none : {0, -1, -5, INT32_MIN}) {
    ASSERT_EQ(machine.setMemoryLimits(20, {none, 0, none, 0}), kAnswered);
    ASSERT_EQ(machine.memoryLimits(20, limits), kAnswered);
    EXPECT_EQ(limits.memlimit_active, -1) << none;
    EXPECT_EQ(limits.memlimit_inactive, -1) << none;
    EXPECT_EQ(jetsamListOf(machine)[0].limit, -1) << none;
  }
}

TEST(SimulatedMachineTest, RefusesToChangeTheMemoryStatusOfSome) {
  Process dead = zombie(26);
  dead.jetsam = Jetsam{};
  SimulatedMachine machine(device({inBand(20, 0), process(24), dead}));
  darwin::memorystatus_memlimit_properties limits{};
  EXPECT_EQ(machine.setMemoryStatusPlace(4242, {}), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.memoryLimits(4242, limits), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.setMemoryLimits(4242, limits), darwin::DARWIN_ESRCH);
  // Those that are not in the list are the kernel's own.
  EXPECT_EQ(machine.setMemoryStatusPlace(24, {}), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.memoryLimits(24, limits), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.setMemoryLimits(24, limits), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.setMemoryStatusPlace(26, {}), darwin::DARWIN_EBUSY);
  EXPECT_EQ(machine.memoryLimits(26, limits), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.setMemoryLimits(26, limits), darwin::DARWIN_ESRCH);
  machine.happen(ExitProcess{20, 0, false});
  EXPECT_EQ(machine.setMemoryStatusPlace(20, {}), darwin::DARWIN_ESRCH);
}

TEST(SimulatedMachineTest, TellsTheLevelOfMemoryWhereItIsKnown) {
  Device given = device();
  unsigned int level = 0;
  SimulatedMachine silent(given);
  EXPECT_EQ(silent.memoryStatusLevel(level), darwin::DARWIN_ENOTSUP);
  given.memoryLevel = Figure::growing(90, 5);
  SimulatedMachine machine(given);
  EXPECT_EQ(machine.memoryStatusLevel(level), kAnswered);
  EXPECT_EQ(level, 90U);
  machine.advance(10s);
  EXPECT_EQ(machine.memoryStatusLevel(level), kAnswered);
  EXPECT_EQ(level, 100U);
}

TEST(SimulatedMachineTest, SaysItsName) {
  Device given = device();
  given.kernel.node = "phone";
  given.kernel.release = "19.0.0";
  given.kernel.version = "Darwin Kernel Version 19.0.0";
  given.kernel.hardware = "iPhone12,1";
  given.kernel.missing = {"proc_pid_rusage"};
  SimulatedMachine machine(given);
  KernelName name;
  EXPECT_EQ(machine.kernelName(name), kAnswered);
  EXPECT_EQ(name.system, "Darwin");
  EXPECT_EQ(name.node, "phone");
  EXPECT_EQ(name.release, "19.0.0");
  EXPECT_EQ(name.version, "Darwin Kernel Version 19.0.0");
  EXPECT_EQ(name.hardware, "iPhone12,1");
  EXPECT_TRUE(machine.hasEntryPoint("memorystatus_get_level"));
  EXPECT_FALSE(machine.hasEntryPoint("proc_pid_rusage"));
  EXPECT_FALSE(machine.hasEntryPoint("no_such_function"));
}

TEST(SimulatedMachineTest, CountsItsProcessors) {
  Device given = device();
  given.hardware.processors.resize(6);
  given.hardware.memory = uint64_t{6} << 30;
  SimulatedMachine machine(given);
  darwin::host_basic_info info{};
  ASSERT_EQ(machine.hostBasicInfo(info), kAnswered);
  EXPECT_EQ(info.max_cpus, 6);
  EXPECT_EQ(info.avail_cpus, 6);
  EXPECT_EQ(info.logical_cpu, 6);
  EXPECT_EQ(info.logical_cpu_max, 6);
  EXPECT_EQ(info.physical_cpu, 6);
  EXPECT_EQ(info.physical_cpu_max, 6);
  EXPECT_EQ(info.cpu_type, 0x0100000C);
  EXPECT_EQ(info.cpu_subtype, 2);
  EXPECT_EQ(info.memory_size, UINT32_MAX);
  EXPECT_EQ(info.max_mem, 6442450944U);
  unsigned int count = 0;
  EXPECT_EQ(machine.processorCount(count), kAnswered);
  EXPECT_EQ(count, 6U);

  given.hardware.logicalProcessors = 4;
  given.hardware.logicalProcessorsMost = 8;
  given.hardware.physicalProcessors = 2;
  given.hardware.physicalProcessorsMost = 3;
  SimulatedMachine other(given);
  ASSERT_EQ(other.hostBasicInfo(info), kAnswered);
  EXPECT_EQ(info.max_cpus, 8);
  EXPECT_EQ(info.avail_cpus, 4);
  EXPECT_EQ(info.logical_cpu, 4);
  EXPECT_EQ(info.logical_cpu_max, 8);
  EXPECT_EQ(info.physical_cpu, 2);
  EXPECT_EQ(info.physical_cpu_max, 3);
}

TEST(SimulatedMachineTest, CountsTicksIn32Bits) {
  Device given = device();
  Processor processor;
  processor.user = Figure::growing(UINT32_MAX - 10, 11);
  processor.system = 5;
  processor.idle = Figure::growing(0, 100);
  processor.nice = 7;
  given.hardware.processors = {Processor{}, processor};
  SimulatedMachine machine(given);
  machine.advance(3s);
  darwin::processor_cpu_load_info load{};
  ASSERT_EQ(machine.processorLoad(1, load), kAnswered);
  EXPECT_EQ(load.cpu_ticks[darwin::CPU_STATE_USER], 22U);
  EXPECT_EQ(load.cpu_ticks[darwin::CPU_STATE_SYSTEM], 5U);
  EXPECT_EQ(load.cpu_ticks[darwin::CPU_STATE_IDLE], 300U);
  EXPECT_EQ(load.cpu_ticks[darwin::CPU_STATE_NICE], 7U);
  EXPECT_EQ(machine.processorLoad(2, load), darwin::DARWIN_EINVAL);
}

TEST(SimulatedMachineTest, ADeviceWithoutProcessorsHasAnIdleOne) {
  SimulatedMachine machine(device());
  machine.advance(2s);
  unsigned int count = 0;
  EXPECT_EQ(machine.processorCount(count), kAnswered);
  EXPECT_EQ(count, 1U);
  darwin::processor_cpu_load_info load{};
  EXPECT_EQ(machine.processorLoad(0, load), kAnswered);
  EXPECT_EQ(load.cpu_ticks[darwin::CPU_STATE_IDLE], 200U);
}

TEST(SimulatedMachineTest, CountsPagesOfMemory) {
  Device given = device();
  host::simulator::Memory &memory = given.memory;
  Figure *const figures[] = {
      &memory.free,           &memory.active,      &memory.inactive,          &memory.wired,
      &memory.purgeable,      &memory.speculative, &memory.throttled,         &memory.external,
      &memory.internal,       &memory.compressor,  &memory.uncompressed,      &memory.compressions,
      &memory.decompressions, &memory.pageIns,     &memory.pageOuts,          &memory.swapIns,
      &memory.swapOuts,       &memory.faults,      &memory.copyOnWriteFaults, &memory.zeroFills,
      &memory.reactivations,  &memory.purges,      &memory.lookups,           &memory.hits};
  uint64_t value = 1;
  for (Figure *figure : figures) *figure = value++;
  memory.wired = UINT64_MAX;
  memory.faults = Figure::growing(18, 2);
  SimulatedMachine machine(given);
  machine.advance(1s);
  darwin::vm_statistics64 statistics{};
  ASSERT_EQ(machine.virtualMemory(statistics), kAnswered);
  EXPECT_EQ(statistics.free_count, 1U);
  EXPECT_EQ(statistics.active_count, 2U);
  EXPECT_EQ(statistics.inactive_count, 3U);
  EXPECT_EQ(statistics.wire_count, UINT32_MAX);
  EXPECT_EQ(statistics.purgeable_count, 5U);
  EXPECT_EQ(statistics.speculative_count, 6U);
  EXPECT_EQ(statistics.throttled_count, 7U);
  EXPECT_EQ(statistics.external_page_count, 8U);
  EXPECT_EQ(statistics.internal_page_count, 9U);
  EXPECT_EQ(statistics.compressor_page_count, 10U);
  EXPECT_EQ(statistics.total_uncompressed_pages_in_compressor, 11U);
  EXPECT_EQ(statistics.compressions, 12U);
  EXPECT_EQ(statistics.decompressions, 13U);
  EXPECT_EQ(statistics.pageins, 14U);
  EXPECT_EQ(statistics.pageouts, 15U);
  EXPECT_EQ(statistics.swapins, 16U);
  EXPECT_EQ(statistics.swapouts, 17U);
  EXPECT_EQ(statistics.faults, 20U);
  EXPECT_EQ(statistics.cow_faults, 19U);
  EXPECT_EQ(statistics.zero_fill_count, 20U);
  EXPECT_EQ(statistics.reactivations, 21U);
  EXPECT_EQ(statistics.purges, 22U);
  EXPECT_EQ(statistics.lookups, 23U);
  EXPECT_EQ(statistics.hits, 24U);
}

TEST(SimulatedMachineTest, SaysWhenItWasStarted) {
  Device given = device();
  given.clock.up = 100'500'000'000ns;
  SimulatedMachine machine(given);
  machine.advance(1000s);
  darwin::timeval boot{};
  ASSERT_EQ(machine.bootTime(boot), kAnswered);
  EXPECT_EQ(boot.tv_sec, 1'599'999'899);
  EXPECT_EQ(boot.tv_usec, 500'000);
}

TEST(SimulatedMachineTest, SaysItsLoad) {
  Device given = device();
  given.loadAverages = {1'500'000, Figure::growing(150'000, 50'000), UINT64_MAX};
  SimulatedMachine machine(given);
  machine.advance(2s);
  darwin::loadavg averages{};
  ASSERT_EQ(machine.loadAverage(averages), kAnswered);
  EXPECT_EQ(averages.ldavg[0], 3072U);
  EXPECT_EQ(averages.ldavg[1], 512U);
  EXPECT_EQ(averages.ldavg[2], UINT32_MAX);
  EXPECT_EQ(averages.fscale, 2048);
}

// Thousandths would not tell one part of 2048 from the next.
TEST(SimulatedMachineTest, SaysItsLoadExactly) {
  Device given = device();
  given.loadAverages = {5371, 5859, 99'999'512};  // 11, 12 and 204799 parts
  SimulatedMachine machine(given);
  darwin::loadavg averages{};
  ASSERT_EQ(machine.loadAverage(averages), kAnswered);
  EXPECT_EQ(averages.ldavg[0], 11U);
  EXPECT_EQ(averages.ldavg[1], 12U);
  EXPECT_EQ(averages.ldavg[2], 204'799U);
}

TEST(SimulatedMachineTest, SaysHowMuchIsSwapped) {
  Device given = device();
  SimulatedMachine without(given);
  darwin::xsw_usage usage{1, 1, 1, 1, 1};
  ASSERT_EQ(without.swapUsage(usage), kAnswered);
  EXPECT_EQ(usage.xsu_total, 0U);
  EXPECT_EQ(usage.xsu_avail, 0U);
  EXPECT_EQ(usage.xsu_used, 0U);
  EXPECT_EQ(usage.xsu_pagesize, 0U);
  EXPECT_EQ(usage.xsu_encrypted, 0);

  given.swap = Swap{1000, Figure::growing(300, 100), true};
  SimulatedMachine machine(given);
  machine.advance(1s);
  ASSERT_EQ(machine.swapUsage(usage), kAnswered);
  EXPECT_EQ(usage.xsu_total, 1000U);
  EXPECT_EQ(usage.xsu_used, 400U);
  EXPECT_EQ(usage.xsu_avail, 600U);
  EXPECT_EQ(usage.xsu_pagesize, 16384U);
  EXPECT_EQ(usage.xsu_encrypted, 1);
  machine.advance(100s);
  ASSERT_EQ(machine.swapUsage(usage), kAnswered);
  EXPECT_EQ(usage.xsu_used, 1000U);
  EXPECT_EQ(usage.xsu_avail, 0U);
}

TEST(SimulatedMachineTest, AnswersSeveralThreadsAtOnce) {
  Process busy = process(10);
  busy.threads = {busyThread(500), thread()};
  busy.descriptors = {descriptor(0, host::simulator::File{})};
  Device given = device({process(0), process(1), busy});
  given.clock.isStepped = false;
  Process brief = process(-1);
  brief.age = 0s;
  given.events = {at(0s, StartProcess{brief}, 3ms, 1ms), at(0s, StopProcess{10}, 500us, 1ms)};
  SimulatedMachine machine(given);
  std::atomic<size_t> answers{0};
  std::vector<std::thread> askers;
  for (int i = 0; i < 4; ++i) {
    askers.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        machine.beginSample();
        for (const int32_t pid : pidsOf(machine)) {
          if (bsdOf(machine, pid).pbi_pid == static_cast<uint32_t>(pid)) ++answers;
          threadOf(machine, pid);
          descriptorNumbersOf(machine, pid);
        }
        machine.timeOfDay();
        machine.isPrivileged();
        machine.hasEntryPoint("proc_pid_rusage");
        machine.callsOf("proc_pidinfo");
      }
    });
  }
  for (std::thread &asker : askers) asker.join();
  EXPECT_GE(answers, 800U);
  EXPECT_EQ(machine.callsOf("proc_listpids"), 800U);
}

}  // namespace
}  // namespace simulated_test
