// Batteries and mains, from folders made up for the purpose.
#include "host/linux/power_supply.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "darwin/errors.h"

namespace host::linux_machine {
namespace {

using Files = std::vector<std::pair<std::string, std::string>>;

class LinuxPowerSupply : public testing::Test {
 protected:
  LinuxPowerSupply() {
    char name[] = "/tmp/power-XXXXXX";
    if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp failed");
    m_folder = name;
  }
  ~LinuxPowerSupply() override { std::filesystem::remove_all(m_folder); }

  void add(const std::string &supply, const Files &files) const {
    std::filesystem::create_directories(m_folder + "/" + supply);
    for (const auto &[file, text] : files) {
      std::ofstream(m_folder + "/" + supply + "/" + file) << text << '\n';
    }
  }
  void addBattery(Files files, const std::string &supply = "BAT0") const {
    files.emplace_back("type", "Battery");
    add(supply, files);
  }
  void addMains(bool isOnline) const {
    add("AC", {{"type", "Mains"}, {"online", isOnline ? "1" : "0"}});
  }

  PowerStatus read() const {
    PowerSupply supply(m_folder);
    PowerStatus status;
    EXPECT_EQ(supply.read(status), kAnswered);
    EXPECT_TRUE(status.sources.has_value());
    EXPECT_FALSE(status.assertions.has_value()) << "Linux knows of none";
    return status;
  }

  // The only battery.
  PowerSource battery() const {
    const PowerStatus status = read();
    EXPECT_EQ(status.sources->size(), 1u);
    return status.sources->empty() ? PowerSource{} : status.sources->front();
  }

  const std::string &folder() const { return m_folder; }

