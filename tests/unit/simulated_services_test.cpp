// What the services of a simulated device answer: the time of day, its identity and its power.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "simulated_device.h"

namespace simulated_test {
namespace {

using host::GestaltAnswer;
using host::PowerStatus;
using host::simulator::ChangePower;
using host::simulator::ExitProcess;
using host::simulator::Power;
using host::simulator::PowerSource;
using host::simulator::Refusal;
using testing::ElementsAre;
using testing::Pair;

TEST(SimulatedClockTest, HasMicroseconds) {
  SimulatedMachine machine(device());
  darwin::timeval time{};
  machine.wallClock(time);
  EXPECT_EQ(time.tv_sec, kStart);
  EXPECT_EQ(time.tv_usec, 0);
  machine.advance(2'345'678'999ns);
  machine.wallClock(time);
  EXPECT_EQ(time.tv_sec, kStart + 2);
  EXPECT_EQ(time.tv_usec, 345'678);
  EXPECT_EQ(machine.timeOfDay(), kStart + 2);
}

TEST(SimulatedClockTest, StaysInRange) {
  Device given = device();
  given.clock.start = std::numeric_limits<int64_t>::max() - 1;
  SimulatedMachine machine(given);
  machine.advance(5500ms);
  darwin::timeval time{};
  machine.wallClock(time);
  EXPECT_EQ(time.tv_sec, std::numeric_limits<int64_t>::max());
  EXPECT_EQ(time.tv_usec, 500'000);
}

Device knowing(std::map<std::string, host::simulator::GestaltValue> answers) {
  Device made = device();
  made.gestalt = std::move(answers);
  return made;
}

// The number of a refusal too.
struct Asked {
  Errno error;
  GestaltAnswer answer;
};
Asked ask(SimulatedMachine &machine, std::string_view key) {
  Asked asked{0, std::string("untouched")};
  asked.error = machine.gestaltAnswer(key, asked.answer);
  return asked;
}

TEST(SimulatedGestaltTest, AnswersByTheKindOfTheValue) {
  SimulatedMachine machine(knowing({{"ProductName", std::string("iPhone OS")},
                                    {"DieId", int64_t{-7}},
                                    {"HasBaseband", true},
                                    {"SerialNumber", Refusal{5}},
                                    {"Nothing", Refusal{0}}}));
  EXPECT_TRUE(machine.hasGestalt());
  EXPECT_EQ(ask(machine, "ProductName").answer, GestaltAnswer("iPhone OS"));
  EXPECT_EQ(ask(machine, "DieId").answer, GestaltAnswer(int64_t{-7}));
  EXPECT_EQ(ask(machine, "HasBaseband").answer, GestaltAnswer(true));
  EXPECT_EQ(ask(machine, "SerialNumber").error, 5);
  EXPECT_EQ(ask(machine, "SerialNumber").answer, GestaltAnswer("untouched"));
  EXPECT_EQ(ask(machine, "Nothing").error, darwin::DARWIN_ENOENT);
  EXPECT_EQ(ask(machine, "productname").error, darwin::DARWIN_ENOENT);
  EXPECT_EQ(ask(machine, "").error, darwin::DARWIN_ENOENT);
}

TEST(SimulatedGestaltTest, IsThereOrNot) {
  SimulatedMachine without{device()};
  EXPECT_FALSE(without.hasGestalt());
  EXPECT_FALSE(without.hasEntryPoint("MGCopyAnswerWithError"));
  EXPECT_EQ(ask(without, "ProductName").error, darwin::DARWIN_ENOTSUP);

  SimulatedMachine with(knowing({}));
  EXPECT_TRUE(with.hasGestalt());
  EXPECT_TRUE(with.hasEntryPoint("MGCopyAnswerWithError"));

  Device given = knowing({});
  given.kernel.missing = {"MGCopyAnswerWithError"};
  SimulatedMachine old(given);
  EXPECT_TRUE(old.hasGestalt());
  EXPECT_FALSE(old.hasEntryPoint("MGCopyAnswerWithError"));
}

Device powered(std::vector<PowerSource> sources) {
  Device made = device({process(1), process(70)});
  made.power = Power{};
  made.power->sources = std::move(sources);
  return made;
}

PowerStatus statusOf(SimulatedMachine &machine) {
  PowerStatus status;
  EXPECT_EQ(machine.powerStatus(status), kAnswered);
  return status;
}

TEST(SimulatedPowerTest, TellsWhatIsKnown) {
  Device given = powered({{71, "Battery Power", false}, {}});
  given.power->secondsRemaining = 24300;
  SimulatedMachine machine(given);
  const PowerStatus status = statusOf(machine);
  ASSERT_TRUE(status.sources.has_value());
  ASSERT_EQ(status.sources->size(), 2U);
  EXPECT_EQ(status.sources->at(0).capacity, 71);
  EXPECT_EQ(status.sources->at(0).state, "Battery Power");
  EXPECT_EQ(status.sources->at(0).isCharging, false);
  EXPECT_EQ(status.sources->at(1).capacity, std::nullopt);
  EXPECT_EQ(status.sources->at(1).state, std::nullopt);
  EXPECT_EQ(status.sources->at(1).isCharging, std::nullopt);
  EXPECT_EQ(status.secondsRemaining, 24300);
  EXPECT_FALSE(status.assertions.has_value());
}

TEST(SimulatedPowerTest, WithoutTheServiceThereIsNoAnswer) {
  SimulatedMachine machine{device()};
  PowerStatus status;
  EXPECT_EQ(machine.powerStatus(status), darwin::DARWIN_ENOTSUP);
  SimulatedMachine plain(powered({}));
  EXPECT_TRUE(statusOf(plain).sources->empty());
  EXPECT_EQ(statusOf(plain).secondsRemaining, -1);
}

TEST(SimulatedPowerTest, ChangesAreSeen) {
  SimulatedMachine machine(powered({{71, "Battery Power", false}}));
  machine.happen(ChangePower{0, 72, "AC Power", true, -2});
  const PowerStatus status = statusOf(machine);
  EXPECT_EQ(status.sources->at(0).capacity, 72);
  EXPECT_EQ(status.sources->at(0).state, "AC Power");
  EXPECT_EQ(status.sources->at(0).isCharging, true);
  EXPECT_EQ(status.secondsRemaining, -2);
}

TEST(SimulatedPowerTest, AssertionsEndWithTheirProcess) {
  Device given = powered({});
  given.power->assertions = {{1, {"init"}}, {70, {"audio", "idle"}}};
  SimulatedMachine machine(given);
  EXPECT_THAT(*statusOf(machine).assertions,
              ElementsAre(Pair(1, ElementsAre("init")), Pair(70, ElementsAre("audio", "idle"))));
  machine.happen(ExitProcess{70, 0, true});
  EXPECT_THAT(*statusOf(machine).assertions, ElementsAre(Pair(1, ElementsAre("init"))));
}

}  // namespace
}  // namespace simulated_test
