// The battery line: every piece and every way in which one can be missing, and that nothing is left
// of the objects that were asked for.
#include "screens/power_summary.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "darwin/power_sources.h"
#include "host/entry/core_foundation.h"
#include "tests/unit/fake_machine.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using host::DictionaryEntry;
using host::makeDictionary;
using host::makeNumber;
using host::makeString;
using host::ObjectReference;
using sampled::errorOutputOf;
using sampled::outputOf;

class PoweredMachine : public fake_machine::FakeMachine {
 public:
  std::optional<host::PowerStatus> status = host::PowerStatus{};

  host::Errno powerStatus(host::PowerStatus &out) override {
    return give("powerStatus", out, status);
  }
};

class PowerSummary : public fake_machine::MachineTest<PoweredMachine> {
 protected:
  PowerSummary() : m_objects(host::liveObjects()) { set({100, "AC Power", true}, -2); }
  ~PowerSummary() override { EXPECT_EQ(host::liveObjects(), m_objects) << "objects are left"; }

  void set(const host::PowerSource &source, double seconds) {
    machine.status->sources = {source};
    machine.status->secondsRemaining = seconds;
  }

  DisplayStateGuard guard;

 private:
  size_t m_objects;
};

TEST_F(PowerSummary, ChargingDevice) {
  EXPECT_STREQ(getPowerDetails(), "Batt:  100% (on AC Power,Charging) No assertions");
}

TEST_F(PowerSummary, DeviceOnBattery) {
  set({54, "Battery Power", false}, 3600 + 120 + 3);
  EXPECT_STREQ(getPowerDetails(),
               "Batt:  54% (on Battery Power, Not Charging - 01:02:03 remaining) No assertions");
}

TEST_F(PowerSummary, UnknownCapacity) {
  set({std::nullopt, "AC Power", true}, -2);
  EXPECT_STREQ(getPowerDetails(), "Batt: Unknown (on AC Power,Charging) No assertions");
}

TEST_F(PowerSummary, CapacityIsShownAsItIs) {
  for (const int32_t percent : {0, 7, 255, -1, INT32_MAX, INT32_MIN}) {
    set({percent, "AC Power", true}, -2);
    EXPECT_EQ(getPowerDetails(),
              "Batt:  " + std::to_string(percent) + "% (on AC Power,Charging) No assertions");
  }
}

TEST_F(PowerSummary, UnknownState) {
  set({87, std::nullopt, true}, -2);
  EXPECT_STREQ(getPowerDetails(), "Batt:  87% <unknown> Charging) No assertions");
  set({87, "\u00e0 plat", false}, -2);
  EXPECT_STREQ(getPowerDetails(), "Batt:  87% <unknown>  Not Charging) No assertions")
      << "a text that is not stored as plain characters";
}

TEST_F(PowerSummary, StateCannotDriveTheTerminal) {
  set({87, "a\x1b[2J\nb", true}, -2);
  EXPECT_STREQ(getPowerDetails(), "Batt:  87% (on a?[2J?b,Charging) No assertions");
}

TEST_F(PowerSummary, UnknownChargingIsNotCharging) {
  set({87, "AC Power", std::nullopt}, -2);
  EXPECT_STREQ(getPowerDetails(), "Batt:  87% (on AC Power, Not Charging) No assertions");
}

TEST_F(PowerSummary, NothingKnownOfTheSource) {
  set({}, -1);
  EXPECT_STREQ(getPowerDetails(),
               "Batt: Unknown <unknown>  Not Charging(calculating)) No assertions");
}

TEST_F(PowerSummary, TimeRemaining) {
  const double infinite = std::numeric_limits<double>::infinity();
  const double noNumber = std::numeric_limits<double>::quiet_NaN();
  const struct {
    double seconds;
    const char *piece;
  } kRows[] = {
      {-2.0, ")"},
      {-1.0, "(calculating))"},
      {0.0, " -    00.00 remaining)"},
      {0.999, " -    00.00 remaining)"},
      {59.9, " -    59.00 remaining)"},
      {61.0, " -  1:01.00 remaining)"},
      {3599.0, " - 59:59.00 remaining)"},
      {3600.0, " - 01:00:00 remaining)"},
      {90000.0, " -  1 days, 01:00 remaining)"},
      {-0.5, " -    00.00 remaining)"},
      {-1.5, " -    00.00 remaining)"},
      {-3.0, " -    00.00 remaining)"},
      {noNumber, " -    00.00 remaining)"},
      {4294967295.0, " - 49710 days, 06:28 remaining)"},
      {1e300, " - 49710 days, 06:28 remaining)"},
      {infinite, " - 49710 days, 06:28 remaining)"},
  };
  for (const auto &row : kRows) {
    set({5, "Battery Power", true}, row.seconds);
    EXPECT_EQ(getPowerDetails(),
              std::string("Batt:  5% (on Battery Power,Charging") + row.piece + " No assertions")
        << row.seconds;
  }
}

