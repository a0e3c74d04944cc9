#include "host/simulator/simulated_services.h"
#include "host/darwin/errors.h"

#include <string>
#include <variant>

namespace host::simulator {

static Errno giveAnswer(const GestaltValue &value, GestaltAnswer &answer) {
  if (const Refusal *refusal = std::get_if<Refusal>(&value)) {
    return refusal->error != kAnswered ? refusal->error : darwin::DARWIN_ENOENT;
  }
  if (const std::string *text = std::get_if<std::string>(&value)) {
    answer = *text;
  } else if (const int64_t *number = std::get_if<int64_t>(&value)) {
    answer = *number;
  } else {
    answer = std::get<bool>(value);
  }
  return kAnswered;
}

bool SimulatedServices::hasGestalt() {
  return device_.description().gestalt.has_value();
}

Errno SimulatedServices::gestaltAnswer(std::string_view key, GestaltAnswer &answer) {
  return device_.ask(Question::gestaltAnswer, [&](const Moment &at) -> Errno {
    const auto &answers = at.device().gestalt;
    if (!answers) return darwin::DARWIN_ENOTSUP;
    const auto found = answers->find(std::string(key));
    if (found == answers->end()) return darwin::DARWIN_ENOENT;
    return giveAnswer(found->second, answer);
  });
}

Errno SimulatedServices::powerStatus(PowerStatus &status) {
  return device_.ask(Question::powerStatus, [&](const Moment &at) -> Errno {
    const std::optional<Power> &power = at.device().power;
    if (!power) return darwin::DARWIN_ENOTSUP;
    status = {power->sources, power->secondsRemaining, power->assertions};
    return kAnswered;
  });
}

}  // namespace host::simulator
