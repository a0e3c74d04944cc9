// What happens on a simulated device, and when.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "simulated_device.h"

namespace simulated_test {
namespace {

using host::simulator::ChangePower;
using host::simulator::ChangeProcess;
using host::simulator::CloseDescriptor;
using host::simulator::ContinueProcess;
using host::simulator::ExecProcess;
using host::simulator::ExitProcess;
using host::simulator::File;
using host::simulator::ForkProcess;
using host::simulator::Jetsam;
using host::simulator::LastPressure;
using host::simulator::OpenDescriptor;
using host::simulator::Power;
using host::simulator::PowerSource;
using host::simulator::RaisePressure;
using host::simulator::StartProcess;
using host::simulator::StopProcess;
using testing::ElementsAre;

Device deviceWith(std::vector<Process> processes, std::vector<Event> events) {
  Device made = device(std::move(processes));
  made.events = std::move(events);
  return made;
}

// A process that runs all the time. Its counts grow by one a millisecond, its memory by a page a
// second.
Process worker(int32_t pid) {
  Process made = process(pid, "worker");
  made.residentSize = Figure::growing(5 * kPage, kPage);
  made.faults = Figure::growing(100, 1000);
  made.userTime = Figure::growing(0, 1'000'000'000);
  made.threads = {busyThread(1000)};
  made.threads[0].userTime = Figure::growing(0, 1'000'000'000);
  return made;
}

Process unnumbered(Process given) {
  given.pid = -1;
  given.age = 0s;
  return given;
}

TEST(SimulatedEventsTest, AProcessStartsAndEnds) {
  SimulatedMachine machine(
      deviceWith({process(1), process(40)}, {at(2s, StartProcess{unnumbered(worker(0))}, 3s)}));
  machine.advance(1999ms);
  EXPECT_THAT(pidsOf(machine), ElementsAre(40, 1));
  machine.advance(1ms);
  EXPECT_THAT(pidsOf(machine), ElementsAre(41, 40, 1));
  EXPECT_EQ(bsdOf(machine, 41).pbi_start_tvsec, static_cast<uint64_t>(kStart) + 2);
  EXPECT_EQ(taskOf(machine, 41).pti_faults, 100);
  EXPECT_EQ(usageOf(machine, 41).ri_proc_start_abstime, uint64_t{86'402} * 24'000'000);
  machine.advance(2s);
  EXPECT_EQ(taskOf(machine, 41).pti_faults, 2100);
  EXPECT_EQ(taskOf(machine, 41).pti_total_user, 48'000'000U);
  machine.advance(999ms);
  EXPECT_THAT(pidsOf(machine), ElementsAre(41, 40, 1));
  machine.advance(1ms);
  EXPECT_THAT(pidsOf(machine), ElementsAre(40, 1));
}

// However late it is asked: an answer is as if it had been asked all the time.
TEST(SimulatedEventsTest, AnEventIsAsOfItsOwnTime) {
  SimulatedMachine machine(deviceWith(
      {process(1)},
      {at(2s, StartProcess{worker(50)}), at(4s, StopProcess{50}), at(7s, ContinueProcess{50})}));
  machine.advance(10s);
  EXPECT_EQ(taskOf(machine, 50).pti_faults, 5100);  // 2 s and 3 s
}

TEST(SimulatedEventsTest, EventsHappenInTheirOrder) {
  SimulatedMachine machine(
      deviceWith({process(1)}, {at(3s, StartProcess{unnumbered(process(0, "third"))}),
                                at(1s, StartProcess{unnumbered(process(0, "first"))}),
                                at(1s, StartProcess{unnumbered(process(0, "second"))})}));
  machine.advance(5s);
  EXPECT_STREQ(bsdOf(machine, 2).pbi_comm, "first");
  EXPECT_STREQ(bsdOf(machine, 3).pbi_comm, "second");
  EXPECT_STREQ(bsdOf(machine, 4).pbi_comm, "third");
}

TEST(SimulatedEventsTest, WithAStepEventsHappenBetweenSamples) {
  SimulatedMachine machine(deviceWith(
      {process(1)}, {at(500ms, StartProcess{process(50)}), at(0s, StartProcess{process(49)})}));
  machine.beginSample();
  EXPECT_THAT(pidsOf(machine), ElementsAre(49, 1));
  machine.beginSample();
  EXPECT_THAT(pidsOf(machine), ElementsAre(50, 49, 1));
}

TEST(SimulatedEventsTest, AProcessWithAPidInUseDoesNotStart) {
  SimulatedMachine machine(deviceWith({process(1), process(50, "old")}, {}));
  machine.happen(StartProcess{process(50, "new")});
  machine.happen(StartProcess{process(100000)});
  EXPECT_THAT(pidsOf(machine), ElementsAre(50, 1));
  EXPECT_STREQ(bsdOf(machine, 50).pbi_comm, "old");
  Process impossible = process(51);
  impossible.descriptors = {descriptor(3, File{}), descriptor(3, File{})};
  machine.happen(StartProcess{impossible});
  EXPECT_THAT(pidsOf(machine), ElementsAre(50, 1));
}

TEST(SimulatedEventsTest, PidsBeginAgainAfterTheLargest) {
  SimulatedMachine machine(device({process(1), process(100), process(99998)}));
  for (int i = 0; i < 4; ++i) machine.happen(StartProcess{unnumbered(process(0))});
  EXPECT_THAT(pidsOf(machine), ElementsAre(103, 102, 101, 99999, 99998, 100, 1));
}

TEST(SimulatedEventsTest, AProcessExits) {
  Process child = process(51);
  child.parent = 50;
  SimulatedMachine machine(device({process(1), process(50), child}));
  machine.happen(ExitProcess{50, 3});
  EXPECT_THAT(pidsOf(machine), ElementsAre(51, 1));
  EXPECT_EQ(bsdOf(machine, 51).pbi_ppid, 1U);
  darwin::proc_bsdinfo info{};
  EXPECT_EQ(machine.bsdInfo(50, true, info), darwin::DARWIN_ESRCH);
  machine.happen(ExitProcess{50});
  EXPECT_THAT(pidsOf(machine), ElementsAre(51, 1));
}

TEST(SimulatedEventsTest, AProcessBecomesAZombieUntilItIsWaitedFor) {
  Process child = process(51);
  child.parent = 50;
  Process parent = worker(50);
  parent.descriptors = {descriptor(0, File{})};
  SimulatedMachine machine(
      deviceWith({process(1), parent, child, process(52)}, {at(2s, ExitProcess{50, 0x700, true})}));
  machine.advance(5s);
  EXPECT_THAT(pidsOf(machine), ElementsAre(52, 51, 1, 50));
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SZOMB);
  EXPECT_EQ(bsdOf(machine, 50).pbi_xstatus, 0x700U);
  EXPECT_EQ(bsdOf(machine, 51).pbi_ppid, 1U);
  EXPECT_EQ(usageOf(machine, 50).ri_user_time, 48'000'000U);
  EXPECT_EQ(usageOf(machine, 50).ri_proc_exit_abstime, uint64_t{86'402} * 24'000'000);
  darwin::proc_taskallinfo task{};
  EXPECT_EQ(machine.taskAllInfo(50, task), darwin::DARWIN_ESRCH);
  // Nothing more happens to it, and its PID is not free.
  machine.happen(StopProcess{50});
  machine.happen(ForkProcess{50});
  machine.happen(StartProcess{process(50)});
  machine.happen(OpenDescriptor{50, descriptor(-1, File{})});
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SZOMB);
  EXPECT_THAT(pidsOf(machine), ElementsAre(52, 51, 1, 50));
  machine.happen(ExitProcess{50});
  EXPECT_THAT(pidsOf(machine), ElementsAre(52, 51, 1));
}

std::array<uint64_t, 2> coalitionsOf(SimulatedMachine &machine, int32_t pid) {
  darwin::proc_pidcoalitioninfo info{};
  EXPECT_EQ(machine.coalition(pid, info), kAnswered);
  return {info.coalition_id[0], info.coalition_id[1]};
}

TEST(SimulatedEventsTest, CoalitionsAreAProcesssOwnOrThoseThatItIsForkedInto) {
  Process parent = worker(50);
  parent.coalitions = std::array<uint64_t, 2>{7, 8};
  Process started = worker(-1);
  SimulatedMachine machine(deviceWith(
      {process(1), parent},
      {at(1s, ForkProcess{50, 60}), at(1s, ForkProcess{1, 61}), at(1s, StartProcess{started})}));
  machine.advance(2s);
  EXPECT_THAT(coalitionsOf(machine, 1), ElementsAre(1, 1));
  EXPECT_THAT(coalitionsOf(machine, 60), ElementsAre(7, 8));
  EXPECT_THAT(coalitionsOf(machine, 61), ElementsAre(1, 1));
  EXPECT_THAT(coalitionsOf(machine, 62), ElementsAre(62, 62));
}

TEST(SimulatedEventsTest, AChosenPidIsPutIntoTheTextsOfAProcess) {
  Process started = worker(-1);
  started.path = "/bin/{pid}";
  started.arguments = {"a", "-{pid}-{pid}"};
  File opened;
  opened.path = "/tmp/{pid}";
  started.descriptors = {descriptor(0, opened)};
  SimulatedMachine machine(deviceWith({process(1)}, {at(1s, StartProcess{started}, {}, 1s)}));
  machine.advance(2500ms);
  for (const int32_t pid : {2, 3}) {
    const std::string number = std::to_string(pid);
    std::string path;
    EXPECT_EQ(machine.executablePath(pid, path), kAnswered);
    EXPECT_EQ(path, "/bin/" + number);
    host::ProcessArguments arguments;
    EXPECT_EQ(machine.arguments(pid, arguments), kAnswered);
    EXPECT_THAT(arguments.arguments, ElementsAre("a", "-" + number + "-" + number));
    darwin::vnode_fdinfowithpath file{};
    EXPECT_EQ(machine.vnodeDescriptor(pid, 0, file), kAnswered);
    EXPECT_EQ(std::string(file.pvip.vip_path), "/tmp/" + number);
  }
}

TEST(SimulatedEventsTest, AProcessForks) {
  Process parent = worker(50);
  parent.group = 40;
  parent.user = 501;
  parent.jetsam = Jetsam{3, 20, 0, 0};
  parent.usage->diskRead = Figure::growing(0, 10);
  Descriptor open = descriptor(2, File{});
  open.offset = Figure::growing(0, 100);
  parent.descriptors = {open};
  SimulatedMachine machine(deviceWith({process(1), parent}, {at(3s, ForkProcess{50})}));
  machine.advance(5s);
  EXPECT_THAT(pidsOf(machine), ElementsAre(51, 50, 1));
  const darwin::proc_bsdinfo child = bsdOf(machine, 51);
  EXPECT_STREQ(child.pbi_comm, "worker");
  EXPECT_EQ(child.pbi_ppid, 50U);
  EXPECT_EQ(child.pbi_pgid, 40U);
  EXPECT_EQ(child.pbi_uid, 501U);
  EXPECT_EQ(child.pbi_start_tvsec, static_cast<uint64_t>(kStart) + 3);
  // What it has goes on from where its parent was; what it used begins with it.
  const darwin::proc_taskinfo task = taskOf(machine, 51);
  EXPECT_EQ(task.pti_resident_size, 10 * kPage);
  EXPECT_EQ(task.pti_faults, 2000);
  EXPECT_EQ(task.pti_total_user, 48'000'000U);
  EXPECT_EQ(task.pti_threads_user, 48'000'000U);
  EXPECT_EQ(usageOf(machine, 51).ri_diskio_bytesread, 20U);
  EXPECT_EQ(usageOf(machine, 50).ri_diskio_bytesread, 50U);
  EXPECT_THAT(descriptorNumbersOf(machine, 51), ElementsAre(2));
  darwin::vnode_fdinfowithpath vnode{};
  EXPECT_EQ(machine.vnodeDescriptor(51, 2, vnode), kAnswered);
  EXPECT_EQ(vnode.pfi.fi_offset, 500);
  std::vector<darwin::memorystatus_priority_entry> entries;
  EXPECT_EQ(machine.memoryStatusList(entries), kAnswered);
  EXPECT_EQ(entries.size(), 2U);
  EXPECT_NE(threadIDsOf(machine, 50), threadIDsOf(machine, 51));
}

TEST(SimulatedEventsTest, AChildCanBeGivenAPid) {
  SimulatedMachine machine(device({process(1), process(50)}));
  machine.happen(ForkProcess{50, 70});
  machine.happen(ForkProcess{50, 70});
  machine.happen(ForkProcess{77, 80});
  EXPECT_THAT(pidsOf(machine), ElementsAre(70, 50, 1));
  EXPECT_EQ(bsdOf(machine, 70).pbi_pgid, 50U);
  machine.happen(ForkProcess{50});
  EXPECT_THAT(pidsOf(machine), ElementsAre(71, 70, 50, 1));
}

TEST(SimulatedEventsTest, AProcessExecutesAnotherProgram) {
  Process before = process(50, "before");
  before.longName = "long before";
  before.environment = {"HOME=/"};
  SimulatedMachine machine(device({before}));
  machine.happen(ExecProcess{50, "after", "/bin/after", {"after", "-x"}});
  const darwin::proc_bsdinfo info = bsdOf(machine, 50);
  EXPECT_STREQ(info.pbi_comm, "after");
  EXPECT_STREQ(info.pbi_name, "after");
  EXPECT_NE(info.pbi_flags & darwin::PROC_FLAG_EXEC, 0U);
  host::ProcessArguments arguments;
  ASSERT_EQ(machine.arguments(50, arguments), kAnswered);
  EXPECT_EQ(arguments.path, "/bin/after");
  EXPECT_THAT(arguments.arguments, ElementsAre("after", "-x"));
  EXPECT_THAT(arguments.environment, ElementsAre("HOME=/"));
  std::string path;
  EXPECT_EQ(machine.executablePath(50, path), kAnswered);
  EXPECT_EQ(path, "/bin/after");
}

TEST(SimulatedEventsTest, AStoppedProcessStandsStill) {
  SimulatedMachine machine(
      deviceWith({worker(50)}, {at(2s, StopProcess{50}), at(5s, ContinueProcess{50})}));
  machine.advance(3s);
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SSTOP);
  EXPECT_EQ(taskOf(machine, 50).pti_faults, 2100);
  EXPECT_EQ(taskOf(machine, 50).pti_numrunning, 0);
  EXPECT_EQ(threadOf(machine, 50).pth_run_state, darwin::TH_STATE_STOPPED);
  EXPECT_EQ(threadOf(machine, 50).pth_cpu_usage, 0);
  EXPECT_EQ(threadOf(machine, 50).pth_user_time, 2'000'000'000U);
  machine.advance(1s);
  EXPECT_EQ(taskOf(machine, 50).pti_faults, 2100);
  machine.advance(2s);
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SRUN);
  EXPECT_EQ(taskOf(machine, 50).pti_faults, 3100);
  EXPECT_EQ(taskOf(machine, 50).pti_numrunning, 1);
  EXPECT_EQ(threadOf(machine, 50).pth_run_state, darwin::TH_STATE_RUNNING);
  EXPECT_EQ(threadOf(machine, 50).pth_cpu_usage, 1000);
}

TEST(SimulatedEventsTest, AProcessCanBeStoppedFromTheStart) {
  Process stopped = worker(50);
  stopped.status = darwin::SSTOP;
  SimulatedMachine machine(deviceWith({stopped}, {at(4s, ContinueProcess{50})}));
  machine.advance(4s);
  EXPECT_EQ(taskOf(machine, 50).pti_faults, 100);
  machine.advance(1s);
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SRUN);
  EXPECT_EQ(taskOf(machine, 50).pti_faults, 1100);
}

TEST(SimulatedEventsTest, AStopThatLastsEndsOnlyItself) {
  Process sleeper = worker(50);
  sleeper.status = darwin::SSLEEP;
  SimulatedMachine machine(
      deviceWith({sleeper}, {at(1s, StopProcess{50}, 4s), at(2s, ContinueProcess{50}),
                             at(3s, StopProcess{50}), at(3500ms, StopProcess{50}, 1s)}));
  machine.advance(1500ms);
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SSTOP);
  machine.advance(1s);
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SSLEEP);
  machine.advance(10s);
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SSTOP);
  machine.happen(ContinueProcess{50});
  machine.happen(StopProcess{50}, 2s);
  machine.advance(1s);
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SSTOP);
  machine.advance(1s);
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SSLEEP);
}

