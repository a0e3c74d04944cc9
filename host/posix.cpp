// C library calls whose meaning differs on the device, caught at link time. syscall() is with the
// system calls (entry/syscalls.cpp).
#include "host/posix.h"

#include <dlfcn.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstring>

#include "darwin/libproc.h"
#include "host/copy_text.h"
#include "host/entry/answer.h"
#include "host/entry/kernel.h"

namespace {

// Functions that some releases of the device's C library lack, so that the program looks them up.
struct OptionalEntryPoint {
  const char *name;
  void *address;
};

const OptionalEntryPoint kOptionalEntryPoints[] = {
    {"memorystatus_get_level", reinterpret_cast<void *>(&memorystatus_get_level)},
    {"proc_pid_rusage", reinterpret_cast<void *>(&darwin::proc_pid_rusage)},
};

uid_t callerUser() noexcept {
  uid_t user = 0;
  const host::Errno error = host::guarded([&user]() -> host::Errno {
    user = host::machine().callerUser();
    return host::kAnswered;
  });
  return error == host::kAnswered ? user : __real_geteuid();
}

}  // namespace

extern "C" int __wrap_uname(struct utsname *name) noexcept {
  const host::Errno error = host::guarded([name]() -> host::Errno {
    host::KernelName kernel;
    const host::Errno refused = host::machine().kernelName(kernel);
    if (refused != host::kAnswered) return refused;
    if (name == nullptr) return darwin::DARWIN_EFAULT;
    *name = {};
    host::copyText(kernel.system, name->sysname);
    host::copyText(kernel.node, name->nodename);
    host::copyText(kernel.release, name->release);
    host::copyText(kernel.version, name->version);
    host::copyText(kernel.hardware, name->machine);
    return host::kAnswered;
  });
  return host::libraryAnswer(error, 0, -1);
}

extern "C" void *__wrap_dlsym(void *handle, const char *name) noexcept {
  if (handle == RTLD_DEFAULT && name != nullptr) {
    for (const OptionalEntryPoint &entry : kOptionalEntryPoints) {
      if (std::strcmp(name, entry.name) != 0) continue;
      return host::isSo([name] { return host::machine().hasEntryPoint(name); }) ? entry.address
                                                                                : nullptr;
    }
  }
  return __real_dlsym(handle, name);
}

extern "C" uid_t __wrap_geteuid(void) noexcept {
  return callerUser();
}

// The program is never started with another real user.
extern "C" uid_t __wrap_getuid(void) noexcept {
  return callerUser();
}

extern "C" time_t __wrap_time(time_t *seconds) noexcept {
  time_t now = 0;
  const host::Errno error = host::guarded([&now]() -> host::Errno {
    now = host::machine().timeOfDay();
    return host::kAnswered;
  });
  if (error != host::kAnswered) now = __real_time(nullptr);
  if (seconds != nullptr) *seconds = now;
  return now;
}
