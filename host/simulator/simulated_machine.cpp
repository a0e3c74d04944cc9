#include "host/simulator/simulated_machine.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <ranges>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "host/simulator/calls.h"
#include "host/simulator/descriptor_answers.h"
#include "host/simulator/device_state.h"
#include "host/simulator/host_answers.h"
#include "host/simulator/memory_answers.h"
#include "host/simulator/network_answers.h"
#include "host/simulator/process_answers.h"
#include "host/simulator/snapshot_answers.h"
#include "host/simulator/time_base.h"

namespace host::simulator {

namespace {

constexpr uint32_t kRoot = 0;
constexpr uint64_t kWholePercent = 100;
constexpr std::string_view kGestalt = "MGCopyAnswerWithError";
constexpr std::string_view kOptionalEntryPoints[] = {"memorystatus_get_level", "proc_pid_rusage",
                                                     kGestalt};

using RealClock = std::chrono::steady_clock;
using Deadline = std::optional<RealClock::time_point>;

// How a wait came to its end.
enum class Waited : uint8_t { happened, timeUp, machineGone };

// Which processes a question may be about. Root's may be about all.
enum class Access : uint8_t {
  any,
  own,        // of the caller
  ownOrDead,  // zombies too
};

Errno takeText(const std::string &from, Errno ifEmpty, std::string &to) {
  if (from.empty()) return ifEmpty;
  to = from;
  return kAnswered;
}

Errno giveAnswer(const GestaltValue &value, GestaltAnswer &answer) {
  if (const Refusal *refusal = std::get_if<Refusal>(&value)) {
    return refusal->error != kAnswered ? refusal->error : darwin::DARWIN_ENOENT;
  }
  if (const std::string *text = std::get_if<std::string>(&value)) {
    answer = *text;
  } else if (const int64_t *number = std::get_if<int64_t>(&value)) {
    answer = *number;
  } else {
    answer = std::get<bool>(value);
  }
  return kAnswered;
}

PowerStatus statusOf(const Power &power) {
  PowerStatus status;
  status.sources.emplace();
  for (const PowerSource &source : power.sources) {
    status.sources->push_back({source.capacity, source.state, source.isCharging});
  }
  status.secondsRemaining = power.secondsRemaining;
  status.assertions = power.assertions;
  return status;
}

std::vector<uint64_t> numbersOf(const RunningProcess &process, uint64_t Thread::*number) {
  std::vector<uint64_t> numbers;
  numbers.reserve(process.threads().size());
  for (const Thread &thread : process.threads()) numbers.push_back(thread.*number);
  return numbers;
}

}  // namespace

// The device behind its lock. An answer is given with the lock held, when all has happened that was
// to happen by then.
class SimulatedMachine::State {
 public:
  explicit State(Device device) : device_(std::move(device)), timeBase_(device_.device().kernel) {}

  // The machine goes: all waits end.
  void leave() {
    const std::lock_guard lock(mutex_);
    isLeft_ = true;
    wake();
  }

  const TimeBase &timeBase() const { return timeBase_; }
  uint64_t pageSize() const { return description().kernel.pageSize; }
  // Of what never changes.
  const Device &description() const { return device_.device(); }

  // `look(device, now)`: for what is no question of a kernel's.
  template <typename Look>
  auto look(Look &&look) {
    const std::lock_guard lock(mutex_);
    const Nanoseconds now = device_.catchUp();
    return look(device_, now);
  }

  // Lets all waits look again: after all that may change what they wait for, or until when.
  void wake() { changed_.notify_all(); }

  void watch(ProcessWatch &watch) {
    const std::lock_guard lock(mutex_);
    device_.watches().add(watch);
  }
  void unwatch(const ProcessWatch &watch) {
    const std::lock_guard lock(mutex_);
    device_.watches().remove(watch);
  }

