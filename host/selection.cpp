// Which machine answers: the choice from the environment before main, and a test's replacement.
#include "host/selection.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "host/linux/linux_machine.h"
#include "host/none/no_machine.h"

namespace host {

namespace {

// As sysexits.h has them: the command was used wrongly, the system fails.
constexpr int kUsageStatus = 64;
constexpr int kSystemStatus = 71;

std::atomic<Machine *> g_replacement{nullptr};

// Never destroyed: other threads may still ask while the program exits.
Machine &chosenMachine() {
  static Machine *const chosen = chooseMachine(std::getenv("SONDEX_DEVICE")).release();
  return *chosen;
}

// Makes the choice before main, so that a wrong word ends the program before anything has started.
[[maybe_unused]] const Machine &g_chosenAtStart = chosenMachine();

}  // namespace

std::unique_ptr<Machine> chooseMachine(const char *device) noexcept {
  const std::string_view word = device == nullptr ? "" : device;
  try {
    if (word == "none") return std::make_unique<NoMachine>();
    if (!word.empty()) {
      dprintf(STDERR_FILENO, "sondex: SONDEX_DEVICE=%s: no such device; known: none\n", device);
      _exit(kUsageStatus);
    }
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
