#include "host/linux/stackshot.h"

#include <algorithm>
#include <string>
#include <utility>

#include "host/darwin/proc_info.h"
#include "host/linux/kernel_stacks.h"
#include "host/linux/procfs.h"
#include "host/linux/threads.h"
#include "host/linux/user_stacks.h"

namespace host::linux_machine {

// For the files and stacks of one process.
static constexpr std::chrono::seconds kPerProcess{10};

static bool isIn(const SnapshotThread &thread, std::initializer_list<int32_t> states) {
  return std::find(states.begin(), states.end(), thread.state) != states.end();
}

static SnapshotThread describeThread(const ThreadReading &reading) {
  darwin::proc_threadinfo info{};
  fillThreadInfo(reading.stat, reading.figures, info);
  SnapshotThread thread;
  thread.id = static_cast<uint64_t>(reading.stat.id);
  thread.name = reading.stat.name;
  thread.state = info.pth_run_state;
  thread.basePriority = static_cast<int16_t>(info.pth_priority);
  thread.priority = static_cast<int16_t>(info.pth_curpri);
  thread.userTime = info.pth_user_time;
  thread.systemTime = info.pth_system_time;
  return thread;
}

StackshotTask describeTask(const ProcessStat &stat, const ProcessStatus &status,
                           const std::vector<ThreadReading> &threads, bool is64Bit,
                           const WallTime &boot) {
  StackshotTask described;
  described.startTicks = stat.startTicks;
  described.hasUserSide = !stat.isKernelThread();
  SnapshotTask &task = described.task;
  task.pid = stat.id;
  task.name = stat.name;
  task.is64Bit = is64Bit;
  task.startSeconds = startMoment(boot, stat.startTicks).seconds;
  task.residentSize = status.residentKiB * 1024;
  task.suspendCount = stat.state == 'T' ? 1 : 0;
  task.faults = saturate<uint32_t>(stat.minorFaults + stat.majorFaults);
  task.pageIns = saturate<uint32_t>(stat.majorFaults);
  uint64_t userTime = 0;
  uint64_t systemTime = 0;
  for (const ThreadReading &reading : threads) {
    task.threads.push_back(describeThread(reading));
    userTime += task.threads.back().userTime;
    systemTime += task.threads.back().systemTime;
  }
  // The process's own times are read before those of its threads.
  task.endedUserTime = std::max(ticksToNanoseconds(stat.userTicks), userTime) - userTime;
  task.endedSystemTime = std::max(ticksToNanoseconds(stat.systemTicks), systemTime) - systemTime;
  return described;
}

// A process by its directory, which stays with it.
class TaskReader {
 public:
  TaskReader(int procDirectory, StackshotTask &described)
      : described_(described),
        directory_(openStartingPoint(procDirectory, std::to_string(described.task.pid).c_str())) {}

  // Whether it is still there, and the one that was described.
  bool isThere() {
    std::string_view text;
    ProcessStat stat{};
    return directory_.isOpen() && reader_.readRecord(directory_.get(), "stat", text) == kAnswered &&
           parseProcessStat(text, stat) && stat.startTicks == described_.startTicks;
  }

  // By thread; before the threads are stopped, which would show here.
  std::vector<std::vector<KernelFrame>> kernelStacks() {
    std::vector<std::vector<KernelFrame>> stacks;
    std::string_view text;
    for (const SnapshotThread &thread : described_.task.threads) {
      const Errno error = read(thread, "stack", text);
      stacks.push_back(error == kAnswered ? parseKernelStack(text) : std::vector<KernelFrame>{});
    }
    return stacks;
  }

  void addRunnableTimes() {
    std::string_view text;
    for (SnapshotThread &thread : described_.task.threads) {
      uint64_t running = 0;
      uint64_t waiting = 0;
      if (read(thread, "schedstat", text) != kAnswered) continue;
      TextCursor words(text);
      if (words.number(running) && words.number(waiting)) thread.runnableTime = running + waiting;
    }
  }

 private:
  Errno read(const SnapshotThread &thread, const char *file, std::string_view &text) {
    const std::string name = "task/" + std::to_string(thread.id) + "/" + file;
    return reader_.readRecord(directory_.get(), name.c_str(), text);
  }

  StackshotTask &described_;
  FileHandle directory_;
  FileReader reader_;
};

// Threads that can be stopped without waiting for something else.
static std::vector<pid_t> threadsToStop(const StackshotTask &described) {
  std::vector<pid_t> threads;
  if (!described.hasUserSide) return threads;
  for (const SnapshotThread &thread : described.task.threads) {
    if (isIn(thread, {darwin::TH_STATE_UNINTERRUPTIBLE, darwin::TH_STATE_HALTED})) continue;
    threads.push_back(static_cast<pid_t>(thread.id));
  }
  return threads;
}

static void addUserStacks(TaskReader &reader, StackshotTask &described,
                          std::chrono::seconds patience) {
  UserStacks found =
      readUserStacks(described.task.pid, threadsToStop(described), std::min(patience, kPerProcess));
  if (!reader.isThere()) return;
  described.task.images = std::move(found.images);
  for (SnapshotThread &thread : described.task.threads) {
    const auto stack = found.stacks.find(static_cast<pid_t>(thread.id));
    if (stack != found.stacks.end()) thread.userStack = std::move(stack->second);
  }
}

void addStacks(int procDirectory, std::vector<StackshotTask> &tasks,
               std::chrono::seconds patience) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + patience;
  std::vector<std::vector<std::vector<KernelFrame>>> kernelStacks;
  KernelSymbols symbols;
  for (StackshotTask &described : tasks) {
    TaskReader reader(procDirectory, described);
    std::vector<std::vector<KernelFrame>> &stacks = kernelStacks.emplace_back();
    if (!reader.isThere()) continue;
    stacks = reader.kernelStacks();
    for (const std::vector<KernelFrame> &stack : stacks) symbols.want(stack);
    reader.addRunnableTimes();
    const auto left = std::chrono::ceil<std::chrono::seconds>(deadline - Clock::now());
    if (described.hasUserSide && left.count() > 0) addUserStacks(reader, described, left);
  }

  symbols.read(procDirectory);
  for (size_t i = 0; i < tasks.size(); i++) {
    for (size_t j = 0; j < kernelStacks[i].size(); j++) {
      tasks[i].task.threads[j].kernelStack = symbols.addressesOf(kernelStacks[i][j]);
    }
  }
}

}  // namespace host::linux_machine