  // Waits until `hasHappened(device)`, then calls `take(device)`. The lock is free meanwhile.
  template <typename HasHappened, typename Take>
  Waited wait(Deadline deadline, HasHappened &&hasHappened, Take &&take) {
    std::unique_lock lock(mutex_);
    for (;;) {
      if (isLeft_) return Waited::machineGone;
      device_.catchUp();
      if (hasHappened(device_)) {
        take(device_);
        return Waited::happened;
      }
      if (deadline && RealClock::now() >= *deadline) return Waited::timeUp;
      Deadline next;
      if (const std::optional<Nanoseconds> due = device_.nextDue()) {
        next = device_.clock().timeOf(*due);
      }
      if (deadline && (!next || *deadline < *next)) next = deadline;
      if (next) {
        changed_.wait_until(lock, *next);
      } else {
        changed_.wait(lock);
      }
    }
  }

  // `answer(device, now)` answers unless the question is to fail.
  template <typename Answer>
  Errno ask(Question question, Answer &&answer) {
    return ask(question, std::nullopt, std::forward<Answer>(answer));
  }
  template <typename Answer>
  Errno ask(Question question, std::optional<int32_t> pid, Answer &&answer) {
    const std::lock_guard lock(mutex_);
    const Nanoseconds now = device_.catchUp();
    counts_.add(question);
    const Errno fault = device_.faults().find(question, pid, now);
    return fault != kAnswered ? fault : answer(device_, now);
  }

  // `answer(process, device, now)`.
  template <typename Answer>
  Errno askProcess(Question question, Access access, pid_t pid, Answer &&answer) {
    return ask(question, pid, [&](DeviceState &device, Nanoseconds now) -> Errno {
      const RunningProcess *process = device.processes().find(pid);
      const bool isThere =
          process != nullptr && (!process->isZombie() || access == Access::ownOrDead);
      if (!isThere) return darwin::DARWIN_ESRCH;
      const uint32_t caller = device.device().caller;
      const bool isOwn = caller == kRoot || process->description().user == caller;
      if (access != Access::any && !isOwn) return darwin::DARWIN_EPERM;
      return answer(*process, device, now);
    });
  }

  template <typename T>
  Errno askDescriptor(Question question, pid_t pid, int fd, T &answer,
                      Errno (*fill)(const DescriptorView &, T &)) {
    return askProcess(
        question, Access::own, pid,
        [&](const RunningProcess &process, DeviceState &device, Nanoseconds now) {
          const Descriptor *descriptor = process.descriptor(fd);
          if (descriptor == nullptr) return darwin::DARWIN_EBADF;
          return fill({process, *descriptor, device.processes().peers(), now}, answer);
        });
  }

  size_t countOf(std::string_view call) const {
    const std::lock_guard lock(mutex_);
    return counts_.of(call);
  }

  Nanoseconds now() const {
    const std::lock_guard lock(mutex_);
    return device_.clock().now();
  }

  void advance(Nanoseconds by) {
    const std::lock_guard lock(mutex_);
    device_.clock().advance(by);
    device_.catchUp();
    wake();
  }

  void beginSample() {
    const std::lock_guard lock(mutex_);
    device_.clock().beginSample();
    device_.catchUp();
    wake();
  }

 private:
  mutable std::mutex mutex_;
  // What comes by itself, with the clock on the wall, wakes nobody: a wait knows when it is due.
  std::condition_variable changed_;
  bool isLeft_ = false;
  DeviceState device_;
  const TimeBase timeBase_;
  QuestionCounts counts_;
};

// Keeps what it asks alive.
class SimulatedMachine::Watch final : public ProcessEvents {
 public:
  explicit Watch(std::shared_ptr<State> state) : state_(std::move(state)) {
    state_->watch(watched_);
  }
  ~Watch() override { state_->unwatch(watched_); }

  Errno watch(pid_t pid) override {
    return state_->look([&](DeviceState &device, Nanoseconds) -> Errno {
      const RunningProcess *process = device.processes().find(pid);
      if (process == nullptr || process->isZombie()) return darwin::DARWIN_ESRCH;
      watched_.begin(pid, process->life());
      return kAnswered;
    });
  }

  void unwatch(pid_t pid) override {
    state_->look([&](DeviceState &, Nanoseconds) { watched_.end(pid); });
  }

