#include "host/linux/linux_processes.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string_view>
#include <utility>

#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/linux/clock.h"
#include "host/linux/host_figures.h"
#include "host/linux/linux_kernel.h"
#include "host/linux/process_figures.h"
#include "host/linux/signals.h"
#include "host/posix.h"
#include "host/units.h"

namespace host::linux_machine {

static constexpr uint64_t kSeccompFilter = 2;

// Of stackshots: the pid that stands for all, the unit of page counts, and how long to look at
// stacks.
static constexpr pid_t kEveryProcess = -1;
static constexpr uint32_t kReportedPageSize = 4096;
static constexpr std::chrono::seconds kStacksPatience{60};

Errno LinuxProcesses::processIDs(std::vector<int32_t> &pids) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.list(pids);
  if (error != kAnswered) return error;
  shared_.beginPass(pids);
  return kAnswered;
}

Errno LinuxProcesses::readTask(ProcessStatus &status, std::vector<ThreadReading> *&threads) {
  // First the threads: that tells of what is known whether it still holds.
  Errno error = shared_.present.threads(threads);
  if (error == kAnswered) error = shared_.present.status(status);
  return error;
}

Errno LinuxProcesses::taskAllInfo(pid_t pid, darwin::proc_taskallinfo &info) {
  const std::lock_guard lock(shared_.mutex);
  ProcessStatus status{};
  std::vector<ThreadReading> *threads = nullptr;
  Errno error = shared_.present.read(pid);
  if (error == kAnswered) error = shared_.present.checkAccess();
  if (error == kAnswered) error = readTask(status, threads);
  if (error != kAnswered) return error;
  fillBsdInfo(shared_.present.stat(), status, shared_.present.is64Bit(), shared_.boot(), info.pbsd);
  fillTaskInfo(shared_.present.stat(), status, *threads, info.ptinfo);
  return kAnswered;
}

Errno LinuxProcesses::bsdInfo(pid_t pid, bool zombies, darwin::proc_bsdinfo &info) {
  const std::lock_guard lock(shared_.mutex);
  ProcessStatus status{};
  Errno error = shared_.present.read(pid);
  if (error == kAnswered && !zombies) error = shared_.checkLive();
  if (error == kAnswered) error = shared_.present.checkAccess();
  if (error == kAnswered) error = shared_.present.status(status);
  if (error != kAnswered) return error;
  fillBsdInfo(shared_.present.stat(), status, shared_.present.is64Bit(), shared_.boot(), info);
  return kAnswered;
}

Errno LinuxProcesses::executablePath(pid_t pid, std::string &path) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.present.hold(pid);
  if (error != kAnswered) return error;
  return shared_.present.stat().isZombie() ? darwin::DARWIN_ESRCH
                                           : shared_.present.executablePath(path);
}

Errno LinuxProcesses::arguments(pid_t pid, ProcessArguments &arguments) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.holdLive(pid);
  return error == kAnswered ? shared_.present.arguments(arguments) : error;
}

Errno LinuxProcesses::coalition(pid_t pid, darwin::proc_pidcoalitioninfo &info) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.present.readFor(pid, Question::coalition);
  if (error != kAnswered) return error;
  if (shared_.present.stat().isZombie()) return darwin::DARWIN_ESRCH;
  info = {};
  info.coalition_id[darwin::COALITION_TYPE_RESOURCE] =
      static_cast<uint64_t>(shared_.present.stat().session);
  info.coalition_id[darwin::COALITION_TYPE_JETSAM] =
      static_cast<uint64_t>(shared_.present.stat().group);
  return kAnswered;
}

Errno LinuxProcesses::resourceUsage(pid_t pid, darwin::rusage_info_v4 &usage) {
  const std::lock_guard lock(shared_.mutex);
  ProcessStatus status{};
  ProcessIO io{};
  Errno error = shared_.present.readFor(pid, Question::usage);
  if (error == kAnswered) error = shared_.present.checkAccess();
  if (error == kAnswered) error = shared_.present.status(status);
  if (error == kAnswered) error = shared_.present.io(io);
  if (error != kAnswered) return error;
  fillResourceUsage(shared_.present.stat(), status, io, usage);
  return kAnswered;
}