TEST(SimulatedEventsTest, AStopThatComesAgainComesAgain) {
  SimulatedMachine machine(deviceWith({worker(50)}, {at(0s, StopProcess{50}, 1s, 2s)}));
  machine.advance(10s);
  EXPECT_EQ(bsdOf(machine, 50).pbi_status, darwin::SSTOP);
  EXPECT_EQ(taskOf(machine, 50).pti_faults, 5100);
  // The next one begins in the moment in which the last one ends.
  SimulatedMachine still(deviceWith({worker(50)}, {at(0s, StopProcess{50}, 2s, 2s)}));
  still.advance(11s);
  EXPECT_EQ(bsdOf(still, 50).pbi_status, darwin::SSTOP);
  EXPECT_EQ(taskOf(still, 50).pti_faults, 100);
}

TEST(SimulatedEventsTest, WhatLastsEndsNothingThatCameAfterIt) {
  SimulatedMachine machine(deviceWith(
      {process(1)}, {at(0s, StartProcess{process(50, "first")}, 5s), at(1s, ExitProcess{50}),
                     at(2s, StartProcess{process(50, "second")})}));
  machine.advance(10s);
  EXPECT_STREQ(bsdOf(machine, 50).pbi_comm, "second");

  SimulatedMachine other(deviceWith(
      {process(1)},
      {at(0s, OpenDescriptor{1, descriptor(3, File{})}, 5s), at(1s, CloseDescriptor{1, 3}),
       at(2s, OpenDescriptor{1, descriptor(3, File{})})}));
  other.advance(10s);
  EXPECT_THAT(descriptorNumbersOf(other, 1), ElementsAre(3));
}