  Errno wait(std::optional<std::chrono::nanoseconds> timeout,
             std::vector<ProcessEvent> &events) override {
    events.clear();
    Deadline deadline;
    if (timeout) {
      deadline =
          RealClock::time_point{addSaturating(RealClock::now().time_since_epoch(), *timeout)};
    }
    const Waited waited = state_->wait(
        deadline, [&](DeviceState &) { return !watched_.happened.empty(); },
        [&](DeviceState &) { events = std::exchange(watched_.happened, {}); });
    return waited == Waited::machineGone ? darwin::DARWIN_EBADF : kAnswered;
  }

 private:
  std::shared_ptr<State> state_;
  ProcessWatch watched_;  // under the lock of the state
};

SimulatedMachine::SimulatedMachine(Device device)
    : state_(std::make_shared<State>(std::move(device))) {}

SimulatedMachine::~SimulatedMachine() {
  state_->leave();
}

Nanoseconds SimulatedMachine::now() const {
  return state_->now();
}

void SimulatedMachine::advance(Nanoseconds by) {
  state_->advance(by);
}

void SimulatedMachine::happen(const Action &action, std::optional<Nanoseconds> lasts) {
  state_->look([&](DeviceState &device, Nanoseconds now) { device.perform(action, now, lasts); });
  state_->wake();
}

size_t SimulatedMachine::callsOf(std::string_view call) const {
  return state_->countOf(call);
}

std::optional<LastPressure> SimulatedMachine::lastPressure() {
  return state_->look([](DeviceState &device, Nanoseconds) { return device.pressure().last(); });
}

std::optional<Power> SimulatedMachine::power() {
  return state_->look([](DeviceState &device, Nanoseconds) { return device.device().power; });
}

Errno SimulatedMachine::kernelName(KernelName &name) {
  return state_->ask(Question::kernelName, [&](DeviceState &device, Nanoseconds) {
    const Kernel &kernel = device.device().kernel;
    name = {"Darwin", kernel.node, kernel.release, kernel.version, kernel.hardware};
    return kAnswered;
  });
}

KernelFamily SimulatedMachine::kernelFamily() noexcept {
  return kernelFamilyOf(state_->description().kernel.version);
}

bool SimulatedMachine::isPrivileged() {
  return callerUser() == kRoot;
}

bool SimulatedMachine::hasEntryPoint(std::string_view name) {
  const std::vector<std::string> &missing = state_->description().kernel.missing;
  if (name == kGestalt && !hasGestalt()) return false;
  const auto *known =
      std::find(std::begin(kOptionalEntryPoints), std::end(kOptionalEntryPoints), name);
  return known != std::end(kOptionalEntryPoints) &&
         std::find(missing.begin(), missing.end(), name) == missing.end();
}

uint32_t SimulatedMachine::callerUser() {
  return state_->description().caller;
}

int64_t SimulatedMachine::timeOfDay() {
  return state_->look([](DeviceState &device, Nanoseconds) { return device.clock().timeOfDay(); });
}

void SimulatedMachine::wallClock(darwin::timeval &time) {
  time = state_->look(
      [](DeviceState &device, Nanoseconds now) { return device.clock().wallTime(now); });
}

void SimulatedMachine::beginSample() {
  state_->beginSample();
}

// The newest first, the kernel itself last, and zombies after all others.
Errno SimulatedMachine::processIDs(std::vector<int32_t> &pids) {
  return state_->ask(Question::processIDs, [&](DeviceState &device, Nanoseconds) {
    const std::vector<std::unique_ptr<RunningProcess>> &processes =
        device.processes().inStartOrder();
    std::vector<int32_t> list;
    std::vector<int32_t> zombies;
    list.reserve(processes.size());
    bool hasKernel = false;
    for (const auto &process : std::ranges::reverse_view(processes)) {
      const int32_t pid = process->pid();
      if (process->isZombie()) {
        zombies.push_back(pid);
      } else if (pid == 0) {
        hasKernel = true;
      } else {
        list.push_back(pid);
      }
    }
    if (hasKernel) list.push_back(0);
    list.insert(list.end(), zombies.begin(), zombies.end());
    pids = std::move(list);
    return kAnswered;
  });
}

Errno SimulatedMachine::taskAllInfo(pid_t pid, darwin::proc_taskallinfo &info) {
  return state_->askProcess(
      Question::taskAllInfo, Access::own, pid,
      [&](const RunningProcess &process, DeviceState &device, Nanoseconds now) {
        fillBsdInfo(process, device.clock(), info.pbsd);
        fillTaskInfo(process, now, state_->timeBase(), state_->pageSize(), info.ptinfo);
        return kAnswered;
      });
}

Errno SimulatedMachine::bsdInfo(pid_t pid, bool zombies, darwin::proc_bsdinfo &info) {
  return state_->askProcess(Question::bsdInfo, zombies ? Access::ownOrDead : Access::own, pid,
                            [&](const RunningProcess &process, DeviceState &device, Nanoseconds) {
                              fillBsdInfo(process, device.clock(), info);
                              return kAnswered;
                            });
}

// The kernel itself was not started from a file.
Errno SimulatedMachine::executablePath(pid_t pid, std::string &path) {
  return state_->askProcess(Question::executablePath, Access::any, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              if (pid == 0) return darwin::DARWIN_ESRCH;
                              return takeText(process.description().path, darwin::DARWIN_ESRCH,
                                              path);
                            });
}

