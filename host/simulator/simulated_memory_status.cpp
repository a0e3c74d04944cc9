#include "host/simulator/simulated_memory_status.h"
#include "host/darwin/errors.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace host::simulator {

static constexpr uint64_t kWholePercent = 100;

Errno SimulatedMemoryStatus::memoryStatusList(
    std::vector<darwin::memorystatus_priority_entry> &entries) {
  return device_->ask(Question::memoryStatusList, [&](const Moment &at) {
    const auto &processes = at.state.processes().inStartOrder();
    std::vector<darwin::memorystatus_priority_entry> list;
    list.reserve(processes.size());
    for (const auto &process : processes) {
      const std::optional<Jetsam> &jetsam = process->description().jetsam;
      if (process->pid() == 0 || process->isZombie() || !jetsam) continue;
      list.push_back(
          {process->pid(), jetsam->band, jetsam->userData, jetsam->limit, jetsam->state});
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const auto &a, const auto &b) { return a.priority < b.priority; });
    entries = std::move(list);
  });
}

Errno SimulatedMemoryStatus::memoryStatusLevel(unsigned int &level) {
  return device_->ask(Question::memoryStatusLevel, [&](const Moment &at) -> Errno {
    const std::optional<Figure> &figure = at.device().memoryLevel;
    if (!figure) return darwin::DARWIN_ENOTSUP;
    level = static_cast<unsigned int>(std::min(figure->at(at.now), kWholePercent));
    return kAnswered;
  });
}

Errno SimulatedMemoryStatus::memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                                            uint32_t &reclaimed) {
  const std::shared_ptr<LiveDevice> device = device_;
  size_t told = 0;
  const Errno error = device->ask(Question::memoryPressure, [&](const Moment &at) {
    const PressureRecord &pressure = at.state.pressure();
    told = pressure.told();
    if (waits) return;
    wanted = pressure.wanted();
    reclaimed = pressure.reclaimed(at.now, seconds);
  });
  if (error != kAnswered || !waits) return error;
  const LiveDevice::Waited waited = device->wait(
      std::nullopt,
      [&](DeviceState &state) {
        return state.device().tellsInBackground && state.pressure().times() > told;
      },
      [&](DeviceState &state) {
        PressureRecord &pressure = state.pressure();
        pressure.markTold();
        wanted = pressure.wanted();
        reclaimed = pressure.reclaimed(pressure.last()->at, seconds);
      });
  return waited == LiveDevice::Waited::happened ? kAnswered : darwin::DARWIN_EINTR;
}

}  // namespace host::simulator
