#include "host/linux/identity.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <utility>

#include "host/darwin/errors.h"
#include "host/posix.h"

namespace host::linux_machine {

using darwin::DARWIN_ENOENT;

static constexpr char kFirmware[] = "/sys/class/dmi/id/";
static constexpr char kDeviceTree[] = "/sys/firmware/devicetree/base/";
static constexpr char kInterfaces[] = "/sys/class/net/";
static constexpr char kBluetooth[] = "/sys/class/bluetooth/";
static constexpr std::string_view kEthernetType = "1";

// What stands in firmware tables that were never filled in.
static constexpr std::string_view kPlaceholders[] = {
    "to be filled by o.e.m.",
    "default string",
    "system product name",
    "system version",
    "system serial number",
    "not specified",
    "not applicable",
    "none",
    "n/a",
    "unknown",
    "product name",
    "o.e.m.",
    "type1productconfigid",
    "invalid",
    "0",
    "empty",
    "to be filled by o.e.m",
    "oem",
    "undefined",
    "chassis serial number",
};

struct Identity::Row {
  std::string_view key;
  Source source;
};

const Identity::Row Identity::kRows[] = {
    {"ComputerName", &Identity::computerName},
    {"marketing-name", &Identity::marketingName},
    {"HWModelStr", &Identity::modelName},
    {"ProductName", &Identity::productName},
    {"ProductVersion", &Identity::productVersion},
    {"BuildVersion", &Identity::buildVersion},
    {"SerialNumber", &Identity::serialNumber},
    {"UniqueDeviceID", &Identity::uniqueID},
    {"HardwarePlatform", &Identity::platform},
    {"CPUArchitecture", &Identity::architecture},
    {"WifiAddress", &Identity::wifiAddress},
    {"EthernetMacAddress", &Identity::ethernetAddress},
    {"BluetoothAddress", &Identity::bluetoothAddress},
};

static std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

static bool isPlaceholder(std::string_view text) {
  std::string lower(text);
  for (char &c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return std::find(std::begin(kPlaceholders), std::end(kPlaceholders), lower) !=
         std::end(kPlaceholders);
}

// Takes quotes and backslashes off, as a shell would.
static std::string unquoted(std::string_view text) {
  const bool isQuoted = text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
                        text.back() == text.front();
  const bool hasEscapes = !(isQuoted && text.front() == '\'');
  if (isQuoted) text = text.substr(1, text.size() - 2);
  std::string plain;
  for (size_t i = 0; i < text.size(); i++) {
    if (hasEscapes && text[i] == '\\' && i + 1 < text.size()) i++;
    plain += text[i];
  }
  return plain;
}

bool findRelease(std::string_view text, std::string_view key, std::string &value) {
  bool isFound = false;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.size() <= key.size() || !line.starts_with(key) || line[key.size()] != '=') continue;
    // As for a shell, the last one counts.
    std::string found = unquoted(line.substr(key.size() + 1));
    isFound = !found.empty();
    if (isFound) value = std::move(found);
  }
  return isFound;
}

Identity::Identity(std::string root) : root_(std::move(root)) {}

Errno Identity::answer(std::string_view key, std::string &answer) {
  for (const Row &row : kRows) {
    if (row.key == key) return (this->*row.source)(answer);
  }
  return DARWIN_ENOENT;
}

Errno Identity::readText(const std::string &path, std::string &text) {
  std::string_view read;
  const Errno error = reader_.readRecord(AT_FDCWD, (root_ + path).c_str(), read);
  if (error != kAnswered) return error;
  const std::string_view found = trimmed(read.substr(0, read.find_first_of({"\n\0", 2})));
  if (found.empty()) return DARWIN_ENOENT;
  text = found;
  return kAnswered;
}

Errno Identity::readVendorText(const std::string &path, std::string &text) {
  std::string found;
  const Errno error = readText(path, found);
  if (error != kAnswered) return error;
  if (isPlaceholder(found)) return DARWIN_ENOENT;
  text = std::move(found);
  return kAnswered;
}

bool Identity::exists(const std::string &path) const {
  return access((root_ + path).c_str(), F_OK) == 0;
}

Errno Identity::sortedNames(const std::string &path, std::vector<std::string> &names) {
  const FileHandle directory = openDirectory(AT_FDCWD, (root_ + path).c_str());
  if (!directory.isOpen()) return darwinError(errno);
  const Errno error = lister_.readNames(
      directory.get(), [&names](const char *name, bool) { names.emplace_back(name); });
  std::sort(names.begin(), names.end());
  return error;
}

Errno Identity::computerName(std::string &answer) {
  std::string name;
  const Errno error = readText("/proc/sys/kernel/hostname", name);
  if (error != kAnswered) return error;
  if (name == "(none)") return DARWIN_ENOENT;
  answer = std::move(name);
  return kAnswered;
}

