#include "host/simulator/simulated_memory_status.h"
#include "host/darwin/errors.h"
#include "host/darwin/memorystatus.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "host/kernel_family.h"

namespace host::simulator {

static constexpr uint64_t kWholePercent = 100;

Errno SimulatedMemoryStatus::memoryStatusList(
    std::vector<darwin::memorystatus_priority_entry> &entries) {
  return device_->ask(Question::memoryStatusList, [&](const Moment &at) {
    const auto &processes = at.state.processes().inStartOrder();
    std::vector<const RunningProcess *> queue;
    queue.reserve(processes.size());
    for (const auto &process : processes) {
      const bool isListed = process->pid() != 0 && !process->isZombie();
      if (isListed && process->description().jetsam) queue.push_back(process.get());
    }
    std::stable_sort(queue.begin(), queue.end(), [](const auto *a, const auto *b) {
      const Jetsam &left = *a->description().jetsam;
      const Jetsam &right = *b->description().jetsam;
      return std::tie(left.band, left.place) < std::tie(right.band, right.place);
    });
    std::vector<darwin::memorystatus_priority_entry> list;
    list.reserve(queue.size());
    for (const RunningProcess *process : queue) {
      const Jetsam &jetsam = *process->description().jetsam;
      list.push_back({process->pid(), jetsam.band, jetsam.userData, jetsam.limit, jetsam.state});
    }
    entries = std::move(list);
  });
}

template <typename Change>
Errno SimulatedMemoryStatus::aboutJetsam(Question question, pid_t pid, Errno ending,
                                         Change &&change) {
  return device_->ask(question, pid, [&](const Moment &at) -> Errno {
    RunningProcess *process = at.state.processes().find(pid);
    if (process == nullptr) return darwin::DARWIN_ESRCH;
    std::optional<Jetsam> &jetsam = process->description().jetsam;
    // The kernel's own are not in the list.
    if (!jetsam) return darwin::DARWIN_EPERM;
    if (process->isZombie()) return ending;
    change(*jetsam);
    return kAnswered;
  });
}

Errno SimulatedMemoryStatus::setMemoryStatusPlace(pid_t pid, const MemoryStatusPlace &place) {
  const int32_t usual = darwin::JETSAM_PRIORITY_DEFAULT *
                        bandScale(kernelFamilyOf(device_->description().kernel.version));
  return aboutJetsam(Question::setMemoryStatusPlace, pid, darwin::DARWIN_EBUSY,
                     [&](Jetsam &jetsam) {
                       jetsam.band = place.band.value_or(usual);
                       jetsam.userData = place.userData;
                       ++moves_;
                       jetsam.place = place.isFirst ? -moves_ : moves_;
                     });
}

Errno SimulatedMemoryStatus::memoryLimits(pid_t pid,
                                          darwin::memorystatus_memlimit_properties &limits) {
  return aboutJetsam(Question::memoryLimits, pid, darwin::DARWIN_ESRCH, [&](const Jetsam &jetsam) {
    limits = {jetsam.limit, jetsam.limitAttributes, jetsam.inactiveLimit,
              jetsam.inactiveLimitAttributes};
  });
}

// A limit of 0 is none, as one below it is.
static int32_t limitOf(int32_t megabytes) {
  return megabytes > 0 ? megabytes : -1;
}

Errno SimulatedMemoryStatus::setMemoryLimits(
    pid_t pid, const darwin::memorystatus_memlimit_properties &limits) {
  return aboutJetsam(Question::setMemoryLimits, pid, darwin::DARWIN_ESRCH, [&](Jetsam &jetsam) {
    jetsam.limit = limitOf(limits.memlimit_active);
    jetsam.limitAttributes = limits.memlimit_active_attr;
    jetsam.inactiveLimit = limitOf(limits.memlimit_inactive);
    jetsam.inactiveLimitAttributes = limits.memlimit_inactive_attr;
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