Errno SimulatedMachine::workQueue(pid_t pid, darwin::proc_workqueueinfo &info) {
  return state_->askProcess(
      Question::workQueue, Access::own, pid,
      [&](const RunningProcess &process, DeviceState &, Nanoseconds) -> Errno {
        const std::optional<WorkQueue> &queue = process.description().workQueue;
        if (!queue) return darwin::DARWIN_ESRCH;
        info = {queue->threads, queue->running, queue->blocked, queue->state};
        return kAnswered;
      });
}

Errno SimulatedMachine::threadHandles(pid_t pid, std::vector<uint64_t> &handles) {
  return state_->askProcess(Question::threadHandles, Access::own, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              handles = numbersOf(process, &Thread::handle);
                              return kAnswered;
                            });
}

Errno SimulatedMachine::threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &info) {
  return state_->askProcess(
      Question::threadInfo, Access::own, pid,
      [&](const RunningProcess &process, DeviceState &, Nanoseconds now) -> Errno {
        const Thread *thread = process.threadByHandle(handle);
        if (thread == nullptr) return darwin::DARWIN_ESRCH;
        fillThreadInfo(process, *thread, now, info);
        return kAnswered;
      });
}

Errno SimulatedMachine::threadIDs(pid_t pid, std::vector<uint64_t> &ids) {
  return state_->askProcess(Question::threadIDs, Access::own, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              ids = numbersOf(process, &Thread::id);
                              return kAnswered;
                            });
}

Errno SimulatedMachine::threadInfoByID(pid_t pid, uint64_t id, darwin::proc_threadinfo &info) {
  return state_->askProcess(
      Question::threadInfoByID, Access::own, pid,
      [&](const RunningProcess &process, DeviceState &, Nanoseconds now) -> Errno {
        const Thread *thread = process.threadByID(id);
        if (thread == nullptr) return darwin::DARWIN_ESRCH;
        fillThreadInfo(process, *thread, now, info);
        return kAnswered;
      });
}

Errno SimulatedMachine::coalition(pid_t pid, darwin::proc_pidcoalitioninfo &info) {
  return state_->askProcess(Question::coalition, Access::any, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              const std::array<uint64_t, 2> coalitions = process.coalitions();
                              info = {};
                              std::copy(coalitions.begin(), coalitions.end(), info.coalition_id);
                              return kAnswered;
                            });
}

Errno SimulatedMachine::resourceUsage(pid_t pid, darwin::rusage_info_v4 &usage) {
  return state_->askProcess(
      Question::resourceUsage, Access::ownOrDead, pid,
      [&](const RunningProcess &process, DeviceState &device, Nanoseconds now) -> Errno {
        const std::optional<ResourceUsage> &more = process.description().usage;
        if (!more) return darwin::DARWIN_ENOTSUP;
        fillResourceUsage(process, *more, now, state_->timeBase(), device.device().clock.up,
                          state_->pageSize(), usage);
        return kAnswered;
      });
}

