#include "host/simulator/device_state.h"

#include <limits>
#include <stdexcept>
#include <utility>
#include <variant>
#include <vector>

#include "darwin/kqueue.h"
#include "darwin/signals.h"
#include "host/darwin/errors.h"
#include "host/simulator/signals.h"

namespace host::simulator {

namespace {

// Ticks a second, of a processor that has nothing to do.
constexpr int64_t kIdleTicks = 100;

Device checked(Device device) {
  if (device.kernel.timebaseNumerator == 0 || device.kernel.timebaseDenominator == 0) {
    throw std::invalid_argument("a time base of nothing");
  }
  if (device.kernel.pageSize == 0) throw std::invalid_argument("pages of nothing");
  if (device.hardware.processors.empty()) {
    Processor idle;
    idle.idle = Figure::growing(0, kIdleTicks);
    device.hardware.processors.push_back(idle);
  }
  // Starts what is to start later once, to see that it can be.
  for (const Event &event : device.events) {
    if (const StartProcess *start = std::get_if<StartProcess>(&event.action)) {
      const ProcessTable trial({start->process});
    }
  }
  return device;
}

template <typename T>
void setIfGiven(const std::optional<T> &given, T &value) {
  if (given) value = *given;
}

void setIfGiven(const std::optional<uint64_t> &given, Nanoseconds own, Figure &figure) {
  if (given) figure = figure.setTo(*given, own);
}

}  // namespace

DeviceState::DeviceState(Device device)
    : device_(checked(std::move(device))),
      clock_(device_.clock),
      processes_(std::exchange(device_.processes, {})),
      timeline_(std::exchange(device_.events, {})) {}

Nanoseconds DeviceState::catchUp() {
  const Nanoseconds now = clock_.now();
  Due due;
  while (timeline_.takeDue(now, due)) {
    if (due.event != nullptr) {
      perform(due.event->action, due.at, due.event->lasts);
    } else {
      end(due.ending, due.at);
    }
  }
  return now;
}

void DeviceState::perform(const Action &action, Nanoseconds now, Lasting lasts) {
  std::visit([&](const auto &what) { happen(what, now, lasts); }, action);
}

void DeviceState::end(const Ending &ending, Nanoseconds now) {
  RunningProcess *process = processes_.find(ending.pid, ending.life);
  if (process == nullptr || process->isZombie()) return;
  switch (ending.of) {
    case Ending::Of::process:
      endProcess(*process, 0, false, now);
      break;
    case Ending::Of::stop:
      if (process->stops() == ending.instance) resume(*process, now);
      break;
    case Ending::Of::descriptor:
      if (process->openingOf(ending.number) == ending.instance) {
        processes_.close(*process, ending.number);
      }
      break;
  }
}

void DeviceState::endLater(const Ending &ending, Nanoseconds now, Lasting lasts) {
  if (lasts) timeline_.endLater(ending, addSaturating(now, *lasts));
}

RunningProcess *DeviceState::findLive(int32_t pid) {
  RunningProcess *process = processes_.find(pid);
  return process != nullptr && !process->isZombie() ? process : nullptr;
}

void DeviceState::tell(const RunningProcess &process, uint32_t note) {
  watches_.tell(process.pid(), process.life(), note);
}

// What a process asked the power management for goes with it.
void DeviceState::endProcess(RunningProcess &process, uint32_t status, bool staysZombie,
                             Nanoseconds now) {
  if (!process.isZombie()) {
    tell(process, darwin::NOTE_EXIT);
    if (device_.power && device_.power->assertions) {
      device_.power->assertions->erase(process.pid());
    }
  }
  processes_.end(process, status, staysZombie, now);
}

void DeviceState::resume(RunningProcess &process, Nanoseconds now) {
  process.resume(now);
  const int kept = process.keptSignal();
  if (kept != 0) endProcess(process, static_cast<uint32_t>(kept), false, now);
}

// Nothing but SIGKILL reaches a process that stands still. A process that a signal ends does not
// stay a zombie: its parent waits for it.
void DeviceState::deliver(RunningProcess &process, int signal, Nanoseconds now) {
  if (ignoresSignals(process.description())) return;
  switch (effectOf(signal)) {
    case SignalEffect::none:
      break;
    case SignalEffect::stop:
      process.stop(now);
      break;
    case SignalEffect::resume:
      resume(process, now);
      break;
    case SignalEffect::end:
      if (process.isStopped() && signal != darwin::DARWIN_SIGKILL) {
        process.keepSignal(signal);
      } else {
        endProcess(process, static_cast<uint32_t>(signal), false, now);
      }
      break;
  }
}

Errno DeviceState::signal(int32_t pid, int signal, Nanoseconds now) {
  if (signal < 0 || signal > kLargestSignal) return darwin::DARWIN_EINVAL;
  // The group of the program itself, which is none of the device's; the kernel's PID means that.
  if (pid == 0) return darwin::DARWIN_EPERM;
  if (pid == -1) return signalSeveral(std::nullopt, signal, now);
  if (pid == std::numeric_limits<int32_t>::min()) return darwin::DARWIN_ESRCH;
  if (pid < 0) return signalSeveral(-pid, signal, now);
  RunningProcess *process = processes_.find(pid);
  if (process == nullptr) return darwin::DARWIN_ESRCH;
  if (process->isZombie()) return kAnswered;
  if (!maySignal(device_.caller, process->description(), signal)) return darwin::DARWIN_EPERM;
  deliver(*process, signal, now);
  return kAnswered;
}

// To all processes if there is no group.
Errno DeviceState::signalSeveral(std::optional<int32_t> group, int signal, Nanoseconds now) {
  bool exists = !group;
  std::vector<RunningProcess *> reached;
  for (const std::unique_ptr<RunningProcess> &process : processes_.inStartOrder()) {
    const Process &description = process->description();
    if (group && description.group.value_or(process->pid()) != *group) continue;
    exists = true;
    if (isReachedInGroup(description) && maySignal(device_.caller, description, signal)) {
      reached.push_back(process.get());
    }
  }
  if (!exists) return darwin::DARWIN_ESRCH;
  // One that ends takes no other one with it.
  for (RunningProcess *process : reached) deliver(*process, signal, now);
  return reached.empty() ? darwin::DARWIN_EPERM : kAnswered;
}

// To start a process, its parent forks.
void DeviceState::happen(const StartProcess &start, Nanoseconds now, Lasting lasts) {
  const RunningProcess *process = processes_.start(start.process, now);
  if (process == nullptr) return;
  const RunningProcess *parent = findLive(process->description().parent);
  if (parent != nullptr) tell(*parent, darwin::NOTE_FORK);
  endLater({Ending::Of::process, process->pid(), process->life()}, now, lasts);
}

// A zombie that exits is one that its parent has waited for.
void DeviceState::happen(const ExitProcess &exit, Nanoseconds now, Lasting) {
  RunningProcess *process = processes_.find(exit.pid);
  if (process != nullptr) endProcess(*process, exit.status, exit.staysZombie, now);
}

void DeviceState::happen(const ForkProcess &fork, Nanoseconds now, Lasting) {
  const RunningProcess *parent = findLive(fork.pid);
  if (parent == nullptr || processes_.fork(*parent, fork.child, now) == nullptr) return;
  tell(*parent, darwin::NOTE_FORK);
}

void DeviceState::happen(const ExecProcess &exec, Nanoseconds, Lasting) {
  RunningProcess *process = findLive(exec.pid);
  if (process == nullptr) return;
  Process &description = process->description();
  description.name = exec.name;
  description.longName.clear();
  if (!exec.path.empty()) description.path = exec.path;
  description.arguments = exec.arguments;
  description.flags |= darwin::PROC_FLAG_EXEC;
  tell(*process, darwin::NOTE_EXEC);
}

void DeviceState::happen(const StopProcess &stop, Nanoseconds now, Lasting lasts) {
  RunningProcess *process = findLive(stop.pid);
  const uint64_t instance = process != nullptr ? process->stop(now) : 0;
  if (instance == 0) return;
  endLater({Ending::Of::stop, stop.pid, process->life(), 0, instance}, now, lasts);
}

void DeviceState::happen(const ContinueProcess &proceed, Nanoseconds now, Lasting) {
  RunningProcess *process = findLive(proceed.pid);
  if (process != nullptr) resume(*process, now);
}

void DeviceState::happen(const ChangeProcess &change, Nanoseconds now, Lasting) {
  RunningProcess *process = findLive(change.pid);
  if (process == nullptr) return;
  Process &description = process->description();
  const Nanoseconds own = process->ownTime(now);
  setIfGiven(change.virtualSize, own, description.virtualSize);
  setIfGiven(change.residentSize, own, description.residentSize);
  if (description.usage) {
    setIfGiven(change.diskRead, own, description.usage->diskRead);
    setIfGiven(change.diskWritten, own, description.usage->diskWritten);
  }
  setIfGiven(change.priority, description.priority);
  if (description.jetsam) {
    setIfGiven(change.band, description.jetsam->band);
    setIfGiven(change.limit, description.jetsam->limit);
    setIfGiven(change.limit, description.jetsam->inactiveLimit);
    setIfGiven(change.jetsamState, description.jetsam->state);
  }
  setIfGiven(change.sandboxed, description.sandboxed);
  setIfGiven(change.codeSigningFlags, description.codeSigningFlags);
  if (change.applicationState) description.applicationState = change.applicationState;
  if (change.threads) processes_.setThreads(*process, *change.threads, now);
}

void DeviceState::happen(const OpenDescriptor &open, Nanoseconds now, Lasting lasts) {
  RunningProcess *process = findLive(open.pid);
  if (process == nullptr) return;
  const Descriptor *opened = processes_.open(*process, open.descriptor, now);
  if (opened == nullptr) return;
  const int32_t number = opened->number;
  endLater({Ending::Of::descriptor, open.pid, process->life(), number, process->openingOf(number)},
           now, lasts);
}

void DeviceState::happen(const CloseDescriptor &close, Nanoseconds, Lasting) {
  RunningProcess *process = findLive(close.pid);
  if (process != nullptr) processes_.close(*process, close.number);
}

// The event sets the level only on a device that has one: none becomes able to tell it.
void DeviceState::happen(const RaisePressure &pressure, Nanoseconds now, Lasting) {
  pressure_.add(now, pressure.wantedPages, pressure.reclaimedPages);
  if (pressure.level && device_.memoryLevel) device_.memoryLevel = Figure(*pressure.level);
}

void DeviceState::happen(const ChangePower &change, Nanoseconds, Lasting) {
  if (!device_.power) return;
  setIfGiven(change.secondsRemaining, device_.power->secondsRemaining);
  if (change.source >= device_.power->sources.size()) return;
  PowerSource &source = device_.power->sources[change.source];
  if (change.capacity) source.capacity = change.capacity;
  if (change.state) source.state = change.state;
  if (change.isCharging) source.isCharging = change.isCharging;
}

void DeviceState::happen(const FailCall &fault, Nanoseconds now, Lasting lasts) {
  faults_.add(fault, now, lasts);
}

}  // namespace host::simulator
