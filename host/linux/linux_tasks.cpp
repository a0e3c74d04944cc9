#include "host/linux/linux_tasks.h"

#include "host/darwin/errors.h"
#include "host/linux/registers.h"
#include "host/linux/task_memory.h"

namespace host::linux_machine {

Errno LinuxTasks::taskPort(pid_t pid) {
  const std::lock_guard lock(shared_.mutex);
  int process = -1;
  Errno error = shared_.holdUserProcess(pid);
  if (error == kAnswered) error = shared_.present.taskDirectory(process);
  return error == kAnswered ? checkMemoryAccess(process) : error;
}

Errno LinuxTasks::taskNamePort(pid_t pid) {
  const std::lock_guard lock(shared_.mutex);
  return shared_.holdUserProcess(pid);
}

Errno LinuxTasks::region(pid_t pid, uint64_t address, darwin::proc_regionwithpathinfo &info) {
  const std::lock_guard lock(shared_.mutex);
  int directory = -1;
  Errno error = shared_.holdLive(pid);
  if (error == kAnswered) error = shared_.present.taskDirectory(directory);
  if (error != kAnswered) return error;
  const ProcessKey process = {pid, shared_.present.stat().startTicks};
  return regions_.find(directory, process, address, info);
}

Errno LinuxTasks::readMemory(pid_t pid, uint64_t address, size_t size, void *to) {
  FileHandle directory;
  int32_t thread = 0;
  {
    const std::lock_guard lock(shared_.mutex);
    int process = -1;
    Errno error = shared_.holdUserProcess(pid);
    if (error == kAnswered) error = shared_.present.taskDirectory(process);
    if (error != kAnswered) return error;
    directory = openStartingPoint(process, ".");
    thread = shared_.present.taskThread();
  }
  if (!directory.isOpen()) return darwin::DARWIN_ESRCH;
  // Not with the lock held: the memory may be slow to come from where it was swapped to.
  return readTaskMemory(directory.get(), thread, address, size, to);
}

Errno LinuxTasks::pages(pid_t pid, uint64_t address, size_t count, int *to) {
  const std::lock_guard lock(shared_.mutex);
  int directory = -1;
  Errno error = shared_.holdUserProcess(pid);
  if (error == kAnswered) error = shared_.present.taskDirectory(directory);
  if (error != kAnswered) return error;
  const ProcessKey process = {pid, shared_.present.stat().startTicks};
  return pages_.tell(directory, process, address, count, to);
}

Errno LinuxTasks::threadRegisters(pid_t pid, uint64_t id, ThreadRegisters &registers) {
  ThreadPlace place;
  {
    const std::lock_guard lock(shared_.mutex);
    int process = -1;
    Errno error = shared_.holdUserProcess(pid);
    if (error == kAnswered) error = shared_.present.directory(process);
    if (error == kAnswered) error = findThreadPlace(process, id, place);
    if (error != kAnswered) return error;
    place.process = pid;
    place.is64Bit = shared_.present.is64Bit();
  }
  // Not with the lock held: the thread may be slow to stop.
  return readRegisters(place, registers);
}

}  // namespace host::linux_machine