int SimulatedMachine::sandboxCheck(pid_t pid) {
  int answer = -1;
  state_->askProcess(Question::sandboxCheck, Access::any, pid,
                     [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                       answer = process.description().sandboxed;
                       return kAnswered;
                     });
  return answer;
}

Errno SimulatedMachine::codeSigningFlags(pid_t pid, uint32_t &flags) {
  return state_->askProcess(Question::codeSigningFlags, Access::any, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              flags = process.description().codeSigningFlags;
                              return kAnswered;
                            });
}

Errno SimulatedMachine::codeSignature(pid_t pid, std::vector<uint8_t> &blob) {
  return state_->askProcess(Question::codeSignature, Access::any, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              blob = process.description().codeSignature;
                              return kAnswered;
                            });
}

Errno SimulatedMachine::containerPath(pid_t pid, std::string &path) {
  return state_->askProcess(Question::containerPath, Access::any, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              return takeText(process.description().container,
                                              darwin::DARWIN_ENOTSUP, path);
                            });
}

Errno SimulatedMachine::applicationState(pid_t pid, int32_t &state) {
  return state_->askProcess(
      Question::applicationState, Access::own, pid,
      [&](const RunningProcess &process, DeviceState &, Nanoseconds) -> Errno {
        const std::optional<int32_t> &own = process.description().applicationState;
        if (!own) return darwin::DARWIN_ENOTSUP;
        state = *own;
        return kAnswered;
      });
}

Errno SimulatedMachine::arguments(pid_t pid, ProcessArguments &arguments) {
  return state_->askProcess(
      Question::arguments, Access::own, pid,
      [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
        const Process &from = process.description();
        ProcessArguments started{from.path, from.arguments, from.environment, from.is64Bit};
        arguments = std::move(started);
        return kAnswered;
      });
}

Errno SimulatedMachine::region(pid_t pid, uint64_t address, darwin::proc_regionwithpathinfo &info) {
  return state_->askProcess(
      Question::region, Access::own, pid,
      [&](const RunningProcess &process, DeviceState &, Nanoseconds now) -> Errno {
        const Region *region = process.region(address);
        if (region == nullptr) return darwin::DARWIN_EINVAL;
        fillRegion(process, *region, now, state_->pageSize(), info);
        return kAnswered;
      });
}

Errno SimulatedMachine::stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &snapshot) {
  constexpr pid_t kEveryProcess = -1;
  return state_->ask(Question::stackshot, pid, [&](DeviceState &device, Nanoseconds now) -> Errno {
    if (device.device().caller != kRoot) return darwin::DARWIN_EPERM;
    Snapshot described = describeDevice(device.device(), device.clock(), now);
    for (const auto &process : device.processes().inStartOrder()) {
      if (process->isZombie()) continue;
      if (pid != kEveryProcess && process->pid() != pid) continue;
      described.tasks.push_back(describeTask(*process, device.clock(), now, state_->pageSize()));
    }
    if (described.tasks.empty() && pid != kEveryProcess) return darwin::DARWIN_EINVAL;
    snapshot = writeSnapshot(described, flags);
    return kAnswered;
  });
}

Errno SimulatedMachine::taskPort(pid_t pid) {
  return state_->askProcess(
      Question::taskPort, Access::own, pid,
      [](const RunningProcess &, DeviceState &, Nanoseconds) { return kAnswered; });
}

Errno SimulatedMachine::taskNamePort(pid_t pid) {
  return state_->askProcess(
      Question::taskNamePort, Access::own, pid,
      [](const RunningProcess &, DeviceState &, Nanoseconds) { return kAnswered; });
}

Errno SimulatedMachine::kernelTaskPort() {
  return state_->ask(Question::kernelTaskPort, [](DeviceState &device, Nanoseconds) -> Errno {
    return device.device().kernel.givesTask ? kAnswered : darwin::DARWIN_ENOTSUP;
  });
}