TEST_F(PowerSummary, AssertionsAreCountedAndTheirHoldersShown) {
  machine.status->assertions.emplace();
  (*machine.status->assertions)[311] = {"display"};
  (*machine.status->assertions)[42] = {};
  (*machine.status->assertions)[77] = {"audio", "download"};
  EXPECT_EQ(errorOutputOf([] {
              EXPECT_STREQ(getPowerDetails(), "Batt:  100% (on AC Power,Charging) 3 assertions ()");
            }),
            "42\n77\n311\n");
}

TEST_F(PowerSummary, NoHolderIsTheClosingParenthesisAlone) {
  machine.status->assertions.emplace();
  EXPECT_EQ(
      errorOutputOf([] { EXPECT_STREQ(getPowerDetails(), "Batt:  100% (on AC Power,Charging))"); }),
      "");
}

TEST_F(PowerSummary, OnlyTheFirstSourceCounts) {
  machine.status->sources->push_back({3, "Battery Power", false});
  EXPECT_STREQ(getPowerDetails(), "Batt:  100% (on AC Power,Charging) No assertions");
}

TEST_F(PowerSummary, DeviceWithoutSources) {
  machine.status->sources->clear();
  EXPECT_STREQ(getPowerDetails(), "Unable to get Power Source information");
}

TEST_F(PowerSummary, FailuresHaveTextsOfTheirOwn) {
  const char *line = getPowerDetails();
  const std::string before = line;
  machine.status->sources.reset();
  EXPECT_STREQ(getPowerDetails(), "Error: IOPSCopyPowerSourcesList()");
  machine.status.reset();
  EXPECT_STREQ(getPowerDetails(), "Error: IOPsCopyPowerSourcesInfo()");
  EXPECT_EQ(line, before) << "the buffer keeps the text of the call before";
}

TEST_F(PowerSummary, EveryCallRebuildsTheSameBuffer) {
  const char *first = getPowerDetails();
  set({1, "Battery Power", false}, -1);
  EXPECT_EQ(getPowerDetails(), first);
  EXPECT_STREQ(first, "Batt:  1% (on Battery Power, Not Charging(calculating)) No assertions");
}

TEST_F(PowerSummary, LineIsCutToItsBuffer) {
  for (size_t length = 80; length <= 300; length++) {
    set({1, std::string(length, 's'), true}, -2);
    const std::string all =
        "Batt:  1% (on " + std::string(length, 's') + ",Charging) No assertions";
    EXPECT_EQ(getPowerDetails(), all.substr(0, 127)) << length;
  }
}

TEST_F(PowerSummary, PropertyListOfADictionary) {
  std::vector<DictionaryEntry> entries;
  entries.emplace_back(makeString("Current Capacity"), makeNumber(int64_t{87}));
  const ObjectReference object = makeDictionary(std::move(entries));
  EXPECT_EQ(outputOf([&] { dumpDict(host::asDictionary(object.get())); }),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\">\n"
            "<dict>\n\t<key>Current Capacity</key>\n\t<integer>87</integer>\n</dict>\n"
            "</plist>\n");
}

TEST_F(PowerSummary, WhatIsNoPropertyListIsNotDumped) {
  std::vector<DictionaryEntry> entries;
  entries.emplace_back(makeNumber(int64_t{42}), makeString("no key of a property list"));
  const ObjectReference object = makeDictionary(std::move(entries));
  EXPECT_EQ(outputOf([&] { dumpDict(host::asDictionary(object.get())); }), "");
  EXPECT_EQ(outputOf([] { dumpDict(nullptr); }), "");
}

TEST_F(PowerSummary, ServicesRefuseWhatIsNotTheirs) {
  EXPECT_NE(darwin::IOPMCopyAssertionsByProcess(nullptr), 0);
  const ObjectReference info(darwin::IOPSCopyPowerSourcesInfo());
  const ObjectReference stranger = makeString("no source");
  EXPECT_EQ(darwin::IOPSGetPowerSourceDescription(info.get(), stranger.get()), nullptr);
  EXPECT_EQ(darwin::IOPSGetPowerSourceDescription(stranger.get(), stranger.get()), nullptr);
  EXPECT_EQ(darwin::IOPSCopyPowerSourcesList(stranger.get()), nullptr);
  EXPECT_EQ(darwin::IOPSCopyPowerSourcesList(nullptr), nullptr);
  machine.status.reset();
  darwin::CFDictionaryRef assertions = nullptr;
  EXPECT_NE(darwin::IOPMCopyAssertionsByProcess(&assertions), 0);
  EXPECT_EQ(assertions, nullptr);
  EXPECT_EQ(darwin::IOPSGetTimeRemainingEstimate(), -1.0);
}

}  // namespace