 private:
  std::string m_folder;
};

TEST_F(LinuxPowerSupply, DesktopHasNoSource) {
  addMains(true);
  const PowerStatus status = read();
  EXPECT_TRUE(status.sources->empty());
  EXPECT_EQ(status.secondsRemaining, -2);
}

TEST_F(LinuxPowerSupply, KernelWithoutSuppliesHasNone) {
  PowerSupply supply(folder() + "/missing");
  PowerStatus status;
  EXPECT_EQ(supply.read(status), kAnswered);
  ASSERT_TRUE(status.sources.has_value());
  EXPECT_TRUE(status.sources->empty());
}

TEST_F(LinuxPowerSupply, WhatIsNoFolderIsAnError) {
  std::ofstream(folder() + "/file") << "text";
  PowerSupply supply(folder() + "/file");
  PowerStatus status;
  status.secondsRemaining = 17;
  EXPECT_NE(supply.read(status), kAnswered);
  EXPECT_EQ(status.secondsRemaining, 17) << "untouched";
}

TEST_F(LinuxPowerSupply, ChargingOnMains) {
  addMains(true);
  addBattery({{"capacity", "87"}, {"status", "Charging"}});
  EXPECT_EQ(battery().capacity, 87);
  EXPECT_EQ(battery().state, "AC Power");
  EXPECT_EQ(battery().isCharging, true);
  EXPECT_EQ(read().secondsRemaining, -2);
}

TEST_F(LinuxPowerSupply, DischargingInEnergy) {
  addMains(false);
  addBattery({{"capacity", "54"},
              {"status", "Discharging"},
              {"energy_now", "30000000"},
              {"power_now", "10000000"}});
  EXPECT_EQ(battery().capacity, 54);
  EXPECT_EQ(battery().state, "Battery Power");
  EXPECT_EQ(battery().isCharging, false);
  EXPECT_EQ(read().secondsRemaining, 3 * 3600);
}

TEST_F(LinuxPowerSupply, DischargingInChargeWithANegativeCurrent) {
  addMains(false);
  addBattery({{"status", "Discharging"}, {"charge_now", "1500000"}, {"current_now", "-1000000"}});
  EXPECT_EQ(read().secondsRemaining, 5400);
}

TEST_F(LinuxPowerSupply, DriversOwnTimeCountsFirst) {
  addMains(false);
  addBattery({{"status", "Discharging"},
              {"time_to_empty_now", "4321"},
              {"energy_now", "30000000"},
              {"power_now", "10000000"}});
  EXPECT_EQ(read().secondsRemaining, 4321);
}

TEST_F(LinuxPowerSupply, TimeThatCantBeSaidIsUnknown) {
  addMains(false);
  for (const Files &files : {Files{}, Files{{"energy_now", "30000000"}},
                             Files{{"energy_now", "30000000"}, {"power_now", "0"}},
                             Files{{"energy_now", "many"}, {"power_now", "10000000"}},
                             Files{{"energy_now", "-5"}, {"power_now", "10000000"}},
                             Files{{"time_to_empty_now", "0"}, {"power_now", "0"}}}) {
    std::filesystem::remove_all(folder() + "/BAT0");
    addBattery(files);
    EXPECT_EQ(read().secondsRemaining, -1);
  }
}

TEST_F(LinuxPowerSupply, BatteriesDrainOneAfterTheOther) {
  addMains(false);
  addBattery({{"energy_now", "20000000"}, {"power_now", "0"}, {"status", "Not charging"}}, "BAT0");
  addBattery({{"energy_now", "10000000"}, {"power_now", "10000000"}, {"status", "Discharging"}},
             "BAT1");
  EXPECT_EQ(read().secondsRemaining, 3 * 3600);
  EXPECT_EQ(read().sources->size(), 2u);
  std::filesystem::remove_all(folder() + "/BAT1");
  addBattery({{"charge_now", "10000000"}, {"current_now", "10000000"}, {"status", "Discharging"}},
             "BAT1");
  EXPECT_EQ(read().secondsRemaining, -1) << "watts and amperes don't add up";
}

TEST_F(LinuxPowerSupply, SourcesComeInTheOrderOfTheirNames) {
  addMains(true);
  addBattery({{"capacity", "2"}}, "BAT2");
  addBattery({{"capacity", "1"}}, "BAT1");
  addBattery({{"capacity", "0"}}, "BAT0");
  const PowerStatus status = read();
  ASSERT_EQ(status.sources->size(), 3u);
  for (int i = 0; i < 3; i++) EXPECT_EQ((*status.sources)[static_cast<size_t>(i)].capacity, i);
}

TEST_F(LinuxPowerSupply, BatteriesOfOthersDontFeedThisMachine) {
  addMains(false);
  addBattery({{"scope", "Device"}, {"capacity", "10"}}, "A-mouse");
  addBattery({{"present", "0"}, {"capacity", "20"}}, "B-bay");
  addBattery({{"scope", "System"}, {"present", "1"}, {"capacity", "30"}}, "C-own");
  add("D-ups", {{"type", "UPS"}, {"capacity", "40"}});
  add("E-nothing", {});
  add("F-charger", {{"type", "Mains"}, {"scope", "Device"}, {"online", "1"}});
  EXPECT_EQ(battery().capacity, 30);
  EXPECT_EQ(battery().state, "Battery Power");
}

TEST_F(LinuxPowerSupply, StateFollowsTheSuppliesThatTell) {
  addBattery({{"status", "Discharging"}});
  addMains(false);
  add("usb", {{"type", "USB"}, {"online", "1"}});
  EXPECT_EQ(battery().state, "AC Power");
  add("usb", {{"online", "0"}});
  EXPECT_EQ(battery().state, "Battery Power");
}

TEST_F(LinuxPowerSupply, StateWithoutMainsFollowsTheBattery) {
  const struct {
    const char *status;
    std::optional<std::string> state;
    std::optional<bool> isCharging;
    double seconds;
  } kRows[] = {
      {"Charging", "AC Power", true, -2},          {"Full", "AC Power", false, -2},
      {"Not charging", "AC Power", false, -2},     {"Discharging", "Battery Power", false, -1},
      {"Unknown", std::nullopt, std::nullopt, -1}, {"", std::nullopt, std::nullopt, -1},
  };
  for (const auto &row : kRows) {
    addBattery({{"status", row.status}});
    EXPECT_EQ(battery().state, row.state) << row.status;
    EXPECT_EQ(battery().isCharging, row.isCharging) << row.status;
    EXPECT_EQ(read().secondsRemaining, row.seconds) << row.status;
  }
}

TEST_F(LinuxPowerSupply, CapacityFromWhatIsLeft) {
  const struct {
    Files files;
    std::optional<int32_t> capacity;
  } kRows[] = {
      {{{"capacity", "0"}}, 0},
      {{{"capacity", "100"}}, 100},
      {{{"capacity", "101"}, {"energy_now", "1"}, {"energy_full", "4"}}, 25},
      {{{"energy_now", "999"}, {"energy_full", "1000"}}, 99},
      {{{"charge_now", "1100"}, {"charge_full", "1000"}}, 100},
      {{{"charge_now", "1"}, {"charge_full", "0"}}, std::nullopt},
      {{{"charge_now", "-1"}, {"charge_full", "10"}}, std::nullopt},
      {{{"capacity", "full"}}, std::nullopt},
      {{}, std::nullopt},
  };
  for (const auto &row : kRows) {
    std::filesystem::remove_all(folder() + "/BAT0");
    addBattery(row.files);
    EXPECT_EQ(battery().capacity, row.capacity);
  }
}

}  // namespace
}  // namespace host::linux_machine