Errno SimulatedMachine::threadRegisters(pid_t pid, uint64_t id, ThreadRegisters &registers) {
  return state_->askProcess(
      Question::threadRegisters, Access::own, pid,
      [&](const RunningProcess &process, DeviceState &, Nanoseconds) -> Errno {
        const Thread *thread = process.threadByID(id);
        if (thread == nullptr) return darwin::DARWIN_ESRCH;
        registers = registersOf(process, *thread);
        return kAnswered;
      });
}

Errno SimulatedMachine::readMemory(pid_t pid, uint64_t address, size_t size, void *to) {
  return state_->askProcess(Question::readMemory, Access::own, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              return copyMemory(process, address, size, to);
                            });
}

Errno SimulatedMachine::processGroup(pid_t pid, pid_t &group) {
  return state_->look([&](DeviceState &device, Nanoseconds) -> Errno {
    const RunningProcess *process = device.processes().find(pid);
    if (process == nullptr) return darwin::DARWIN_ESRCH;
    group = process->description().group.value_or(pid);
    return kAnswered;
  });
}

Errno SimulatedMachine::sendSignal(pid_t pid, int signal) {
  const Errno error = state_->ask(
      Question::sendSignal, pid,
      [&](DeviceState &device, Nanoseconds now) { return device.signal(pid, signal, now); });
  state_->wake();
  return error;
}

Errno SimulatedMachine::descriptors(pid_t pid, size_t limit,
                                    std::vector<darwin::proc_fdinfo> &list) {
  return state_->askProcess(Question::descriptors, Access::own, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              const std::vector<Descriptor> &all = process.descriptors();
                              const size_t count = std::min(limit, all.size());
                              std::vector<darwin::proc_fdinfo> open;
                              open.reserve(count);
                              for (size_t i = 0; i < count; ++i)
                                open.push_back({all[i].number, typeOf(all[i])});
                              list = std::move(open);
                              return kAnswered;
                            });
}

Errno SimulatedMachine::descriptorTableSize(pid_t pid, size_t &slots) {
  return state_->askProcess(Question::descriptors, Access::own, pid,
                            [&](const RunningProcess &process, DeviceState &, Nanoseconds) {
                              slots = process.descriptorSlots();
                              return kAnswered;
                            });
}

// Part of the question before it, which neither fails nor counts once more.
Errno SimulatedMachine::descriptorType(pid_t pid, int fd, uint32_t &type) {
  return state_->look([&](DeviceState &device, Nanoseconds) -> Errno {
    const RunningProcess *process = device.processes().find(pid);
    const Descriptor *descriptor = process != nullptr ? process->descriptor(fd) : nullptr;
    if (descriptor == nullptr) return darwin::DARWIN_EBADF;
    type = typeOf(*descriptor);
    return kAnswered;
  });
}

Errno SimulatedMachine::vnodeDescriptor(pid_t pid, int fd, darwin::vnode_fdinfowithpath &info) {
  return state_->askDescriptor(Question::vnodeDescriptor, pid, fd, info, fillVnode);
}

Errno SimulatedMachine::socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &info) {
  return state_->askDescriptor(Question::socketDescriptor, pid, fd, info, fillSocket);
}

Errno SimulatedMachine::semaphoreDescriptor(pid_t pid, int fd, darwin::psem_fdinfo &info) {
  return state_->askDescriptor(Question::semaphoreDescriptor, pid, fd, info, fillSemaphore);
}

Errno SimulatedMachine::sharedMemoryDescriptor(pid_t pid, int fd, darwin::pshm_fdinfo &info) {
  return state_->askDescriptor(Question::sharedMemoryDescriptor, pid, fd, info, fillSharedMemory);
}

Errno SimulatedMachine::pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &info) {
  return state_->askDescriptor(Question::pipeDescriptor, pid, fd, info, fillPipe);
}

