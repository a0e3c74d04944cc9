// Waits on a simulated device: for memory pressure, and for what happens to processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "darwin/kqueue.h"
#include "darwin/signals.h"
#include "host/darwin/errors.h"
#include "simulated_device.h"

namespace simulated_test {
namespace {

using host::ProcessEvent;
using host::ProcessEvents;
using host::simulator::ExecProcess;
using host::simulator::ExitProcess;
using host::simulator::ForkProcess;
using host::simulator::RaisePressure;
using host::simulator::StartProcess;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::chrono::seconds kPatience{60};

Device onTheWall(std::vector<Process> processes, std::vector<Event> events = {}) {
  Device made = device(std::move(processes));
  made.clock.isStepped = false;
  made.events = std::move(events);
  return made;
}

struct Pressure {
  Errno error = -1;
  uint32_t wanted = 0;
  uint32_t reclaimed = 0;

  bool operator==(const Pressure &) const = default;
};
void PrintTo(const Pressure &pressure, std::ostream *out) {
  *out << pressure.error << ' ' << pressure.wanted << ' ' << pressure.reclaimed;
}

Pressure pressureOf(SimulatedMachine &machine, bool waits, uint32_t seconds = 1) {
  Pressure pressure;
  pressure.error = machine.memoryPressure(waits, seconds, pressure.wanted, pressure.reclaimed);
  return pressure;
}

// In a thread of its own, which has begun to wait.
std::future<Pressure> beginWait(SimulatedMachine &machine) {
  const size_t before = machine.callsOf("vm_pressure_monitor");
  auto waiting = std::async(std::launch::async, [&machine] { return pressureOf(machine, true); });
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (machine.callsOf("vm_pressure_monitor") == before) {
    if (std::chrono::steady_clock::now() > deadline) {
      ADD_FAILURE() << "the wait did not begin";
      break;
    }
    std::this_thread::yield();
  }
  return waiting;
}

bool isWaiting(std::future<Pressure> &waiting) {
  return waiting.wait_for(20ms) == std::future_status::timeout;
}

Pressure resultOf(std::future<Pressure> &waiting) {
  EXPECT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  return waiting.get();
}

TEST(SimulatedPressureTest, WithoutAWaitItTellsWhatIsKnown) {
  SimulatedMachine machine{device()};
  EXPECT_EQ(pressureOf(machine, false), (Pressure{kAnswered, 0, 0}));
  machine.happen(RaisePressure{300, 50, {}});
  machine.advance(2s);
  machine.happen(RaisePressure{200, 7, {}});
  machine.advance(1s);
  EXPECT_EQ(pressureOf(machine, false, 0), (Pressure{kAnswered, 200, 0}));
  EXPECT_EQ(pressureOf(machine, false, 1), (Pressure{kAnswered, 200, 7}));
  EXPECT_EQ(pressureOf(machine, false, 2), (Pressure{kAnswered, 200, 7}));
  EXPECT_EQ(pressureOf(machine, false, 3), (Pressure{kAnswered, 200, 57}));
  EXPECT_EQ(pressureOf(machine, false, UINT32_MAX), (Pressure{kAnswered, 200, 57}));
}

TEST(SimulatedPressureTest, NoMoreThanAMinuteIsRemembered) {
  SimulatedMachine machine{device()};
  machine.happen(RaisePressure{1, UINT32_MAX, {}});
  machine.advance(60s);
  machine.happen(RaisePressure{1, 7, {}});
  EXPECT_EQ(pressureOf(machine, false, 1000).reclaimed, UINT32_MAX);
  machine.advance(1ns);
  machine.happen(RaisePressure{1, 8, {}});
  EXPECT_EQ(pressureOf(machine, false, 1000).reclaimed, 15U);
}

TEST(SimulatedPressureTest, AWaitEndsWithTheNextEvent) {
  SimulatedMachine machine{device()};
  auto waiting = beginWait(machine);
  EXPECT_TRUE(isWaiting(waiting));
  machine.happen(RaisePressure{300, 50, {}});
  EXPECT_EQ(resultOf(waiting), (Pressure{kAnswered, 300, 50}));
}

TEST(SimulatedPressureTest, ASteppedClockWaitsForSamplesAndSteps) {
  Device given = device();
  given.events = {at(1s, RaisePressure{10, 1, {}}), at(4s, RaisePressure{20, 2, {}})};
  SimulatedMachine machine(given);
  auto waiting = beginWait(machine);
  machine.beginSample();
  EXPECT_TRUE(isWaiting(waiting));
  machine.beginSample();
  EXPECT_EQ(resultOf(waiting), (Pressure{kAnswered, 10, 1}));

  waiting = beginWait(machine);
  EXPECT_TRUE(isWaiting(waiting));
  // As of the moment of the event, however far the clock jumps.
  machine.advance(60s);
  EXPECT_EQ(resultOf(waiting), (Pressure{kAnswered, 20, 2}));
}

TEST(SimulatedPressureTest, WhatHappensBetweenTwoWaitsEndsTheNextOnce) {
  SimulatedMachine machine{device()};
  machine.happen(RaisePressure{10, 1, {}});
  EXPECT_EQ(pressureOf(machine, true), (Pressure{kAnswered, 10, 1}));
  auto waiting = beginWait(machine);
  EXPECT_TRUE(isWaiting(waiting));
  machine.happen(RaisePressure{20, 2, {}});
  EXPECT_EQ(resultOf(waiting).wanted, 20U);
}

TEST(SimulatedPressureTest, TheClockOnTheWallEndsAWaitByItself) {
  Device given = onTheWall({process(1)}, {at(100ms, RaisePressure{30, 4, {}})});
  SimulatedMachine machine(given);
  EXPECT_EQ(pressureOf(machine, true), (Pressure{kAnswered, 30, 4}));
  EXPECT_GE(machine.now(), 100ms);
}

TEST(SimulatedPressureTest, AllWhoWaitAreTold) {
  SimulatedMachine machine(onTheWall({}));
  auto first = beginWait(machine);
  auto second = beginWait(machine);
  machine.happen(RaisePressure{30, 4, {}});
  EXPECT_EQ(resultOf(first).wanted, 30U);
  EXPECT_EQ(resultOf(second).wanted, 30U);
}

TEST(SimulatedPressureTest, ADeviceMayTellNobody) {
  Device given = device();
  given.tellsInBackground = false;
  auto machine = std::make_unique<SimulatedMachine>(given);
  machine->happen(RaisePressure{30, 4, {}});
  auto waiting = beginWait(*machine);
  machine->happen(RaisePressure{30, 4, {}});
  machine.reset();
  EXPECT_EQ(resultOf(waiting).error, darwin::DARWIN_EINTR);
}

TEST(SimulatedPressureTest, TheEndOfTheMachineEndsAWait) {
  auto machine = std::make_unique<SimulatedMachine>(device());
  auto waiting = beginWait(*machine);
  machine.reset();
  EXPECT_EQ(resultOf(waiting).error, darwin::DARWIN_EINTR);
}

std::unique_ptr<ProcessEvents> watchOf(SimulatedMachine &machine, std::vector<pid_t> pids) {
  std::unique_ptr<ProcessEvents> watch;
  EXPECT_EQ(machine.processEvents(watch), kAnswered);
  for (const pid_t pid : pids) EXPECT_EQ(watch->watch(pid), kAnswered) << pid;
  return watch;
}

using Happened = std::vector<std::pair<pid_t, uint32_t>>;

Happened happenedTo(ProcessEvents &watch, std::optional<Nanoseconds> timeout = 0ns) {
  std::vector<ProcessEvent> events(3);
  EXPECT_EQ(watch.wait(timeout, events), kAnswered);
  Happened happened;
  for (const ProcessEvent &event : events) happened.emplace_back(event.pid, event.notes);
  return happened;
}

TEST(SimulatedProcessEventsTest, TellForksExecsAndExits) {
  SimulatedMachine machine(device({process(1), process(60), process(61)}));
  const auto watch = watchOf(machine, {1, 60});
  EXPECT_THAT(happenedTo(*watch), IsEmpty());
  machine.happen(ForkProcess{60, 70});
  EXPECT_THAT(happenedTo(*watch), ElementsAre(std::pair(60, darwin::NOTE_FORK)));
  machine.happen(ExecProcess{60, "other", "", {}});
  EXPECT_THAT(happenedTo(*watch), ElementsAre(std::pair(60, darwin::NOTE_EXEC)));
  // To start a process, its parent forks.
  machine.happen(StartProcess{process(71)});
  machine.happen(ExitProcess{61, 0, false});
  EXPECT_THAT(happenedTo(*watch), ElementsAre(std::pair(1, darwin::NOTE_FORK)));
  machine.happen(ExitProcess{60, 3, true});
  EXPECT_THAT(happenedTo(*watch), ElementsAre(std::pair(60, darwin::NOTE_EXIT)));
  // A zombie goes without notice.
  machine.happen(ExitProcess{60, 3, false});
  EXPECT_THAT(happenedTo(*watch), IsEmpty());
}

TEST(SimulatedProcessEventsTest, TellSeveralNotesAtOnce) {
  SimulatedMachine machine(device({process(1), process(60), process(61)}));
  const auto watch = watchOf(machine, {60, 61});
  machine.happen(ForkProcess{60, 70});
  EXPECT_EQ(machine.sendSignal(61, darwin::DARWIN_SIGKILL), kAnswered);
  machine.happen(ExecProcess{60, "other", "", {}});
  machine.happen(ForkProcess{60, 71});
  EXPECT_THAT(happenedTo(*watch), ElementsAre(std::pair(60, darwin::NOTE_FORK | darwin::NOTE_EXEC),
                                              std::pair(61, darwin::NOTE_EXIT)));
}

TEST(SimulatedProcessEventsTest, WhatEndsByItselfIsToldToo) {
  Device given = device({process(1)});
  given.events = {at(1s, StartProcess{process(60)}, 2s)};
  SimulatedMachine machine(given);
  machine.advance(1s);
  const auto watch = watchOf(machine, {60});
  machine.advance(2s);
  EXPECT_THAT(happenedTo(*watch), ElementsAre(std::pair(60, darwin::NOTE_EXIT)));
}

TEST(SimulatedProcessEventsTest, OnlyLiveProcessesCanBeWatched) {
  SimulatedMachine machine(device({process(1), zombie(60)}));
  const auto watch = watchOf(machine, {});
  EXPECT_EQ(watch->watch(60), darwin::DARWIN_ESRCH);
  EXPECT_EQ(watch->watch(77), darwin::DARWIN_ESRCH);
  EXPECT_EQ(watch->watch(-1), darwin::DARWIN_ESRCH);
}

TEST(SimulatedProcessEventsTest, AProcessThatIsNotWatchedAnyMoreIsNotToldOf) {
  SimulatedMachine machine(device({process(1), process(60)}));
  const auto watch = watchOf(machine, {60});
  machine.happen(ForkProcess{60, 70});
  watch->unwatch(60);
  machine.happen(ForkProcess{60, 71});
  EXPECT_THAT(happenedTo(*watch), IsEmpty());
}

TEST(SimulatedProcessEventsTest, AnotherProcessWithTheNumberIsAnotherOne) {
  SimulatedMachine machine(device({process(1), process(60)}));
  const auto watch = watchOf(machine, {60});
  machine.happen(ExitProcess{60, 0, false});
  machine.happen(StartProcess{process(60)});
  machine.happen(ExecProcess{60, "other", "", {}});
  EXPECT_THAT(happenedTo(*watch), ElementsAre(std::pair(60, darwin::NOTE_EXIT)));
  machine.happen(ExecProcess{60, "other", "", {}});
  EXPECT_THAT(happenedTo(*watch), IsEmpty());
  EXPECT_EQ(watch->watch(60), kAnswered);
  EXPECT_EQ(watch->watch(60), kAnswered);
  machine.happen(ExecProcess{60, "other", "", {}});
  EXPECT_THAT(happenedTo(*watch), ElementsAre(std::pair(60, darwin::NOTE_EXEC)));
}

TEST(SimulatedProcessEventsTest, EachWatchIsItsOwn) {
  SimulatedMachine machine(device({process(1), process(60)}));
  const auto first = watchOf(machine, {60});
  auto second = watchOf(machine, {60});
  const auto third = watchOf(machine, {1});
  machine.happen(ExecProcess{60, "other", "", {}});
  EXPECT_EQ(happenedTo(*first).size(), 1U);
  EXPECT_EQ(happenedTo(*second).size(), 1U);
  EXPECT_EQ(happenedTo(*third).size(), 0U);
  second.reset();
  machine.happen(ExecProcess{60, "other", "", {}});
  EXPECT_EQ(happenedTo(*first).size(), 1U);
}

TEST(SimulatedProcessEventsTest, AWaitEndsWithWhatHappens) {
  SimulatedMachine machine(device({process(1), process(60)}));
  const auto watch = watchOf(machine, {60});
  auto waiting = std::async(std::launch::async, [&] { return happenedTo(*watch, std::nullopt); });
  EXPECT_EQ(machine.sendSignal(60, darwin::DARWIN_SIGKILL), kAnswered);
  ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  EXPECT_THAT(waiting.get(), ElementsAre(std::pair(60, darwin::NOTE_EXIT)));
}

TEST(SimulatedProcessEventsTest, AWaitEndsWhenItsTimeIsUp) {
  SimulatedMachine machine(device({process(1)}));
  const auto watch = watchOf(machine, {1});
  const auto before = std::chrono::steady_clock::now();
  EXPECT_THAT(happenedTo(*watch, 50ms), IsEmpty());
  EXPECT_GE(std::chrono::steady_clock::now() - before, 50ms);
}

TEST(SimulatedProcessEventsTest, TheClockOnTheWallEndsAWaitByItself) {
  SimulatedMachine machine(
      onTheWall({process(1), process(60)}, {at(100ms, ExecProcess{60, "other", "", {}})}));
  const auto watch = watchOf(machine, {60});
  EXPECT_THAT(happenedTo(*watch, kPatience), ElementsAre(std::pair(60, darwin::NOTE_EXEC)));
  // The longest time is no overflow.
  machine.happen(ExecProcess{60, "again", "", {}});
  EXPECT_THAT(happenedTo(*watch, Nanoseconds::max()),
              ElementsAre(std::pair(60, darwin::NOTE_EXEC)));
}

TEST(SimulatedProcessEventsTest, WhatIsToComeCanBeNewWhileOneWaits) {
  SimulatedMachine machine(onTheWall({process(1)}));
  const auto watch = watchOf(machine, {});
  auto waiting = std::async(std::launch::async, [&] { return happenedTo(*watch, std::nullopt); });
  EXPECT_EQ(waiting.wait_for(20ms), std::future_status::timeout);
  machine.happen(StartProcess{process(61)}, 300ms);
  EXPECT_EQ(watch->watch(61), kAnswered);
  ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  EXPECT_THAT(waiting.get(), ElementsAre(std::pair(61, darwin::NOTE_EXIT)));
}

TEST(SimulatedProcessEventsTest, AWatchMayOutliveItsMachine) {
  auto machine = std::make_unique<SimulatedMachine>(device({process(1), process(60)}));
  auto watch = watchOf(*machine, {60});
  auto waiting = std::async(std::launch::async, [&] {
    std::vector<ProcessEvent> events;
    return watch->wait(std::nullopt, events);
  });
  machine.reset();
  ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(waiting.get(), darwin::DARWIN_EBADF);
  watch.reset();
}

// Questions, waits and changes from many threads at once: nothing stands still for ever.
TEST(SimulatedWaitsTest, NobodyStandsInAnothersWay) {
  constexpr int kRounds = 200;
  SimulatedMachine machine(onTheWall({process(1), process(60)}));
  const auto watch = watchOf(machine, {1, 60});
  auto pressure = std::async(std::launch::async, [&] {
    size_t times = 0;
    while (pressureOf(machine, true).wanted != 99) ++times;
    return times;
  });
  auto events = std::async(std::launch::async, [&] {
    for (;;) {
      for (const auto &[pid, notes] : happenedTo(*watch, 10s)) {
        if ((notes & darwin::NOTE_EXIT) != 0) return pid;
      }
    }
  });
  auto questions = std::async(std::launch::async, [&] {
    size_t answered = 0;
    for (int i = 0; i < kRounds; ++i) answered += pidsOf(machine).size() >= 2 ? 1 : 0;
    return answered;
  });
  for (int i = 0; i < kRounds; ++i) {
    machine.happen(RaisePressure{1, 1, {}});
    machine.happen(ExecProcess{60, "other", "", {}});
  }
  ASSERT_EQ(questions.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(questions.get(), static_cast<size_t>(kRounds));
  machine.happen(RaisePressure{99, 1, {}});
  EXPECT_EQ(machine.sendSignal(60, darwin::DARWIN_SIGKILL), kAnswered);
  ASSERT_EQ(pressure.wait_for(kPatience), std::future_status::ready);
  ASSERT_EQ(events.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(events.get(), 60);
}

}  // namespace
}  // namespace simulated_test
