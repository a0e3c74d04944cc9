#include "host/simulator/device_state.h"

#include <stdexcept>
#include <utility>
#include <variant>

namespace host::simulator {

namespace {

// Ticks a second, of a processor that has nothing to do.
constexpr int64_t kIdleTicks = 100;

Device checked(Device device) {
  if (device.kernel.timebaseNumerator == 0 || device.kernel.timebaseDenominator == 0) {
    throw std::invalid_argument("a time base of nothing");
  }
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
      processes_.end(*process, 0, false, now);
      break;
    case Ending::Of::stop:
      if (process->stops() == ending.instance) process->resume(now);
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

void DeviceState::happen(const StartProcess &start, Nanoseconds now, Lasting lasts) {
  const RunningProcess *process = processes_.start(start.process, now);
  if (process == nullptr) return;
  endLater({Ending::Of::process, process->pid(), process->life()}, now, lasts);
}

// A zombie that exits is one that its parent has waited for.
void DeviceState::happen(const ExitProcess &exit, Nanoseconds now, Lasting) {
  RunningProcess *process = processes_.find(exit.pid);
  if (process != nullptr) processes_.end(*process, exit.status, exit.staysZombie, now);
}

void DeviceState::happen(const ForkProcess &fork, Nanoseconds now, Lasting) {
  const RunningProcess *parent = findLive(fork.pid);
  if (parent != nullptr) processes_.fork(*parent, fork.child, now);
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
}

void DeviceState::happen(const StopProcess &stop, Nanoseconds now, Lasting lasts) {
  RunningProcess *process = findLive(stop.pid);
  const uint64_t instance = process != nullptr ? process->stop(now) : 0;
  if (instance == 0) return;
  endLater({Ending::Of::stop, stop.pid, process->life(), 0, instance}, now, lasts);
}

void DeviceState::happen(const ContinueProcess &resume, Nanoseconds now, Lasting) {
  RunningProcess *process = findLive(resume.pid);
  if (process != nullptr) process->resume(now);
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

// A device that does not tell the level does not begin to.
void DeviceState::happen(const RaisePressure &pressure, Nanoseconds now, Lasting) {
  LastPressure last;
  last.at = now;
  last.times = lastPressure_ ? lastPressure_->times + 1 : 1;
  last.wantedPages = pressure.wantedPages;
  last.reclaimedPages = pressure.reclaimedPages;
  lastPressure_ = last;
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
