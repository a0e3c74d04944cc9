// Which machine answers: the choice from the environment before main, and a test's replacement.
#include "host/selection.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "host/linux/linux_machine.h"
#include "host/none/no_machine.h"
#include "host/simulator/device_file.h"
#include "host/simulator/simulated_machine.h"

namespace host {

namespace {

// As sysexits.h has them: the command was used wrongly, the data are wrong, the system fails.
constexpr int kUsageStatus = 64;
constexpr int kDataStatus = 65;
constexpr int kSystemStatus = 71;

constexpr std::string_view kEnding = ".toml";
constexpr std::string_view kNone = "none";
// From the folder of an installed program; packaging/linux/ puts them there.
constexpr std::string_view kInstalledDevices = "../share/sondex/devices";

std::atomic<Machine *> g_replacement{nullptr};

// Never destroyed: other threads may still ask while the program exits.
Machine &chosenMachine() {
  static Machine *const chosen = chooseMachine(std::getenv("SONDEX_DEVICE")).release();
  return *chosen;
}

// Makes the choice before main, so that a wrong word ends the program before anything has started.
[[maybe_unused]] const Machine &g_chosenAtStart = chosenMachine();

std::string deviceFolder() {
  const char *folder = std::getenv("SONDEX_DEVICES");
  if (folder != nullptr && *folder != '\0') return folder;
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::filesystem::path installed = program.parent_path() / kInstalledDevices;
  if (!error && std::filesystem::is_directory(installed, error)) return installed.string();
  return SONDEX_DEVICES_DIR;
}

// The devices of the folder; none when it can't be read.
std::vector<std::string> knownDevices() {
  std::vector<std::string> names;
  std::error_code error;
  std::filesystem::directory_iterator entry(deviceFolder(), error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    std::string name = entry->path().filename().string();
    if (name.size() <= kEnding.size() || !name.ends_with(kEnding)) continue;
    name.resize(name.size() - kEnding.size());
    names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Does not return for a word that names no device.
std::string fileOf(std::string_view word) {
  if (word.find('/') != std::string_view::npos || word.ends_with(kEnding)) return std::string(word);
  const std::vector<std::string> known = knownDevices();
  if (std::find(known.begin(), known.end(), word) != known.end()) {
    return deviceFolder() + "/" + std::string(word) + std::string(kEnding);
  }
  std::string list;
  for (const std::string &name : known) list += name + ", ";
  list += kNone;
  dprintf(STDERR_FILENO, "sondex: SONDEX_DEVICE=%s: no such device; known: %s\n",
          std::string(word).c_str(), list.c_str());
  _exit(kUsageStatus);
}

[[noreturn]] void refuse(const simulator::Mistake &mistake) {
  dprintf(STDERR_FILENO, "%s\n", mistake.text().c_str());
  _exit(kDataStatus);
}

std::unique_ptr<Machine> simulatedMachine(std::string_view word) {
  const std::string file = fileOf(word);
  std::variant<simulator::Device, simulator::Mistake> read = simulator::readDeviceFile(file);
  if (const auto *mistake = std::get_if<simulator::Mistake>(&read)) refuse(*mistake);
  simulator::Device &device = std::get<simulator::Device>(read);
  // Whatever tells the time of day does so in the device's zone.
  if (!device.clock.zone.empty()) {
    setenv("TZ", device.clock.zone.c_str(), 1);
    tzset();
  }
  try {
    return std::make_unique<simulator::SimulatedMachine>(std::move(device));
  } catch (const std::invalid_argument &error) {
    refuse({file, 0, error.what(), ""});
  }
}

}  // namespace

std::unique_ptr<Machine> chooseMachine(const char *device) noexcept {
  const std::string_view word = device == nullptr ? "" : device;
  try {
    if (word == kNone) return std::make_unique<NoMachine>();
    if (!word.empty()) return simulatedMachine(word);
    if (std::unique_ptr<Machine> live = makeLinuxMachine()) return live;
    dprintf(STDERR_FILENO, "sondex: this system can't be read\n");
  } catch (const std::exception &error) {
    dprintf(STDERR_FILENO, "sondex: this system can't be read: %s\n", error.what());
  } catch (...) {
    dprintf(STDERR_FILENO, "sondex: this system can't be read\n");
  }
  _exit(kSystemStatus);
}

Machine &machine() {
  Machine *replacement = g_replacement.load(std::memory_order_acquire);
  return replacement != nullptr ? *replacement : chosenMachine();
}

Machine *useMachine(Machine *replacement) {
  return g_replacement.exchange(replacement, std::memory_order_acq_rel);
}

}  // namespace host
