// Questions about the kernel, who asks it, and its clock.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "darwin/mach_host.h"
#include "darwin/sysctl.h"
#include "host/errno.h"
#include "host/kernel_family.h"

namespace host {

// What uname() reports. The texts are cut to the fields of the caller's libc.
struct KernelName {
  std::string system;
  std::string node;
  std::string release;
  std::string version;
  std::string hardware;
};

class KernelQuestions {
 public:
  virtual Errno kernelName(KernelName &) { return darwin::DARWIN_ENOTSUP; }
  // Where kernels differ, entry points do as this one does. By default the usual one.
  virtual KernelFamily kernelFamily() noexcept { return kUsualFamily; }
  // Whether uname() says so: a program that can't tell the family has to take another for granted.
  virtual bool namesKernelFamily() noexcept { return true; }
  // In bytes, a power of two.
  virtual uint64_t pageSize() noexcept { return 4096; }
  // Nanoseconds per unit of the kernel's absolute time; neither number is 0.
  virtual darwin::mach_timebase_info_data_t timebase() noexcept { return {1, 1}; }
  // Whether the C library has an entry point that only some releases have, such as
  // "memorystatus_get_level".
  virtual bool hasEntryPoint(std::string_view /*name*/) { return false; }
  // Identifiers of the loaded kernel extensions.
  virtual Errno kernelExtensions(std::vector<std::string> &) { return darwin::DARWIN_ENOTSUP; }

  // Whether the caller holds the privileged host port, as root does.
  virtual bool isPrivileged() { return false; }
  // Effective user of the program; 0 is root. By default the one that it has on this system.
  virtual uint32_t callerUser();

  // The time of day in seconds since the epoch. By default that of this system.
  virtual int64_t timeOfDay();
  // The same with microseconds. By default there are none.
  virtual void wallClock(darwin::timeval &time);
  // The program begins to sample all processes. A machine with a stepped clock moves on.
  virtual void beginSample() {}

 protected:
  ~KernelQuestions() = default;
};

// Those of the machine that answers (host/machine.h). So it is for each family of questions.
KernelQuestions &kernel();

}  // namespace host
