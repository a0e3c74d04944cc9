#include "host/linux/linux_kernel.h"

#include <unistd.h>

#include "host/darwin/errors.h"
#include "host/posix.h"

namespace host::linux_machine {

// The kernel that is presented is of the 4903 family. The caller's libc has 64 characters for the
// sentence.
static constexpr std::string_view kRelease = "18.7.0";
static constexpr std::string_view kVersionX86 =
    "Darwin Kernel Version 18.7.0: root:xnu-4903~1/RELEASE_X86_64";
static constexpr std::string_view kVersionArm =
    "Darwin Kernel Version 18.7.0: root:xnu-4903~1/RELEASE_ARM64_HOST";

Errno readKernelName(KernelName &name) {
  new_utsname own{};
  if (__real_uname(&own) != 0) return darwin::DARWIN_EIO;
  std::string_view hardware(own.machine);
  name.system = "Darwin";
  name.node = own.nodename;
  name.release = kRelease;
  name.version = hardware == "aarch64" ? kVersionArm : kVersionX86;
  name.hardware = hardware;
  return kAnswered;
}

darwin::timeval wallTime() {
  struct timeval now {};
  __real_gettimeofday(&now, nullptr);
  return {now.tv_sec, static_cast<int32_t>(now.tv_usec)};
}

Errno LinuxKernel::kernelName(KernelName &name) {
  return readKernelName(name);
}

uint64_t LinuxKernel::pageSize() noexcept {
  return static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

bool LinuxKernel::hasEntryPoint(std::string_view name) {
  return name == "memorystatus_get_level" || name == "proc_pid_rusage" ||
         name == "mach_vm_page_range_query" || name == "MGCopyAnswerWithError";
}

Errno LinuxKernel::kernelExtensions(std::vector<std::string> &identifiers) {
  const std::lock_guard lock(mutex_);
  std::string_view text;
  Errno error = reader_.readList(proc_, "modules", text);
  if (error == darwin::DARWIN_ENOENT) return darwin::DARWIN_ENOTSUP;  // it can load none
  if (error != kAnswered) return error;
  identifiers.clear();
  TextCursor lines(text);
  std::string_view line;
  std::string_view name;
  while (lines.line(line)) {
    if (TextCursor(line).word(name)) identifiers.emplace_back(name);
  }
  return kAnswered;
}

bool LinuxKernel::isPrivileged() {
  return __real_geteuid() == 0;
}

void LinuxKernel::wallClock(darwin::timeval &time) {
  time = wallTime();
}

}  // namespace host::linux_machine
