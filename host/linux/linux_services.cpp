#include "host/linux/linux_services.h"

#include <string>
#include <utility>

#include "host/linux/process_events.h"

namespace host::linux_machine {

bool LinuxServices::hasGestalt() {
  return true;
}

Errno LinuxServices::gestaltAnswer(std::string_view key, GestaltAnswer &answer) {
  const std::lock_guard lock(mutex_);
  std::string text;
  Errno error = identity_.answer(key, text);
  if (error == kAnswered) answer = std::move(text);
  return error;
}

Errno LinuxServices::powerStatus(PowerStatus &status) {
  const std::lock_guard lock(mutex_);
  return powerSupply_.read(status);
}

Errno LinuxServices::processEvents(std::unique_ptr<ProcessEvents> &watch) {
  return LinuxProcessEvents::open(watch);
}

}  // namespace host::linux_machine
