// The live Linux system as a machine: what is read where for each question, and who may ask. Every
// answer comes from the kernel; host/DIFFERENCES.md says where it is not quite what a device would
// answer.
#pragma once

#include <memory>

#include "host/linux/linux_descriptors.h"
#include "host/linux/linux_host.h"
#include "host/linux/linux_kernel.h"
#include "host/linux/linux_networks.h"
#include "host/linux/linux_processes.h"
#include "host/linux/linux_services.h"
#include "host/linux/linux_tasks.h"
#include "host/linux/shared_processes.h"
#include "host/machine.h"

namespace host {

namespace linux_machine {

// Holds one directory handle of /proc, at most one of a process, and kept_files.h.
class LinuxMachine final : public Machine,
                           public LinuxKernel,
                           public LinuxProcesses,
                           public LinuxTasks,
                           public LinuxDescriptors,
                           public LinuxHost,
                           public LinuxNetworks,
                           public LinuxServices {
 public:
  // `proc` is an open handle of /proc.
  explicit LinuxMachine(FileHandle proc);

  void beginSample() override { processes_->beginSample(); }

 private:
  explicit LinuxMachine(std::unique_ptr<SharedProcesses> processes);

  std::unique_ptr<SharedProcesses> processes_;
};

}  // namespace linux_machine

// The machine that this program runs on; null when /proc can't be opened.
std::unique_ptr<Machine> makeLinuxMachine();

}  // namespace host