// A machine without firmware tables is called by what the kernel calls its hardware.
Errno Identity::marketingName(std::string &answer) {
  if (readVendorText(std::string(kFirmware) + "product_name", answer) == kAnswered ||
      readText(std::string(kDeviceTree) + "model", answer) == kAnswered) {
    return kAnswered;
  }
  return architecture(answer);
}

Errno Identity::modelName(std::string &answer) {
  for (const char *file : {"board_name", "product_version"}) {
    if (readVendorText(std::string(kFirmware) + file, answer) == kAnswered) return kAnswered;
  }
  // The first of several texts, the most exact one.
  return readText(std::string(kDeviceTree) + "compatible", answer);
}

Errno Identity::productName(std::string &answer) {
  std::string_view text;
  const Errno error = reader_.readList(AT_FDCWD, (root_ + "/etc/os-release").c_str(), text);
  if (error == kAnswered && findRelease(text, "NAME", answer)) return kAnswered;
  return readText("/proc/sys/kernel/ostype", answer);
}

// A system that is released bit by bit has no version, but may have one of the others.
Errno Identity::productVersion(std::string &answer) {
  std::string_view text;
  const Errno error = reader_.readList(AT_FDCWD, (root_ + "/etc/os-release").c_str(), text);
  if (error != kAnswered) return error;
  for (const char *key : {"VERSION_ID", "BUILD_ID", "VERSION_CODENAME"}) {
    if (findRelease(text, key, answer)) return kAnswered;
  }
  return DARWIN_ENOENT;
}

Errno Identity::buildVersion(std::string &answer) {
  return readText("/proc/sys/kernel/osrelease", answer);
}

Errno Identity::serialNumber(std::string &answer) {
  const Errno error = readVendorText(std::string(kFirmware) + "product_serial", answer);
  if (error != DARWIN_ENOENT) return error;
  return readText(std::string(kDeviceTree) + "serial-number", answer);
}

Errno Identity::uniqueID(std::string &answer) {
  return readVendorText(std::string(kFirmware) + "product_uuid", answer);
}

Errno Identity::platform(std::string &answer) {
  std::string_view text;
  const Errno error = reader_.readList(AT_FDCWD, (root_ + "/proc/cpuinfo").c_str(), text);
  std::string_view line;
  for (TextCursor lines(error == kAnswered ? text : std::string_view()); lines.line(line);) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos || trimmed(line.substr(0, colon)) != "model name") continue;
    const std::string_view name = trimmed(line.substr(colon + 1));
    if (name.empty()) break;
    answer = name;
    return kAnswered;
  }
  // The last of several texts names the chip.
  std::string_view names;
  const std::string path = root_ + kDeviceTree + "compatible";
  const Errno missing = reader_.readRecord(AT_FDCWD, path.c_str(), names);
  if (missing != kAnswered) return missing;
  while (!names.empty() && names.back() == '\0') names.remove_suffix(1);
  const std::string_view last = names.substr(names.rfind('\0') + 1);
  if (last.empty()) return DARWIN_ENOENT;
  answer = last;
  return kAnswered;
}

Errno Identity::architecture(std::string &answer) {
  new_utsname own{};
  if (__real_uname(&own) != 0) return darwinError(errno);
  answer = own.machine;
  return kAnswered;
}

// Interfaces of hardware only: bridges, tunnels and the like have no device.
Errno Identity::firstAddress(bool isWireless, std::string &address) {
  std::vector<std::string> names;
  const Errno error = sortedNames(kInterfaces, names);
  if (error != kAnswered) return error;
  for (const std::string &name : names) {
    const std::string interface = kInterfaces + name + "/";
    std::string type;
    std::string found;
    if (!exists(interface + "device") || readText(interface + "type", type) != kAnswered ||
        type != kEthernetType) {
      continue;
    }
    if ((exists(interface + "phy80211") || exists(interface + "wireless")) != isWireless) continue;
    if (readText(interface + "address", found) != kAnswered) continue;
    if (found.find_first_not_of("0:") == std::string::npos) continue;
    address = std::move(found);
    return kAnswered;
  }
  return DARWIN_ENOENT;
}

Errno Identity::wifiAddress(std::string &answer) {
  return firstAddress(true, answer);
}

Errno Identity::ethernetAddress(std::string &answer) {
  return firstAddress(false, answer);
}

Errno Identity::bluetoothAddress(std::string &answer) {
  std::vector<std::string> names;
  const Errno error = sortedNames(kBluetooth, names);
  if (error != kAnswered) return error;
  for (const std::string &name : names) {
    std::string found;
    if (readText(kBluetooth + name + "/address", found) != kAnswered) continue;
    if (found.find_first_not_of("0:") == std::string::npos) continue;
    answer = std::move(found);
    return kAnswered;
  }
  return DARWIN_ENOENT;
}

}  // namespace host::linux_machine
