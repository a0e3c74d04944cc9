// A simulated device that several threads ask. Each sees it as of one moment, when all has happened
// that was to happen by then.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "host/errno.h"
#include "host/simulator/calls.h"
#include "host/simulator/device_state.h"
#include "host/simulator/faults.h"
#include "host/simulator/process_watches.h"
#include "host/simulator/running_process.h"
#include "host/simulator/time_base.h"

namespace host::simulator {

// Which processes a question may be about. Root's may be about all.
enum class Access : uint8_t {
  any,
  anyOrTold,  // zombies too where the machine tells of them
  own,        // of the caller
  ownOrTold,
  ownOrDead,  // zombies too
};

// The device when it is looked at.
struct Moment {
  DeviceState &state;
  Nanoseconds now;

  const Device &device() const { return state.device(); }
  uint64_t pageSize() const { return device().kernel.pageSize; }
  TimeBase timeBase() const { return TimeBase(device().kernel); }
};

struct ProcessMoment : Moment {
  const RunningProcess &process;
};

class LiveDevice {
 public:
  using RealClock = std::chrono::steady_clock;
  using Deadline = std::optional<RealClock::time_point>;

  // How a wait came to its end.
  enum class Waited : uint8_t { happened, timeUp, machineGone };

  // Throws std::invalid_argument as SimulatedMachine does.
  explicit LiveDevice(Device device);

  // The machine goes: all waits end.
  void leave();

  // Only for those of its parts that never change.
  const Device &description() const { return state_.device(); }
  Nanoseconds now() const;
  void advance(Nanoseconds by);
  void beginSample();
  // How often a call was asked for.
  size_t countOf(std::string_view call) const;

  // `look(moment)`: for what is no question of a kernel's. Returns what that does.
  template <typename Look>
  auto look(Look &&look) {
    const std::lock_guard lock(mutex_);
    return look(momentOfNow());
  }

  // Lets all waits look again: after all that may change what they wait for, or until when.
  void wake() { changed_.notify_all(); }

  void add(ProcessWatch &watch);
  void remove(const ProcessWatch &watch);

  // Waits until `hasHappened(state)`, then calls `take(state)`. The lock is free meanwhile.
  template <typename HasHappened, typename Take>
  Waited wait(Deadline deadline, HasHappened &&hasHappened, Take &&take) {
    std::unique_lock lock(mutex_);
    for (;;) {
      if (isLeft_) return Waited::machineGone;
      state_.catchUp();
      if (hasHappened(state_)) {
        take(state_);
        return Waited::happened;
      }
      if (deadline && RealClock::now() >= *deadline) return Waited::timeUp;
      waitForChange(lock, deadline);
    }
  }

  // `answer(moment)` answers unless the question is to fail. It returns an Errno, or nothing where
  // it always knows the answer.
  template <typename Answer>
  Errno ask(Question question, Answer &&answer) {
    return ask(question, std::nullopt, std::forward<Answer>(answer));
  }
  template <typename Answer>
  Errno ask(Question question, std::optional<pid_t> pid, Answer &&answer) {
    const std::lock_guard lock(mutex_);
    const Moment moment = momentOfNow();
    const Errno fault = begin(question, pid, moment.now);
    return fault != kAnswered ? fault : errnoOf(answer, moment);
  }

  // The same about a process, with its ProcessMoment.
  template <typename Answer>
  Errno askProcess(Question question, Access access, pid_t pid, Answer &&answer) {
    return ask(question, pid, [&](const Moment &moment) -> Errno {
      const RunningProcess *process = moment.state.processes().find(pid);
      const Errno refusal = check(process, access);
      return refusal != kAnswered ? refusal : errnoOf(answer, ProcessMoment{moment, *process});
    });
  }

 private:
  template <typename Answer, typename At>
  static Errno errnoOf(Answer &&answer, const At &at) {
    if constexpr (std::is_void_v<std::invoke_result_t<Answer, const At &>>) {
      answer(at);
      return kAnswered;
    } else {
      return answer(at);
    }
  }

  Moment momentOfNow();
  // Counts the question; the error that it is to meet, or kAnswered.
  Errno begin(Question question, std::optional<pid_t> pid, Nanoseconds now);
  // Whether the caller may ask about a process, which may be null.
  Errno check(const RunningProcess *process, Access access) const;
  void waitForChange(std::unique_lock<std::mutex> &lock, Deadline deadline);

  mutable std::mutex mutex_;
  // What comes by itself, with the clock on the wall, wakes nobody: a wait knows when it is due.
  std::condition_variable changed_;
  bool isLeft_ = false;
  DeviceState state_;
  QuestionCounts counts_;
};

// Gives what a description may leave out.
template <typename T>
Errno giveIfThere(const std::optional<T> &from, T &to) {
  if (!from) return darwin::DARWIN_ENOTSUP;
  to = *from;
  return kAnswered;
}

}  // namespace host::simulator
