// A simulated device as it is at a moment, and how the events that it was described with change it.
#pragma once

#include <cstdint>
#include <optional>

#include "host/simulator/device.h"
#include "host/simulator/faults.h"
#include "host/simulator/machine_clock.h"
#include "host/simulator/pressure.h"
#include "host/simulator/process_table.h"
#include "host/simulator/process_watches.h"
#include "host/simulator/timeline.h"

namespace host::simulator {

// Not for use by several threads at once.
class DeviceState {
 public:
  // Throws std::invalid_argument as SimulatedMachine does.
  explicit DeviceState(Device device);

  // The clock may be moved on; `catchUp` lets happen what was to happen by then.
  MachineClock &clock() { return clock_; }
  const MachineClock &clock() const { return clock_; }
  // Returns the present moment.
  Nanoseconds catchUp();
  // `lasts` as in Event.
  void perform(const Action &action, Nanoseconds now, std::optional<Nanoseconds> lasts);

  // Without its processes and events.
  const Device &device() const { return device_; }
  ProcessTable &processes() { return processes_; }
  const Faults &faults() const { return faults_; }
  PressureRecord &pressure() { return pressure_; }
  ProcessWatches &watches() { return watches_; }
  // When something happens next by itself; nothing if that is never.
  std::optional<Nanoseconds> nextDue() const { return timeline_.nextDue(); }

  // As ProcessQuestions::sendSignal.
  Errno signal(int32_t pid, int signal, Nanoseconds now);

 private:
  using Lasting = std::optional<Nanoseconds>;

  void end(const Ending &ending, Nanoseconds now);
  void endLater(const Ending &ending, Nanoseconds now, Lasting lasts);
  RunningProcess *findLive(int32_t pid);
  void tell(const RunningProcess &process, uint32_t note);
  // The process is gone then, or a zombie.
  void endProcess(RunningProcess &process, uint32_t status, bool staysZombie, Nanoseconds now);
  // One that a signal waits for may be gone then.
  void resume(RunningProcess &process, Nanoseconds now);
  Errno signalSeveral(std::optional<int32_t> group, int signal, Nanoseconds now);
  void deliver(RunningProcess &process, int signal, Nanoseconds now);

  void happen(const StartProcess &start, Nanoseconds now, Lasting lasts);
  void happen(const ExitProcess &exit, Nanoseconds now, Lasting lasts);
  void happen(const ForkProcess &fork, Nanoseconds now, Lasting lasts);
  void happen(const ExecProcess &exec, Nanoseconds now, Lasting lasts);
  void happen(const StopProcess &stop, Nanoseconds now, Lasting lasts);
  void happen(const ContinueProcess &proceed, Nanoseconds now, Lasting lasts);
  void happen(const ChangeProcess &change, Nanoseconds now, Lasting lasts);
  void happen(const OpenDescriptor &open, Nanoseconds now, Lasting lasts);
  void happen(const CloseDescriptor &close, Nanoseconds now, Lasting lasts);
  void happen(const RaisePressure &pressure, Nanoseconds now, Lasting lasts);
  void happen(const ChangePower &change, Nanoseconds now, Lasting lasts);
  void happen(const FailCall &fault, Nanoseconds now, Lasting lasts);

  Device device_;
  MachineClock clock_;
  ProcessTable processes_;
  Timeline timeline_;
  Faults faults_;
  PressureRecord pressure_;
  ProcessWatches watches_;
};

}  // namespace host::simulator