Errno SimulatedMachine::kqueueDescriptor(pid_t pid, int fd, darwin::kqueue_fdinfo &info) {
  return state_->askDescriptor(Question::kqueueDescriptor, pid, fd, info, fillKqueue);
}

Errno SimulatedMachine::kqueueEvents(pid_t pid, int fd,
                                     std::vector<darwin::kevent_extinfo> &events) {
  return state_->askDescriptor(Question::kqueueEvents, pid, fd, events, fillKqueueEvents);
}

Errno SimulatedMachine::channelDescriptor(pid_t pid, int fd, darwin::channel_fdinfo &info) {
  return state_->askDescriptor(Question::channelDescriptor, pid, fd, info, fillChannel);
}

Errno SimulatedMachine::memoryStatusList(
    std::vector<darwin::memorystatus_priority_entry> &entries) {
  return state_->ask(Question::memoryStatusList, [&](DeviceState &device, Nanoseconds) {
    std::vector<darwin::memorystatus_priority_entry> list;
    list.reserve(device.processes().inStartOrder().size());
    for (const auto &process : device.processes().inStartOrder()) {
      const std::optional<Jetsam> &jetsam = process->description().jetsam;
      if (process->pid() == 0 || process->isZombie() || !jetsam) continue;
      list.push_back(
          {process->pid(), jetsam->band, jetsam->userData, jetsam->limit, jetsam->state});
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const auto &a, const auto &b) { return a.priority < b.priority; });
    entries = std::move(list);
    return kAnswered;
  });
}

Errno SimulatedMachine::memoryStatusLevel(unsigned int &level) {
  return state_->ask(Question::memoryStatusLevel,
                     [&](DeviceState &device, Nanoseconds now) -> Errno {
                       const std::optional<Figure> &figure = device.device().memoryLevel;
                       if (!figure) return darwin::DARWIN_ENOTSUP;
                       level = static_cast<unsigned int>(std::min(figure->at(now), kWholePercent));
                       return kAnswered;
                     });
}

Errno SimulatedMachine::memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                                       uint32_t &reclaimed) {
  // Of its own: the machine may go while this waits.
  const std::shared_ptr<State> state = state_;
  size_t told = 0;
  const Errno error =
      state->ask(Question::memoryPressure, [&](DeviceState &device, Nanoseconds now) {
        const PressureRecord &pressure = device.pressure();
        told = pressure.told();
        if (waits) return kAnswered;
        wanted = pressure.wanted();
        reclaimed = pressure.reclaimed(now, seconds);
        return kAnswered;
      });
  if (error != kAnswered || !waits) return error;
  const Waited waited = state->wait(
      std::nullopt,
      [&](DeviceState &device) {
        return device.device().tellsInBackground && device.pressure().times() > told;
      },
      [&](DeviceState &device) {
        PressureRecord &pressure = device.pressure();
        pressure.markTold();
        wanted = pressure.wanted();
        reclaimed = pressure.reclaimed(pressure.last()->at, seconds);
      });
  return waited == Waited::happened ? kAnswered : darwin::DARWIN_EINTR;
}

Errno SimulatedMachine::processEvents(std::unique_ptr<ProcessEvents> &watch) {
  const Errno error =
      state_->ask(Question::processEvents, [](DeviceState &, Nanoseconds) { return kAnswered; });
  if (error == kAnswered) watch = std::make_unique<Watch>(state_);
  return error;
}

bool SimulatedMachine::hasGestalt() {
  return state_->description().gestalt.has_value();
}

Errno SimulatedMachine::gestaltAnswer(std::string_view key, GestaltAnswer &answer) {
  return state_->ask(Question::gestaltAnswer, [&](DeviceState &device, Nanoseconds) -> Errno {
    const auto &answers = device.device().gestalt;
    if (!answers) return darwin::DARWIN_ENOTSUP;
    const auto found = answers->find(std::string(key));
    if (found == answers->end()) return darwin::DARWIN_ENOENT;
    return giveAnswer(found->second, answer);
  });
}