// As kernels of the presented family have it: who asks is judged, and then there is none.
Errno LinuxProcesses::applicationState(pid_t pid, int32_t &) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.holdLive(pid);
  return error == kAnswered ? darwin::DARWIN_ENOTSUP : error;
}

Errno LinuxProcesses::workQueue(pid_t pid, darwin::proc_workqueueinfo &) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.holdLive(pid);
  return error == kAnswered ? darwin::DARWIN_ESRCH : error;
}

Errno LinuxProcesses::threadHandles(pid_t pid, std::vector<uint64_t> &handles) {
  return threadIDs(pid, handles);
}

Errno LinuxProcesses::threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &info) {
  return threadInfoByID(pid, handle, info);
}

Errno LinuxProcesses::threadIDs(pid_t pid, std::vector<uint64_t> &ids) {
  const std::lock_guard lock(shared_.mutex);
  std::vector<ThreadReading> *threads = nullptr;
  Errno error = shared_.readLiveFor(pid, Question::threads);
  if (error == kAnswered) error = shared_.present.threads(threads);
  if (error != kAnswered) return error;
  ids.clear();
  ids.reserve(threads->size());
  for (const ThreadReading &thread : *threads) {
    ids.push_back(static_cast<uint64_t>(thread.stat.id));
  }
  return kAnswered;
}

// Finds the thread in the reading of a moment ago, or in a new one if `anew`.
Errno LinuxProcesses::findThread(pid_t pid, uint64_t id, bool anew, ThreadReading *&thread) {
  std::vector<ThreadReading> *threads = nullptr;
  Errno error = anew ? shared_.readLive(pid) : shared_.holdLive(pid);
  if (error == kAnswered) error = shared_.present.threads(threads);
  if (error != kAnswered) return error;
  auto found = std::lower_bound(threads->begin(), threads->end(), id,
                                [](const ThreadReading &reading, uint64_t wanted) {
                                  return static_cast<uint64_t>(reading.stat.id) < wanted;
                                });
  if (found == threads->end() || static_cast<uint64_t>(found->stat.id) != id) {
    return darwin::DARWIN_ESRCH;
  }
  thread = &*found;
  return kAnswered;
}

Errno LinuxProcesses::threadInfoByID(pid_t pid, uint64_t id, darwin::proc_threadinfo &info) {
  const std::lock_guard lock(shared_.mutex);
  ThreadReading *thread = nullptr;
  Errno error = findThread(pid, id, false, thread);
  // Another reading is for one that is younger than this one, not for each that has ended since.
  const bool isOld = error == kAnswered
                         ? thread->wasTold
                         : error == darwin::DARWIN_ESRCH && shared_.present.hasThread(id);
  if (isOld) error = findThread(pid, id, true, thread);
  if (error != kAnswered) return error;
  fillThreadInfo(thread->stat, thread->figures, info);
  thread->wasTold = true;
  return kAnswered;
}

Errno LinuxProcesses::sendSignal(pid_t pid, int signal) {
  const int number = linuxSignal(signal);
  if (number == 0 && signal != 0) return darwin::DARWIN_EINVAL;
  if (__real_kill(pid, number) == 0) return kAnswered;
  // The only ones that it fails with, and the same for both.
  return errno == EPERM ? darwin::DARWIN_EPERM : darwin::DARWIN_ESRCH;
}

Errno LinuxProcesses::describeForStackshot(pid_t pid, StackshotTask &task) {
  const std::lock_guard lock(shared_.mutex);
  ProcessStatus status{};
  std::vector<ThreadReading> *threads = nullptr;
  Errno error = shared_.readLive(pid);
  if (error == kAnswered) error = readTask(status, threads);
  if (error != kAnswered) return error;
  task = describeTask(shared_.present.stat(), status, *threads, shared_.present.is64Bit(),
                      shared_.boot());
  return kAnswered;
}

