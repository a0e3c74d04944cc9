#include "host/simulator/signals.h"

#include "host/darwin/signals.h"

namespace host::simulator {

static constexpr int32_t kLaunchd = 1;

SignalEffect effectOf(int signal) {
  switch (signal) {
    case darwin::DARWIN_SIGSTOP:
    case darwin::DARWIN_SIGTSTP:
    case darwin::DARWIN_SIGTTIN:
    case darwin::DARWIN_SIGTTOU:
      return SignalEffect::stop;
    case darwin::DARWIN_SIGCONT:
      return SignalEffect::resume;
    case 0:
    case darwin::DARWIN_SIGURG:
    case darwin::DARWIN_SIGCHLD:
    case darwin::DARWIN_SIGIO:
    case darwin::DARWIN_SIGWINCH:
    case darwin::DARWIN_SIGINFO:
      return SignalEffect::none;
    default:
      return SignalEffect::end;
  }
}

bool maySignal(uint32_t user, const Process &process, int signal) {
  if (process.pid == kLaunchd && signal == darwin::DARWIN_SIGKILL) return false;
  return user == kRoot || user == process.realUser || user == process.savedUser;
}

bool ignoresSignals(const Process &process) {
  return process.parent == 0;
}

bool isReachedInGroup(const Process &process) {
  return process.pid > kLaunchd && (process.flags & darwin::PROC_FLAG_SYSTEM) == 0 &&
         process.status != darwin::SZOMB;
}

}  // namespace host::simulator
