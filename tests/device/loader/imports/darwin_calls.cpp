// The calls that only the device has: what stands in for its kernel and its libraries answers them.
#include <sys/types.h>

#include "darwin/code_signing.h"
#include "darwin/core_foundation.h"
#include "darwin/kext.h"
#include "darwin/kqueue.h"
#include "darwin/libproc.h"
#include "darwin/mach_host.h"
#include "darwin/mach_task.h"
#include "darwin/mach_vm.h"
#include "darwin/power_sources.h"
#include "darwin/sandbox.h"
#include "darwin/stackshot.h"
#include "darwin/sysctl.h"
#include "darwin/thread_state.h"
#include "darwin/uuid.h"
#include "host/entry/kernel.h"
#include "imports/calls.h"

struct utsname;

extern "C" {

long __wrap_syscall(long number, ...) noexcept;
int __wrap_uname(struct utsname *name) noexcept;
int __wrap_kill(pid_t pid, int signal) noexcept;
uid_t __wrap_geteuid(void) noexcept;
uid_t __wrap_getuid(void) noexcept;
pid_t __wrap_getpgid(pid_t pid) noexcept;

void device_syscall();
void device_sandbox_check();

// No call has more than these. What stands in for it takes each with the type that its number has.
int on_syscall(int number, const uint64_t *arguments) {
  return static_cast<int>(__wrap_syscall(number, arguments[0], arguments[1], arguments[2],
                                         arguments[3], arguments[4], arguments[5], arguments[6]));
}

// Without an operation there is nothing behind the named ones.
int on_sandbox_check(int pid, const char *operation, int type, const uint64_t *) {
  return darwin::sandbox_check(pid, operation, type);
}

}  // extern "C"

#define DARWIN_CALL(name) call(#name, &darwin::name)

namespace loader {

std::span<const Import> darwinCalls() {
  static const Import table[] = {
      DARWIN_CALL(csops),
      DARWIN_CALL(CFArrayGetCount),
      DARWIN_CALL(CFArrayGetValueAtIndex),
      DARWIN_CALL(CFBooleanGetTypeID),
      widened<darwin::CFBooleanGetValue>("CFBooleanGetValue"),
      DARWIN_CALL(CFDataGetBytePtr),
      DARWIN_CALL(CFDataGetLength),
      DARWIN_CALL(CFDictionaryGetCount),
      DARWIN_CALL(CFDictionaryGetKeysAndValues),
      DARWIN_CALL(CFDictionaryGetValue),
      DARWIN_CALL(CFGetTypeID),
      DARWIN_CALL(CFNumberGetTypeID),
      widened<darwin::CFNumberGetValue>("CFNumberGetValue"),
      DARWIN_CALL(CFPropertyListCreateXMLData),
      DARWIN_CALL(CFRelease),
      DARWIN_CALL(CFShow),
      DARWIN_CALL(CFStringCreateWithCString),
      DARWIN_CALL(CFStringGetCStringPtr),
      DARWIN_CALL(CFStringGetTypeID),
      DARWIN_CALL(IOPMCopyAssertionsByProcess),
      DARWIN_CALL(IOPSCopyPowerSourcesInfo),
      DARWIN_CALL(IOPSCopyPowerSourcesList),
      DARWIN_CALL(IOPSGetPowerSourceDescription),
      DARWIN_CALL(IOPSGetTimeRemainingEstimate),
      DARWIN_CALL(OSKextCopyLoadedKextInfo),
      DARWIN_CALL(act_get_state),
      DARWIN_CALL(host_get_special_port),
      DARWIN_CALL(host_info),
      DARWIN_CALL(host_page_size),
      DARWIN_CALL(host_processor_sets),
      DARWIN_CALL(host_processors),
      DARWIN_CALL(host_statistics64),
      DARWIN_CALL(kevent),
      DARWIN_CALL(kqueue),
      DARWIN_CALL(mach_host_self),
      DARWIN_CALL(mach_port_deallocate),
      DARWIN_CALL(mach_timebase_info),
      DARWIN_CALL(mach_vm_page_range_query),
      DARWIN_CALL(mach_vm_read_overwrite),
      call("memorystatus_get_level", &memorystatus_get_level),
      DARWIN_CALL(proc_listpids),
      DARWIN_CALL(proc_pid_rusage),
      DARWIN_CALL(proc_pidfdinfo),
      DARWIN_CALL(proc_pidinfo),
      DARWIN_CALL(processor_info),
      DARWIN_CALL(sandbox_container_path_for_pid),
      DARWIN_CALL(stackshot_capture_with_config),
      DARWIN_CALL(stackshot_config_create),
      DARWIN_CALL(stackshot_config_get_stackshot_buffer),
      DARWIN_CALL(stackshot_config_get_stackshot_size),
      DARWIN_CALL(stackshot_config_set_flags),
      DARWIN_CALL(stackshot_config_set_pid),
      DARWIN_CALL(sysctl),
      DARWIN_CALL(sysctlbyname),
      DARWIN_CALL(task_for_pid),
      DARWIN_CALL(task_info),
      DARWIN_CALL(task_name_for_pid),
      DARWIN_CALL(task_threads),
      DARWIN_CALL(uuid_unparse),
      DARWIN_CALL(vm_deallocate),
      DARWIN_CALL(vm_region_recurse_64),
      place("mach_task_self_", &darwin::mach_task_self_),
      call("geteuid", &__wrap_geteuid),
      call("getpgid", &__wrap_getpgid),
      call("getuid", &__wrap_getuid),
      call("kill", &__wrap_kill),
      call("uname", &__wrap_uname),
      LOADER_VARIADIC(sandbox_check),
      LOADER_VARIADIC(syscall),
  };
  return table;
}

}  // namespace loader
