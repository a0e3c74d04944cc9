// Questions about what feeds the machine, and who keeps it awake.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/errno.h"

namespace host {

// What feeds the machine. What is not known is left out.
struct PowerSource {
  std::optional<int32_t> capacity;   // percent
  std::optional<std::string> state;  // "AC Power", "Battery Power"
  std::optional<bool> isCharging;
};

struct PowerStatus {
  // Empty for a machine without a battery; nothing when the service can't list them.
  std::optional<std::vector<PowerSource>> sources;
  double secondsRemaining = -1;  // -1 unknown, -2 unlimited
  // Names of the assertions of each process that holds some; nothing when the service gives none.
  std::optional<std::map<int32_t, std::vector<std::string>>> assertions;
};

class PowerQuestions {
 public:
  virtual Errno powerStatus(PowerStatus &) { return darwin::DARWIN_ENOTSUP; }

 protected:
  ~PowerQuestions() = default;
};

PowerQuestions &power();

}  // namespace host