Errno SimulatedMachine::powerStatus(PowerStatus &status) {
  return state_->ask(Question::powerStatus, [&](DeviceState &device, Nanoseconds) -> Errno {
    const std::optional<Power> &power = device.device().power;
    if (!power) return darwin::DARWIN_ENOTSUP;
    status = statusOf(*power);
    return kAnswered;
  });
}

Errno SimulatedMachine::kernelExtensions(std::vector<std::string> &identifiers) {
  return state_->ask(Question::kernelExtensions, [&](DeviceState &device, Nanoseconds) -> Errno {
    const auto &extensions = device.device().kernel.extensions;
    if (!extensions) return darwin::DARWIN_ENOTSUP;
    identifiers = *extensions;
    return kAnswered;
  });
}

Errno SimulatedMachine::hostBasicInfo(darwin::host_basic_info &info) {
  return state_->ask(Question::hostBasicInfo, [&](DeviceState &device, Nanoseconds) {
    fillBasicInfo(device.device().hardware, info);
    return kAnswered;
  });
}

Errno SimulatedMachine::virtualMemory(darwin::vm_statistics64 &statistics) {
  return state_->ask(Question::virtualMemory, [&](DeviceState &device, Nanoseconds now) {
    fillVirtualMemory(device.device().memory, now, statistics);
    return kAnswered;
  });
}

Errno SimulatedMachine::processorCount(unsigned int &count) {
  return state_->ask(Question::processorCount, [&](DeviceState &device, Nanoseconds) {
    count = saturate<unsigned int>(device.device().hardware.processors.size());
    return kAnswered;
  });
}

Errno SimulatedMachine::processorLoad(unsigned int processor,
                                      darwin::processor_cpu_load_info &load) {
  return state_->ask(Question::processorLoad, [&](DeviceState &device, Nanoseconds now) -> Errno {
    const auto &processors = device.device().hardware.processors;
    if (processor >= processors.size()) return darwin::DARWIN_EINVAL;
    fillProcessorLoad(processors[processor], now, load);
    return kAnswered;
  });
}

Errno SimulatedMachine::bootTime(darwin::timeval &time) {
  return state_->ask(Question::bootTime, [&](DeviceState &device, Nanoseconds) {
    fillBootTime(device.clock(), device.device().clock.up, time);
    return kAnswered;
  });
}

Errno SimulatedMachine::loadAverage(darwin::loadavg &averages) {
  return state_->ask(Question::loadAverage, [&](DeviceState &device, Nanoseconds now) {
    fillLoadAverage(device.device().loadAverages, now, averages);
    return kAnswered;
  });
}

// A kernel that does not swap says 0 throughout.
Errno SimulatedMachine::swapUsage(darwin::xsw_usage &usage) {
  return state_->ask(Question::swapUsage, [&](DeviceState &device, Nanoseconds now) {
    const std::optional<Swap> &swap = device.device().swap;
    usage = {};
    if (swap) fillSwapUsage(*swap, now, device.device().kernel.pageSize, usage);
    return kAnswered;
  });
}

// The service asks no privilege, and there is always room for one more client.
Errno SimulatedMachine::networkStatistics() {
  return state_->ask(Question::networkStatistics,
                     [](DeviceState &, Nanoseconds) { return kAnswered; });
}

Errno SimulatedMachine::networkSources(std::vector<NetworkSource> &sources) {
  return state_->ask(Question::networkSources, [&](DeviceState &device, Nanoseconds now) {
    sources.clear();
    if (device.device().tellsInBackground) {
      sources = simulator::networkSources(device.processes(), now);
    }
    return kAnswered;
  });
}

Errno SimulatedMachine::interfaces(std::vector<NetworkInterface> &interfaces) {
  return state_->ask(Question::interfaces, [&](DeviceState &device, Nanoseconds now) {
    interfaces = networkInterfaces(device.device().interfaces, now);
    return kAnswered;
  });
}

Errno SimulatedMachine::wirelessNetwork(const std::string &interface, WirelessNetwork &network) {
  return state_->ask(Question::wirelessNetwork, [&](DeviceState &device, Nanoseconds) {
    return fillWirelessNetwork(device.device().wifi, interface, network);
  });
}

}  // namespace host::simulator
