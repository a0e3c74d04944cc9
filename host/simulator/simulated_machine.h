// A machine that exists only as a description (device.h): it answers as a Darwin kernel on such a
// device would, as of the device's own clock, and lets its events happen when their time comes.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "host/machine.h"
#include "host/simulator/device.h"
#include "host/simulator/live_device.h"
#include "host/simulator/pressure.h"
#include "host/simulator/simulated_descriptors.h"
#include "host/simulator/simulated_events.h"
#include "host/simulator/simulated_host.h"
#include "host/simulator/simulated_kernel.h"
#include "host/simulator/simulated_memory_status.h"
#include "host/simulator/simulated_networks.h"
#include "host/simulator/simulated_processes.h"
#include "host/simulator/simulated_services.h"
#include "host/simulator/simulated_tasks.h"

namespace host::simulator {

// Every question may be asked from any thread; an answer is as of one moment. When memory runs out,
// a question throws std::bad_alloc.
class SimulatedMachine final : public Machine,
                               public SimulatedKernel,
                               public SimulatedProcesses,
                               public SimulatedTasks,
                               public SimulatedDescriptors,
                               public SimulatedHost,
                               public SimulatedMemoryStatus,
                               public SimulatedNetworks,
                               public SimulatedServices,
                               public SimulatedEvents {
 public:
  // Throws std::invalid_argument for a description that contradicts itself: two processes, two
  // threads or two descriptors of a process with the same number, regions that overlap, a number
  // out of its range, a time base or pages of nothing. The same goes for processes that are to
  // start later. A device that has no processors is given one that is idle.
  explicit SimulatedMachine(Device device);
  // Nobody may begin to ask any more. Who waits is told at once: for memory pressure by
  // DARWIN_EINTR, for processes by DARWIN_EBADF. A watch may live longer.
  ~SimulatedMachine() override;

  // Since the start of the device's clock.
  Nanoseconds now() const;
  // Moves a stepped clock on by hand. What was to happen meanwhile has happened. A wall clock
  // stays.
  void advance(Nanoseconds by);
  // Lets something happen at once; `lasts` as in Event. What can't happen does not.
  void happen(const Action &action, std::optional<Nanoseconds> lasts = std::nullopt);
  // How often a call was asked for, by its name as in FailCall.
  size_t callsOf(std::string_view call) const;
  // Nothing as long as there was none.
  std::optional<LastPressure> lastPressure();
  // As it is by now; nothing where there is no such service.
  std::optional<Power> power();

 private:
  explicit SimulatedMachine(std::shared_ptr<LiveDevice> device);

  std::shared_ptr<LiveDevice> device_;
};

}  // namespace host::simulator