TEST(SimulatedEventsTest, AStartComesAgainWithAnotherPid) {
  SimulatedMachine machine(
      deviceWith({process(1)}, {at(1s, StartProcess{unnumbered(process(0))}, 1500ms, 1s)}));
  machine.advance(3s);
  EXPECT_THAT(pidsOf(machine), ElementsAre(4, 3, 1));
  machine.advance(1s);
  EXPECT_THAT(pidsOf(machine), ElementsAre(5, 4, 1));
}

TEST(SimulatedEventsTest, AfterALongTimeOnlyTheLastThousandHappen) {
  SimulatedMachine machine(deviceWith(
      {process(1)}, {at(0s, StartProcess{unnumbered(process(0))}, std::nullopt, 100ms)}));
  machine.advance(24h * 365);
  const std::vector<int32_t> pids = pidsOf(machine);
  EXPECT_EQ(pids.size(), 1001U);
  EXPECT_EQ(pids.front(), 1001);
  EXPECT_EQ(bsdOf(machine, 1001).pbi_start_tvsec, static_cast<uint64_t>(kStart) + 31'536'000);
  EXPECT_EQ(bsdOf(machine, 2).pbi_start_tvsec, static_cast<uint64_t>(kStart) + 31'535'900);
  EXPECT_EQ(bsdOf(machine, 2).pbi_start_tvusec, 100'000U);
  // And those that are due next.
  machine.advance(100ms);
  EXPECT_EQ(pidsOf(machine).front(), 1002);
  machine.advance(Nanoseconds::max());
  EXPECT_EQ(pidsOf(machine).size(), 2002U);
}

TEST(SimulatedEventsTest, ADeviceDoesNotGrowForEver) {
  SimulatedMachine machine(deviceWith({process(1)}, {at(0s, ForkProcess{1}, std::nullopt, 1ms)}));
  for (int second = 0; second < 21; ++second) machine.advance(1s);
  EXPECT_EQ(pidsOf(machine).size(), 20'000U);
  machine.happen(StartProcess{process(77'777)});
  EXPECT_EQ(pidsOf(machine).size(), 20'000U);
  machine.happen(ExitProcess{500});
  machine.happen(StartProcess{process(77'777)});
  EXPECT_EQ(pidsOf(machine).front(), 77'777);
}

TEST(SimulatedEventsTest, NorDoItsThreadsAndDescriptors) {
  Process large = process(1);
  large.threads = std::vector<Thread>(4096, thread());
  large.descriptors.resize(3, descriptor(-1, File{}));
  SimulatedMachine machine(device({large}));
  for (int i = 0; i < 70; ++i) machine.happen(ForkProcess{1});
  // 61 times 4096 threads are 249,856.
  EXPECT_EQ(pidsOf(machine).size(), 61U);
  ChangeProcess more;
  more.pid = 2;
  more.threads = std::vector<Thread>(4096 + 144, thread());
  machine.happen(more);
  EXPECT_EQ(taskOf(machine, 2).pti_threadnum, 4240);
  more.pid = 3;
  more.threads = std::vector<Thread>(4097, thread());
  machine.happen(more);
  EXPECT_EQ(taskOf(machine, 3).pti_threadnum, 4096);
  machine.happen(ExitProcess{2, 0, true});
  machine.happen(more);
  EXPECT_EQ(taskOf(machine, 3).pti_threadnum, 4097);
}

TEST(SimulatedEventsTest, AProcessChanges) {
  Process given = worker(50);
  given.usage->diskRead = Figure::growing(0, 100);
  given.jetsam = Jetsam{};
  SimulatedMachine machine(device({given}));
  machine.advance(10s);
  ChangeProcess change;
  change.pid = 50;
  change.virtualSize = 90 * kPage;
  change.residentSize = 7 * kPage;
  change.diskRead = 50;
  change.diskWritten = 60;
  change.priority = 47;
  change.band = 12;
  change.limit = 30;
  change.jetsamState = 5;
  change.sandboxed = 1;
  change.codeSigningFlags = 0x1001;
  change.applicationState = 3;
  machine.happen(change);
  // The growth goes on.
  machine.advance(2s);
  EXPECT_EQ(taskOf(machine, 50).pti_virtual_size, 90 * kPage);
  EXPECT_EQ(taskOf(machine, 50).pti_resident_size, 9 * kPage);
  EXPECT_EQ(taskOf(machine, 50).pti_faults, 12'100);
  EXPECT_EQ(taskOf(machine, 50).pti_priority, 47);
  EXPECT_EQ(usageOf(machine, 50).ri_diskio_bytesread, 250U);
  EXPECT_EQ(usageOf(machine, 50).ri_diskio_byteswritten, 60U);
  std::vector<darwin::memorystatus_priority_entry> entries;
  ASSERT_EQ(machine.memoryStatusList(entries), kAnswered);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].priority, 12);
  EXPECT_EQ(entries[0].limit, 30);
  EXPECT_EQ(entries[0].state, 5U);
  EXPECT_EQ(machine.sandboxCheck(50), 1);
  uint32_t flags = 0;
  EXPECT_EQ(machine.codeSigningFlags(50, flags), kAnswered);
  EXPECT_EQ(flags, 0x1001U);
  int32_t state = 0;
  EXPECT_EQ(machine.applicationState(50, state), kAnswered);
  EXPECT_EQ(state, 3);

  ChangeProcess nothing;
  nothing.pid = 50;
  machine.happen(nothing);
  EXPECT_EQ(taskOf(machine, 50).pti_priority, 47);
  EXPECT_EQ(taskOf(machine, 50).pti_resident_size, 9 * kPage);
}

TEST(SimulatedEventsTest, AProcessGetsOtherThreads) {
  SimulatedMachine machine(device({worker(50)}));
  const std::vector<uint64_t> before = threadIDsOf(machine, 50);
  machine.advance(5s);
  ChangeProcess change;
  change.pid = 50;
  change.threads = {busyThread(100), thread("idle")};
  (*change.threads)[0].userTime = Figure::growing(0, 100'000'000);
  (*change.threads)[1].id = before[0];
  machine.happen(change);
  machine.advance(2s);
  EXPECT_EQ(taskOf(machine, 50).pti_threadnum, 2);
  // Their time begins with them.
  EXPECT_EQ(threadOf(machine, 50, 0).pth_user_time, 200'000'000U);
  EXPECT_STREQ(threadOf(machine, 50, 1).pth_name, "idle");
  // An ID belongs to one thread only, also after its end.
  darwin::proc_threadinfo info{};
  EXPECT_EQ(machine.threadInfoByID(50, before[0], info), darwin::DARWIN_ESRCH);
}

TEST(SimulatedEventsTest, ADescriptorIsOpenForAWhile) {
  Descriptor open = descriptor(-1, File{});
  open.offset = Figure::growing(10, 100);
  SimulatedMachine machine(deviceWith({process(50)}, {at(1s, OpenDescriptor{50, open}, 2s)}));
  machine.advance(2s);
  darwin::vnode_fdinfowithpath info{};
  ASSERT_EQ(machine.vnodeDescriptor(50, 0, info), kAnswered);
  EXPECT_EQ(info.pfi.fi_offset, 110);
  machine.advance(1s);
  EXPECT_EQ(machine.vnodeDescriptor(50, 0, info), darwin::DARWIN_EBADF);
}

TEST(SimulatedEventsTest, MemoryRunsShort) {
  Device given = deviceWith(
      {}, {at(1s, RaisePressure{500, 300, 12}), at(2s, RaisePressure{600, 0, std::nullopt})});
  given.memoryLevel = Figure::growing(80, 1);
  SimulatedMachine machine(given);
  EXPECT_FALSE(machine.lastPressure().has_value());
  machine.advance(1500ms);
  unsigned int level = 0;
  EXPECT_EQ(machine.memoryStatusLevel(level), kAnswered);
  EXPECT_EQ(level, 12U);
  std::optional<LastPressure> last = machine.lastPressure();
  ASSERT_TRUE(last.has_value());
  EXPECT_EQ(last->at, 1s);
  EXPECT_EQ(last->times, 1U);
  EXPECT_EQ(last->wantedPages, 500U);
  EXPECT_EQ(last->reclaimedPages, 300U);
  machine.advance(10s);
  last = machine.lastPressure();
  EXPECT_EQ(last->at, 2s);
  EXPECT_EQ(last->times, 2U);
  EXPECT_EQ(last->wantedPages, 600U);
  EXPECT_EQ(last->reclaimedPages, 0U);
  EXPECT_EQ(machine.memoryStatusLevel(level), kAnswered);
  EXPECT_EQ(level, 12U);
}

TEST(SimulatedEventsTest, ThePowerChanges) {
  ChangePower unplug;
  unplug.source = 1;
  unplug.capacity = 70;
  unplug.state = "Battery Power";
  unplug.isCharging = false;
  unplug.secondsRemaining = 3600;
  Device given = deviceWith({}, {at(1s, unplug)});
  SimulatedMachine without(given);
  without.advance(2s);
  EXPECT_FALSE(without.power().has_value());

  given.power = Power{};
  given.power->sources = {PowerSource{50, "AC Power", true}, PowerSource{}};
  SimulatedMachine machine(given);
  EXPECT_EQ(machine.power()->secondsRemaining, -1);
  machine.advance(2s);
  const std::optional<Power> power = machine.power();
  ASSERT_TRUE(power.has_value());
  EXPECT_EQ(power->secondsRemaining, 3600);
  EXPECT_EQ(power->sources[0].capacity, 50);
  EXPECT_EQ(power->sources[1].capacity, 70);
  EXPECT_EQ(power->sources[1].state, "Battery Power");
  EXPECT_EQ(power->sources[1].isCharging, false);
  unplug.source = 9;
  machine.happen(unplug);
  EXPECT_EQ(machine.power()->sources.size(), 2U);
}

}  // namespace
}  // namespace simulated_test
