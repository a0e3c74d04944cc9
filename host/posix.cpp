// C library calls whose meaning differs on the device, caught at link time. syscall() is with the
// system calls (entry/syscalls.cpp).
#include "host/posix.h"

#include <dlfcn.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "darwin/interfaces.h"
#include "darwin/kernel_control.h"
#include "darwin/libproc.h"
#include "darwin/mach_vm.h"
#include "host/copy_text.h"
#include "host/darwin/errors.h"
#include "host/entry/answer.h"
#include "host/entry/control_socket.h"
#include "host/entry/gestalt.h"
#include "host/entry/kernel.h"
#include "host/entry/wireless.h"
#include "host/machine/kernel.h"
#include "host/machine/processes.h"

namespace {

// Functions that some releases of the device's C library lack, so that the program looks them up.
struct OptionalEntryPoint {
  const char *name;
  void *address;
};

const OptionalEntryPoint kOptionalEntryPoints[] = {
    {"memorystatus_get_level", reinterpret_cast<void *>(&memorystatus_get_level)},
    {"proc_pid_rusage", reinterpret_cast<void *>(&darwin::proc_pid_rusage)},
    {"mach_vm_page_range_query", reinterpret_cast<void *>(&darwin::mach_vm_page_range_query)},
};

uid_t callerUser() noexcept {
  uid_t user = 0;
  const host::Errno error = host::guarded([&user]() -> host::Errno {
    user = host::kernel().callerUser();
    return host::kAnswered;
  });
  return error == host::kAnswered ? user : __real_geteuid();
}

// The sockets that Wi-Fi interfaces are asked through.
bool isIPv4Socket(int descriptor) {
  int domain = 0;
  socklen_t size = sizeof domain;
  const int before = errno;
  const bool known = getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0;
  errno = before;
  return known && domain == AF_INET;
}

}  // namespace

extern "C" int __wrap_uname(struct utsname *name) noexcept {
  const host::Errno error = host::guarded([name]() -> host::Errno {
    host::KernelName kernel;
    const host::Errno refused = host::kernel().kernelName(kernel);
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

// Where the machine lacks the library, the path leads nowhere here either: dlerror() says so.
extern "C" void *__wrap_dlopen(const char *path, int mode) noexcept {
  void *library = path == nullptr ? nullptr : host::openGestalt(path);
  return library != nullptr ? library : __real_dlopen(path, mode);
}

extern "C" void *__wrap_dlsym(void *handle, const char *name) noexcept {
  if (handle == RTLD_DEFAULT && name != nullptr) {
    for (const OptionalEntryPoint &entry : kOptionalEntryPoints) {
      if (std::strcmp(name, entry.name) != 0) continue;
      return host::isSo([name] { return host::kernel().hasEntryPoint(name); }) ? entry.address
                                                                               : nullptr;
    }
  }
  if (host::isGestalt(handle)) return name == nullptr ? nullptr : host::findInGestalt(name);
  return __real_dlsym(handle, name);
}

// The number is the device's, and so is the process.
extern "C" int __wrap_kill(pid_t pid, int signal) noexcept {
  const host::Errno error =
      host::guarded([pid, signal] { return host::processes().sendSignal(pid, signal); });
  return host::libraryAnswer(error, 0, -1);
}

extern "C" uid_t __wrap_geteuid(void) noexcept {
  return callerUser();
}

// The program is never started with another real user.
extern "C" uid_t __wrap_getuid(void) noexcept {
  return callerUser();
}

// 0 is the program itself, which is a process of this system on every machine.
extern "C" pid_t __wrap_getpgid(pid_t pid) noexcept {
  if (pid == 0) return __real_getpgid(pid);
  pid_t group = 0;
  const host::Errno error =
      host::guarded([pid, &group] { return host::processes().processGroup(pid, group); });
  if (error == darwin::DARWIN_ENOTSUP) return __real_getpgid(pid);
  return host::libraryAnswer(error, group, -1);
}

extern "C" time_t __wrap_time(time_t *seconds) noexcept {
  time_t now = 0;
  const host::Errno error = host::guarded([&now]() -> host::Errno {
    now = host::kernel().timeOfDay();
    return host::kAnswered;
  });
  if (error != host::kAnswered) now = __real_time(nullptr);
  if (seconds != nullptr) *seconds = now;
  return now;
}

extern "C" int __wrap_gettimeofday(struct timeval *time, void *zone) noexcept {
  darwin::timeval now{};
  const host::Errno error = host::guarded([&now]() -> host::Errno {
    host::kernel().wallClock(now);
    return host::kAnswered;
  });
  if (error != host::kAnswered || zone != nullptr) return __real_gettimeofday(time, zone);
  if (time != nullptr) *time = {now.tv_sec, now.tv_usec};
  return 0;
}

extern "C" int __wrap_socket(int domain, int type, int protocol) noexcept {
  if (domain != darwin::DARWIN_AF_SYSTEM || protocol != darwin::SYSPROTO_CONTROL) {
    return __real_socket(domain, type, protocol);
  }
  int descriptor = -1;
  const host::Errno error = host::openControlSocket(type, descriptor);
  return host::libraryAnswer(error, descriptor, -1);
}

extern "C" int __wrap_connect(int descriptor, const struct sockaddr *address, socklen_t length) {
  if (!host::isControlSocket(descriptor)) return __real_connect(descriptor, address, length);
  return host::libraryAnswer(host::connectControlSocket(descriptor, address, length), 0, -1);
}

extern "C" int __wrap_setsockopt(int descriptor, int level, int option, const void *value,
                                 socklen_t length) noexcept {
  if (!host::isControlSocket(descriptor)) {
    return __real_setsockopt(descriptor, level, option, value, length);
  }
  return host::libraryAnswer(host::setControlSocketOption(descriptor, level, option, value, length),
                             0, -1);
}

// All requests that are made here take one address.
extern "C" int __wrap_ioctl(int descriptor, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  if (request == darwin::CTLIOCGINFO && host::isControlSocket(descriptor)) {
    return host::libraryAnswer(host::controlInfo(static_cast<darwin::ctl_info *>(argument)), 0, -1);
  }
  if (request == darwin::SIOCGA80211 && isIPv4Socket(descriptor)) {
    return host::libraryAnswer(
        host::wirelessRequest(static_cast<darwin::apple80211req *>(argument)), 0, -1);
  }
  return __real_ioctl(descriptor, request, argument);
}