Errno LinuxProcesses::describeForStackshot(Snapshot &snapshot) {
  KernelName name;
  darwin::vm_statistics64 memory{};
  Errno error = readKernelName(name);
  if (error != kAnswered) return error;
  const darwin::timeval time = wallTime();
  snapshot.sinceBoot = nanosecondsSinceBoot();
  snapshot.sinceEpoch = static_cast<uint64_t>(time.tv_sec) * kMicrosecondsPerSecond +
                        static_cast<uint64_t>(time.tv_usec);
  snapshot.kernelVersion = name.version;
  snapshot.pageSize = kReportedPageSize;

  const std::lock_guard lock(shared_.mutex);
  FileReader reader;
  std::string_view line;
  if (reader.readRecord(shared_.proc.get(), "cmdline", line) == kAnswered) {
    snapshot.bootArguments = line.substr(0, line.find('\n'));
  }
  if (HostFigures().virtualMemory(memory) == kAnswered) snapshot.memory = memory;
  return kAnswered;
}

// A process that is not there is refused as a bad argument, which callers have a message for.
Errno LinuxProcesses::stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &snapshot) {
  std::vector<int32_t> pids = {pid};
  Snapshot described;
  Errno error = describeForStackshot(described);
  if (error == kAnswered && pid == kEveryProcess) {
    pids.clear();
    const std::lock_guard lock(shared_.mutex);
    error = shared_.list(pids);
  }
  if (error != kAnswered) return error;

  std::vector<StackshotTask> tasks;
  for (const int32_t each : pids) {
    StackshotTask task;
    error = describeForStackshot(each, task);
    if (error == kAnswered) {
      tasks.push_back(std::move(task));
    } else if (pid != kEveryProcess) {
      return error == darwin::DARWIN_ESRCH ? darwin::DARWIN_EINVAL : error;
    }
  }
  // Without the lock: other questions need not wait for it.
  addStacks(shared_.proc.get(), tasks, kStacksPatience);
  for (StackshotTask &task : tasks) described.tasks.push_back(std::move(task.task));
  snapshot = writeSnapshot(described, flags);
  return kAnswered;
}

// No program here is signed.
Errno LinuxProcesses::codeSigningFlags(pid_t pid, uint32_t &flags) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.present.hold(pid);
  if (error != kAnswered) return error;
  if (shared_.present.stat().isZombie()) return darwin::DARWIN_ESRCH;
  flags = 0;
  return kAnswered;
}

// Nothing confines a zombie any more.
int LinuxProcesses::sandboxCheck(pid_t pid) {
  const std::lock_guard lock(shared_.mutex);
  ProcessStatus status{};
  Errno error = shared_.present.readFor(pid, Question::sandbox);
  if (error == kAnswered) error = shared_.present.checkAccess();
  if (error != kAnswered) return -1;
  if (shared_.present.stat().isZombie()) return 0;
  if (shared_.present.status(status) != kAnswered) return -1;
  if (status.seccomp == kSeccompFilter) return 1;
  bool hasOwnUsers = false;
  if (shared_.present.hasOwnUsers(hasOwnUsers) != kAnswered) return -1;
  return hasOwnUsers ? 1 : 0;
}

// What confines a process to a part of the file system is a root directory of its own.
Errno LinuxProcesses::containerPath(pid_t pid, std::string &path) {
  const std::lock_guard lock(shared_.mutex);
  std::string root;
  Errno error = shared_.holdLive(pid);
  if (error == kAnswered) error = shared_.present.rootPath(root);
  if (error != kAnswered) return error;
  if (root == "/") return darwin::DARWIN_ENOTSUP;
  path = std::move(root);
  return kAnswered;
}

}  // namespace host::linux_machine
