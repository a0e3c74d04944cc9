#include "host/linux/power_supply.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

namespace host::linux_machine {

static constexpr char kMainsState[] = "AC Power";
static constexpr char kBatteryState[] = "Battery Power";
static constexpr double kUnknownTime = -1;
static constexpr double kUnlimitedTime = -2;
static constexpr double kSecondsPerHour = 3600;

// What a battery holds and loses, as far as its driver says so.
struct PowerSupply::Battery {
  PowerSource source;
  std::string status;
  std::string_view unit;  // what `reserve` is called: energy or charge; empty when not known
  double reserve = 0;     // millionths of watt hours or ampere hours
  double drain = 0;       // millionths of watts or amperes
  std::optional<int64_t> secondsToEmpty;
};

PowerSupply::PowerSupply(std::string folder) : folder_(std::move(folder)) {}

bool PowerSupply::readText(const std::string &supply, const char *file, std::string &text) {
  std::string_view read;
  const std::string path = folder_ + "/" + supply + "/" + file;
  if (reader_.readRecord(AT_FDCWD, path.c_str(), read) != kAnswered) return false;
  text = read.substr(0, read.find('\n'));
  return !text.empty();
}

std::optional<int64_t> PowerSupply::readNumber(const std::string &supply, const char *file) {
  std::string text;
  int64_t number = 0;
  if (!readText(supply, file, text) || !parseNumber(text, number)) return std::nullopt;
  return number;
}

std::optional<int32_t> PowerSupply::readCapacity(const std::string &supply) {
  const std::optional<int64_t> percent = readNumber(supply, "capacity");
  if (percent && *percent >= 0 && *percent <= 100) return static_cast<int32_t>(*percent);
  constexpr const char *kPairs[][2] = {{"energy_now", "energy_full"},
                                       {"charge_now", "charge_full"}};
  for (const auto &pair : kPairs) {
    const std::optional<int64_t> now = readNumber(supply, pair[0]);
    const std::optional<int64_t> full = readNumber(supply, pair[1]);
    if (!now || !full || *now < 0 || *full <= 0) continue;
    const double share = static_cast<double>(*now) / static_cast<double>(*full);
    return static_cast<int32_t>(std::min(share, 1.0) * 100);
  }
  return std::nullopt;
}

void PowerSupply::readReserve(const std::string &supply, Battery &battery) {
  constexpr const char *kPairs[][2] = {{"energy_now", "power_now"}, {"charge_now", "current_now"}};
  for (const auto &pair : kPairs) {
    const std::optional<int64_t> reserve = readNumber(supply, pair[0]);
    const std::optional<int64_t> drain = readNumber(supply, pair[1]);
    if (!reserve || !drain || *reserve < 0) continue;
    battery.unit = pair[0];
    battery.reserve = static_cast<double>(*reserve);
    // Some drivers count what flows out as negative.
    battery.drain = *drain < 0 ? -static_cast<double>(*drain) : static_cast<double>(*drain);
    return;
  }
}

PowerSupply::Battery PowerSupply::readBattery(const std::string &supply) {
  Battery battery;
  battery.source.capacity = readCapacity(supply);
  if (readText(supply, "status", battery.status) && battery.status != "Unknown") {
    battery.source.isCharging = battery.status == "Charging";
  }
  battery.secondsToEmpty = readNumber(supply, "time_to_empty_now");
  readReserve(supply, battery);
  return battery;
}

// One battery may drain while another waits for its turn: what counts is the sum.
double PowerSupply::secondsRemaining(const std::vector<Battery> &batteries) {
  const int64_t told = batteries.size() == 1 ? batteries[0].secondsToEmpty.value_or(0) : 0;
  if (told > 0) return static_cast<double>(told);
  double reserve = 0;
  double drain = 0;
  for (const Battery &battery : batteries) {
    if (battery.unit.empty() || battery.unit != batteries[0].unit) return kUnknownTime;
    reserve += battery.reserve;
    drain += battery.drain;
  }
  return drain > 0 ? reserve / drain * kSecondsPerHour : kUnknownTime;
}

// What feeds the machine, where no mains supply tells: a battery that loses nothing is fed itself.
static std::optional<std::string> stateFrom(const std::string &status) {
  if (status == "Discharging") return kBatteryState;
  if (status == "Charging" || status == "Full" || status == "Not charging") return kMainsState;
  return std::nullopt;
}

Errno PowerSupply::read(PowerStatus &status) {
  std::vector<std::string> supplies;
  const FileHandle directory = openDirectory(AT_FDCWD, folder_.c_str());
  if (directory.isOpen()) {
    const Errno error = lister_.readNames(
        directory.get(), [&](const char *name, bool) { supplies.emplace_back(name); });
    if (error != kAnswered) return error;
  } else if (errno != ENOENT) {
    return darwinError(errno);
  }
  std::sort(supplies.begin(), supplies.end());

  std::vector<Battery> batteries;
  std::optional<bool> hasMains;
  for (const std::string &supply : supplies) {
    std::string type;
    std::string scope;
    if (!readText(supply, "type", type)) continue;
    if (readText(supply, "scope", scope) && scope == "Device") continue;
    if (type == "Battery") {
      if (readNumber(supply, "present").value_or(1) != 0) batteries.push_back(readBattery(supply));
    } else if (type == "Mains" || type == "USB" || type == "Wireless") {
      const std::optional<int64_t> online = readNumber(supply, "online");
      if (online) hasMains = hasMains.value_or(false) || *online != 0;
    }
  }

  PowerStatus found;
  found.sources.emplace();
  for (Battery &battery : batteries) {
    battery.source.state = stateFrom(battery.status);
    if (hasMains) battery.source.state = *hasMains ? kMainsState : kBatteryState;
    found.sources->push_back(battery.source);
  }
  const bool isFed = batteries.empty() || batteries[0].source.state == kMainsState;
  found.secondsRemaining = isFed ? kUnlimitedTime : secondsRemaining(batteries);
  status = std::move(found);
  return kAnswered;
}

}  // namespace host::linux_machine
