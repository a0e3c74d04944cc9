#include "host/simulator/simulated_events.h"

#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "host/darwin/errors.h"
#include "host/simulator/process_watches.h"

namespace host::simulator {

namespace {

class Watch final : public ProcessEvents {
 public:
  explicit Watch(std::shared_ptr<LiveDevice> device) : device_(std::move(device)) {
    device_->add(watched_);
  }
  ~Watch() override { device_->remove(watched_); }

  Errno watch(pid_t pid) override {
    return device_->look([&](const Moment &at) -> Errno {
      const RunningProcess *process = at.state.processes().find(pid);
      if (process == nullptr || process->isZombie()) return darwin::DARWIN_ESRCH;
      watched_.begin(pid, process->life());
      return kAnswered;
    });
  }

  void unwatch(pid_t pid) override {
    device_->look([&](const Moment &) { watched_.end(pid); });
  }

  Errno wait(std::optional<std::chrono::nanoseconds> timeout,
             std::vector<ProcessEvent> &events) override {
    using RealClock = LiveDevice::RealClock;
    events.clear();
    LiveDevice::Deadline deadline;
    if (timeout) {
      deadline =
          RealClock::time_point{addSaturating(RealClock::now().time_since_epoch(), *timeout)};
    }
    const LiveDevice::Waited waited = device_->wait(
        deadline, [&](DeviceState &) { return !watched_.happened.empty(); },
        [&](DeviceState &) { events = std::exchange(watched_.happened, {}); });
    return waited == LiveDevice::Waited::machineGone ? darwin::DARWIN_EBADF : kAnswered;
  }

 private:
  std::shared_ptr<LiveDevice> device_;
  ProcessWatch watched_;  // under the lock of the device
};

}  // namespace

Errno SimulatedEvents::processEvents(std::unique_ptr<ProcessEvents> &watch) {
  const Errno error = device_->ask(Question::processEvents, [](const Moment &) {});
  if (error == kAnswered) watch = std::make_unique<Watch>(device_);
  return error;
}

}  // namespace host::simulator
