// What this machine lets be seen of the inside of its processes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/linux/pages.h"
#include "host/linux/regions.h"
#include "host/linux/shared_processes.h"
#include "host/machine/tasks.h"

namespace host::linux_machine {

class LinuxTasks : public virtual TaskQuestions {
 public:
  explicit LinuxTasks(SharedProcesses &processes) : shared_(processes) {}

  Errno taskPort(pid_t pid) override;
  Errno taskNamePort(pid_t pid) override;
  // A walk upward sees one picture of the process.
  Errno region(pid_t pid, uint64_t address, darwin::proc_regionwithpathinfo &info) override;
  Errno readMemory(pid_t pid, uint64_t address, size_t size, void *to) override;
  Errno pages(pid_t pid, uint64_t address, size_t count, int *to) override;
  // Stops the thread for that moment. May take half a second.
  Errno threadRegisters(pid_t pid, uint64_t id, ThreadRegisters &registers) override;

 private:
  SharedProcesses &shared_;
  // Under the lock of the processes.
  Regions regions_;
  Pages pages_;
};

}  // namespace host::linux_machine
