// What this machine says of its kernel, who asks it, and the time.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/linux/procfs.h"
#include "host/machine/kernel.h"

namespace host::linux_machine {

// The name of the kernel that is presented.
Errno readKernelName(KernelName &name);
darwin::timeval wallTime();

class LinuxKernel : public virtual KernelQuestions {
 public:
  // `procDirectory` is an open handle of /proc, that stays open.
  explicit LinuxKernel(int procDirectory) : proc_(procDirectory) {}

  Errno kernelName(KernelName &name) override;
  uint64_t pageSize() noexcept override;
  bool hasEntryPoint(std::string_view name) override;
  Errno kernelExtensions(std::vector<std::string> &identifiers) override;
  bool isPrivileged() override;
  void wallClock(darwin::timeval &time) override;

 private:
  const int proc_;
  std::mutex mutex_;
  FileReader reader_;
};

}  // namespace host::linux_machine
