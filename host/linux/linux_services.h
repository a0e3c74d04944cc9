// What the services of this machine say: of its identity, of what feeds it, and of what happens to
// processes.
#pragma once

#include <memory>
#include <mutex>
#include <string_view>

#include "host/linux/identity.h"
#include "host/linux/power_supply.h"
#include "host/machine/events.h"
#include "host/machine/identity.h"
#include "host/machine/power.h"

namespace host::linux_machine {

class LinuxServices : public virtual IdentityQuestions,
                      public virtual PowerQuestions,
                      public virtual EventQuestions {
 public:
  bool hasGestalt() override;
  Errno gestaltAnswer(std::string_view key, GestaltAnswer &answer) override;
  Errno powerStatus(PowerStatus &status) override;
  Errno processEvents(std::unique_ptr<ProcessEvents> &watch) override;

 private:
  std::mutex mutex_;
  Identity identity_;
  PowerSupply powerSupply_;
};

}  // namespace host::linux_machine
