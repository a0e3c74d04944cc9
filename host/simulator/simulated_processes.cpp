#include "host/simulator/simulated_processes.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <ranges>
#include <utility>

#include "host/darwin/errors.h"
#include "host/simulator/process_answers.h"
#include "host/simulator/snapshot_answers.h"

namespace host::simulator {

namespace {

Errno takeText(const std::string &from, Errno ifEmpty, std::string &to) {
  if (from.empty()) return ifEmpty;
  to = from;
  return kAnswered;
}

std::vector<uint64_t> numbersOf(const RunningProcess &process, uint64_t Thread::*number) {
  std::vector<uint64_t> numbers;
  numbers.reserve(process.threads().size());
  for (const Thread &thread : process.threads()) numbers.push_back(thread.*number);
  return numbers;
}

Errno giveThread(const ProcessMoment &at, const Thread *thread, darwin::proc_threadinfo &info) {
  if (thread == nullptr) return darwin::DARWIN_ESRCH;
  fillThreadInfo(at.process, *thread, at.now, info);
  return kAnswered;
}

}  // namespace

// The newest first, the kernel itself last, and zombies after all others unless they are told of.
Errno SimulatedProcesses::processIDs(std::vector<int32_t> &pids) {
  return device_.ask(Question::processIDs, [&](const Moment &at) {
    const std::vector<std::unique_ptr<RunningProcess>> &processes =
        at.state.processes().inStartOrder();
    std::vector<int32_t> list;
    std::vector<int32_t> zombies;
    list.reserve(processes.size());
    bool hasKernel = false;
    for (const auto &process : std::ranges::reverse_view(processes)) {
      const int32_t pid = process->pid();
      if (process->isZombie() && !at.device().tellsOfZombies) {
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
  });
}

// What the description says is the answer.
template <typename T>
Errno SimulatedProcesses::give(Question question, Access access, pid_t pid, T Process::*field,
                               T &to) {
  return device_.askProcess(question, access, pid,
                            [&](const ProcessMoment &at) { to = at.process.description().*field; });
}

Errno SimulatedProcesses::taskAllInfo(pid_t pid, darwin::proc_taskallinfo &info) {
  return device_.askProcess(
      Question::taskAllInfo, Access::ownOrTold, pid, [&](const ProcessMoment &at) {
        fillBsdInfo(at.process, at.state.clock(), info.pbsd);
        fillTaskInfo(at.process, at.now, at.timeBase(), at.pageSize(), info.ptinfo);
      });
}

Errno SimulatedProcesses::bsdInfo(pid_t pid, bool zombies, darwin::proc_bsdinfo &info) {
  return device_.askProcess(
      Question::bsdInfo, zombies ? Access::ownOrDead : Access::own, pid,
      [&](const ProcessMoment &at) { fillBsdInfo(at.process, at.state.clock(), info); });
}

// The kernel itself was not started from a file.
Errno SimulatedProcesses::executablePath(pid_t pid, std::string &path) {
  return device_.askProcess(
      Question::executablePath, Access::any, pid, [&](const ProcessMoment &at) {
        if (pid == 0) return darwin::DARWIN_ESRCH;
        return takeText(at.process.description().path, darwin::DARWIN_ESRCH, path);
      });
}

Errno SimulatedProcesses::arguments(pid_t pid, ProcessArguments &arguments) {
  return device_.askProcess(Question::arguments, Access::own, pid, [&](const ProcessMoment &at) {
    const Process &from = at.process.description();
    ProcessArguments started{from.path, from.arguments, from.environment, from.is64Bit};
    arguments = std::move(started);
  });
}

Errno SimulatedProcesses::coalition(pid_t pid, darwin::proc_pidcoalitioninfo &info) {
  return device_.askProcess(Question::coalition, Access::any, pid, [&](const ProcessMoment &at) {
    const std::array<uint64_t, 2> coalitions = at.process.coalitions();
    info = {};
    std::copy(coalitions.begin(), coalitions.end(), info.coalition_id);
  });
}

Errno SimulatedProcesses::resourceUsage(pid_t pid, darwin::rusage_info_v4 &usage) {
  return device_.askProcess(
      Question::resourceUsage, Access::ownOrDead, pid, [&](const ProcessMoment &at) -> Errno {
        const std::optional<ResourceUsage> &more = at.process.description().usage;
        if (!more) return darwin::DARWIN_ENOTSUP;
        fillResourceUsage(at.process, *more, at.now, at.timeBase(), at.device().clock.up,
                          at.pageSize(), usage);
        return kAnswered;
      });
}

Errno SimulatedProcesses::applicationState(pid_t pid, int32_t &state) {
  return device_.askProcess(Question::applicationState, Access::own, pid,
                            [&](const ProcessMoment &at) {
                              return giveIfThere(at.process.description().applicationState, state);
                            });
}

Errno SimulatedProcesses::processGroup(pid_t pid, pid_t &group) {
  return device_.look([&](const Moment &at) -> Errno {
    const RunningProcess *process = at.state.processes().find(pid);
    if (process == nullptr) return darwin::DARWIN_ESRCH;
    group = process->description().group.value_or(pid);
    return kAnswered;
  });
}

Errno SimulatedProcesses::workQueue(pid_t pid, darwin::proc_workqueueinfo &info) {
  return device_.askProcess(
      Question::workQueue, Access::own, pid, [&](const ProcessMoment &at) -> Errno {
        const std::optional<WorkQueue> &queue = at.process.description().workQueue;
        if (!queue) return darwin::DARWIN_ESRCH;
        info = {queue->threads, queue->running, queue->blocked, queue->state};
        return kAnswered;
      });
}

Errno SimulatedProcesses::threadHandles(pid_t pid, std::vector<uint64_t> &handles) {
  return device_.askProcess(
      Question::threadHandles, Access::own, pid,
      [&](const ProcessMoment &at) { handles = numbersOf(at.process, &Thread::handle); });
}

Errno SimulatedProcesses::threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &info) {
  return device_.askProcess(Question::threadInfo, Access::own, pid, [&](const ProcessMoment &at) {
    return giveThread(at, at.process.threadByHandle(handle), info);
  });
}

Errno SimulatedProcesses::threadIDs(pid_t pid, std::vector<uint64_t> &ids) {
  return device_.askProcess(Question::threadIDs, Access::own, pid, [&](const ProcessMoment &at) {
    ids = numbersOf(at.process, &Thread::id);
  });
}

Errno SimulatedProcesses::threadInfoByID(pid_t pid, uint64_t id, darwin::proc_threadinfo &info) {
  return device_.askProcess(
      Question::threadInfoByID, Access::own, pid,
      [&](const ProcessMoment &at) { return giveThread(at, at.process.threadByID(id), info); });
}

Errno SimulatedProcesses::sendSignal(pid_t pid, int signal) {
  const Errno error = device_.ask(Question::sendSignal, pid, [&](const Moment &at) {
    return at.state.signal(pid, signal, at.now);
  });
  device_.wake();
  return error;
}

Errno SimulatedProcesses::stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &snapshot) {
  constexpr pid_t kEveryProcess = -1;
  return device_.ask(Question::stackshot, pid, [&](const Moment &at) -> Errno {
    if (at.device().caller != kRoot) return darwin::DARWIN_EPERM;
    Snapshot described = describeDevice(at.device(), at.state.clock(), at.now);
    for (const auto &process : at.state.processes().inStartOrder()) {
      if (process->isZombie()) continue;
      if (pid != kEveryProcess && process->pid() != pid) continue;
      described.tasks.push_back(describeTask(*process, at.state.clock(), at.now, at.pageSize()));
    }
    if (described.tasks.empty() && pid != kEveryProcess) return darwin::DARWIN_EINVAL;
    snapshot = writeSnapshot(described, flags);
    return kAnswered;
  });
}

Errno SimulatedProcesses::codeSigningFlags(pid_t pid, uint32_t &flags) {
  return give(Question::codeSigningFlags, Access::any, pid, &Process::codeSigningFlags, flags);
}

Errno SimulatedProcesses::codeSignature(pid_t pid, std::vector<uint8_t> &blob) {
  return give(Question::codeSignature, Access::any, pid, &Process::codeSignature, blob);
}

int SimulatedProcesses::sandboxCheck(pid_t pid) {
  int answer = -1;
  give(Question::sandboxCheck, Access::anyOrTold, pid, &Process::sandboxed, answer);
  return answer;
}

Errno SimulatedProcesses::containerPath(pid_t pid, std::string &path) {
  return device_.askProcess(
      Question::containerPath, Access::any, pid, [&](const ProcessMoment &at) {
        return takeText(at.process.description().container, darwin::DARWIN_ENOTSUP, path);
      });
}

}  // namespace host::simulator
