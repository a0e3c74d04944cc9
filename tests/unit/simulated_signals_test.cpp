// Signals to the processes of a simulated device: who may send them, and what they do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/signals.h"
#include "simulated_device.h"

namespace simulated_test {
namespace {

using host::simulator::ContinueProcess;
using host::simulator::StopProcess;
using testing::ElementsAre;

Process owned(int32_t pid, uint32_t user) {
  Process made = process(pid);
  made.user = made.realUser = made.savedUser = user;
  return made;
}

Process inGroup(int32_t pid, int32_t group) {
  Process made = process(pid);
  made.group = group;
  return made;
}

uint32_t statusOf(SimulatedMachine &machine, int32_t pid) {
  return bsdOf(machine, pid).pbi_status;
}

TEST(SimulatedSignalsTest, EachHasItsDefaultAction) {
  constexpr int kStop[] = {17, 18, 21, 22};
  constexpr int kNothing[] = {0, 16, 19, 20, 23, 28, 29};
  for (int signal = 0; signal <= 31; ++signal) {
    SimulatedMachine machine(device({process(1), process(60)}));
    EXPECT_EQ(machine.sendSignal(60, signal), kAnswered) << signal;
    if (std::ranges::find(kStop, signal) != std::end(kStop)) {
      EXPECT_EQ(statusOf(machine, 60), darwin::SSTOP) << signal;
    } else if (std::ranges::find(kNothing, signal) != std::end(kNothing)) {
      EXPECT_EQ(statusOf(machine, 60), darwin::SRUN) << signal;
    } else {
      EXPECT_THAT(pidsOf(machine), ElementsAre(1)) << signal;
    }
  }
}

TEST(SimulatedSignalsTest, AStoppedProcessContinues) {
  Process sleeper = process(60);
  sleeper.status = darwin::SSLEEP;
  sleeper.faults = Figure::growing(0, 10);
  SimulatedMachine machine(device({process(1), sleeper}));
  EXPECT_EQ(machine.sendSignal(60, darwin::DARWIN_SIGSTOP), kAnswered);
  machine.advance(5s);
  EXPECT_EQ(taskOf(machine, 60).pti_faults, 0);
  EXPECT_EQ(machine.sendSignal(60, darwin::DARWIN_SIGCONT), kAnswered);
  EXPECT_EQ(statusOf(machine, 60), darwin::SSLEEP);
  machine.advance(1s);
  EXPECT_EQ(taskOf(machine, 60).pti_faults, 10);
}

TEST(SimulatedSignalsTest, AStoppedProcessEndsOnceItContinues) {
  SimulatedMachine machine(device({process(1), process(60), process(61), process(62)}));
  machine.happen(StopProcess{60});
  machine.happen(StopProcess{61}, 3s);
  machine.happen(StopProcess{62});
  EXPECT_EQ(machine.sendSignal(60, darwin::DARWIN_SIGTERM), kAnswered);
  EXPECT_EQ(machine.sendSignal(61, darwin::DARWIN_SIGHUP), kAnswered);
  EXPECT_EQ(machine.sendSignal(62, darwin::DARWIN_SIGKILL), kAnswered);
  EXPECT_THAT(pidsOf(machine), ElementsAre(61, 60, 1));
  machine.happen(ContinueProcess{60});
  EXPECT_THAT(pidsOf(machine), ElementsAre(61, 1));
  machine.advance(3s);
  EXPECT_THAT(pidsOf(machine), ElementsAre(1));
}

TEST(SimulatedSignalsTest, NumbersOutsideAreInvalid) {
  SimulatedMachine machine(device({process(60)}));
  for (const int signal : {-1, 32, std::numeric_limits<int>::max()}) {
    EXPECT_EQ(machine.sendSignal(60, signal), darwin::DARWIN_EINVAL);
    EXPECT_EQ(machine.sendSignal(77, signal), darwin::DARWIN_EINVAL);
    EXPECT_EQ(machine.sendSignal(-1, signal), darwin::DARWIN_EINVAL);
  }
}

TEST(SimulatedSignalsTest, ZombiesTakeAnySignal) {
  SimulatedMachine machine(device({process(1), zombie(60, 5)}));
  EXPECT_EQ(machine.sendSignal(60, darwin::DARWIN_SIGKILL), kAnswered);
  EXPECT_THAT(pidsOf(machine), ElementsAre(1, 60));
  EXPECT_EQ(machine.sendSignal(61, 0), darwin::DARWIN_ESRCH);
}

TEST(SimulatedSignalsTest, LaunchdAndTheKernelStay) {
  SimulatedMachine machine(device({process(0, "kernel_task"), process(1)}));
  EXPECT_EQ(machine.sendSignal(1, darwin::DARWIN_SIGKILL), darwin::DARWIN_EPERM);
  for (const int signal : {0, 15, 17, 19}) EXPECT_EQ(machine.sendSignal(1, signal), kAnswered);
  EXPECT_EQ(statusOf(machine, 1), darwin::SRUN);
  EXPECT_EQ(machine.sendSignal(0, 0), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.sendSignal(0, darwin::DARWIN_SIGKILL), darwin::DARWIN_EPERM);
  EXPECT_THAT(pidsOf(machine), ElementsAre(1, 0));
}

TEST(SimulatedSignalsTest, OthersProcessesAreRootsAlone) {
  Process changed = owned(63, 0);
  changed.realUser = 501;
  Process saved = owned(64, 0);
  saved.savedUser = 501;
  Process effective = owned(65, 0);
  effective.user = 501;
  Device given =
      device({process(1), owned(60, 501), owned(61, 0), owned(62, 502), changed, saved, effective});
  given.caller = 501;
  SimulatedMachine machine(given);
  EXPECT_EQ(machine.sendSignal(60, 0), kAnswered);
  EXPECT_EQ(machine.sendSignal(61, 0), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.sendSignal(62, darwin::DARWIN_SIGKILL), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.sendSignal(63, 0), kAnswered);
  EXPECT_EQ(machine.sendSignal(64, 0), kAnswered);
  EXPECT_EQ(machine.sendSignal(65, 0), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.sendSignal(1, 0), darwin::DARWIN_EPERM);
  EXPECT_EQ(pidsOf(machine).size(), 7U);
}

TEST(SimulatedSignalsTest, AGroupIsReachedAsAWhole) {
  Process system = inGroup(63, 60);
  system.flags = darwin::PROC_FLAG_SYSTEM;
  SimulatedMachine machine(
      device({process(1), inGroup(60, 60), inGroup(61, 60), inGroup(62, 62), system, process(64)}));
  EXPECT_EQ(machine.sendSignal(-60, 0), kAnswered);
  EXPECT_EQ(machine.sendSignal(-60, darwin::DARWIN_SIGTERM), kAnswered);
  EXPECT_THAT(pidsOf(machine), ElementsAre(64, 63, 62, 1));
  // Without a group of its own it is one by itself.
  EXPECT_EQ(machine.sendSignal(-64, darwin::DARWIN_SIGSTOP), kAnswered);
  EXPECT_EQ(statusOf(machine, 64), darwin::SSTOP);
  // What is left of the first group can't be reached.
  EXPECT_EQ(machine.sendSignal(-60, 0), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.sendSignal(-77, 0), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.sendSignal(std::numeric_limits<pid_t>::min(), 0), darwin::DARWIN_ESRCH);
}

TEST(SimulatedSignalsTest, AllAreReachedButTheSystem) {
  Process system = process(2);
  system.flags = darwin::PROC_FLAG_SYSTEM;
  Device given = device({process(0), process(1), system, owned(60, 501), owned(61, 0)});
  SimulatedMachine rootsMachine(given);
  EXPECT_EQ(rootsMachine.sendSignal(-1, darwin::DARWIN_SIGKILL), kAnswered);
  EXPECT_THAT(pidsOf(rootsMachine), ElementsAre(2, 1, 0));
  EXPECT_EQ(rootsMachine.sendSignal(-1, darwin::DARWIN_SIGKILL), darwin::DARWIN_EPERM);

  given.caller = 501;
  SimulatedMachine machine(given);
  EXPECT_EQ(machine.sendSignal(-1, darwin::DARWIN_SIGKILL), kAnswered);
  EXPECT_THAT(pidsOf(machine), ElementsAre(61, 2, 1, 0));
}

}  // namespace
}  // namespace simulated_test
