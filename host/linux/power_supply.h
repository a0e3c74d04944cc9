// Batteries and mains of this machine, as its power-supply drivers report them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/linux/procfs.h"
#include "host/machine/power.h"

namespace host::linux_machine {

class PowerSupply {
 public:
  // `folder` has a folder for each supply.
  explicit PowerSupply(std::string folder = "/sys/class/power_supply");

  // Batteries that feed the machine, in the order of their names: those of a mouse or a headset
  // don't. No folder is a machine without supplies.
  Errno read(PowerStatus &status);

 private:
  struct Battery;

  bool readText(const std::string &supply, const char *file, std::string &text);
  std::optional<int64_t> readNumber(const std::string &supply, const char *file);
  Battery readBattery(const std::string &supply);
  std::optional<int32_t> readCapacity(const std::string &supply);
  void readReserve(const std::string &supply, Battery &battery);
  static double secondsRemaining(const std::vector<Battery> &batteries);

  std::string folder_;
  FileReader reader_;
  DirectoryReader lister_;
};

}  // namespace host::linux_machine
