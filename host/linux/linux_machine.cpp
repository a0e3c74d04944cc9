#include "host/linux/linux_machine.h"

#include <fcntl.h>

#include <utility>

namespace host {

namespace linux_machine {

LinuxMachine::LinuxMachine(FileHandle proc)
    : LinuxMachine(std::make_unique<SharedProcesses>(std::move(proc))) {}

LinuxMachine::LinuxMachine(std::unique_ptr<SharedProcesses> processes)
    : LinuxKernel(processes->proc.get()),
      LinuxProcesses(*processes),
      LinuxTasks(*processes),
      LinuxDescriptors(*processes),
      LinuxHost(*processes),
      LinuxNetworks(*processes),
      processes_(std::move(processes)) {}

}  // namespace linux_machine

std::unique_ptr<Machine> makeLinuxMachine() {
  using linux_machine::FileHandle;
  FileHandle proc = linux_machine::openDirectory(AT_FDCWD, "/proc");
  if (!proc.isOpen()) return nullptr;
  return std::make_unique<linux_machine::LinuxMachine>(std::move(proc));
}

}  // namespace host
