#include "host/simulator/live_device.h"
#include "host/darwin/errors.h"

namespace host::simulator {

LiveDevice::LiveDevice(Device device) : state_(std::move(device)) {}

void LiveDevice::leave() {
  const std::lock_guard lock(mutex_);
  isLeft_ = true;
  wake();
}

Nanoseconds LiveDevice::now() const {
  const std::lock_guard lock(mutex_);
  return state_.clock().now();
}

void LiveDevice::advance(Nanoseconds by) {
  const std::lock_guard lock(mutex_);
  state_.clock().advance(by);
  state_.catchUp();
  wake();
}

void LiveDevice::beginSample() {
  const std::lock_guard lock(mutex_);
  state_.clock().beginSample();
  state_.catchUp();
  wake();
}

size_t LiveDevice::countOf(std::string_view call) const {
  const std::lock_guard lock(mutex_);
  return counts_.of(call);
}

void LiveDevice::add(ProcessWatch &watch) {
  const std::lock_guard lock(mutex_);
  state_.watches().add(watch);
}

void LiveDevice::remove(const ProcessWatch &watch) {
  const std::lock_guard lock(mutex_);
  state_.watches().remove(watch);
}

Moment LiveDevice::momentOfNow() {
  const Nanoseconds now = state_.catchUp();
  return {state_, now};
}

Errno LiveDevice::begin(Question question, std::optional<pid_t> pid, Nanoseconds now) {
  counts_.add(question);
  return state_.faults().find(question, pid, now);
}

Errno LiveDevice::check(const RunningProcess *process, Access access) const {
  if (process == nullptr) return darwin::DARWIN_ESRCH;
  const bool isForAny = access == Access::any || access == Access::anyOrTold;
  const bool isForTold = access == Access::anyOrTold || access == Access::ownOrTold;
  const bool isForDead = access == Access::ownOrDead || (isForTold && description().tellsOfZombies);
  if (process->isZombie() && !isForDead) return darwin::DARWIN_ESRCH;
  const uint32_t caller = description().caller;
  const bool isOwn = caller == kRoot || process->description().user == caller;
  return isForAny || isOwn ? kAnswered : darwin::DARWIN_EPERM;
}

void LiveDevice::waitForChange(std::unique_lock<std::mutex> &lock, Deadline deadline) {
  Deadline next;
  if (const std::optional<Nanoseconds> due = state_.nextDue()) next = state_.clock().timeOf(*due);
  if (deadline && (!next || *deadline < *next)) next = deadline;
  if (next) {
    changed_.wait_until(lock, *next);
  } else {
    changed_.wait(lock);
  }
}

}  // namespace host::simulator
