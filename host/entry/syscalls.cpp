// The raw system calls: takes each number's arguments off the caller's list with the types that the
// number has, and calls what answers it.
#include "host/darwin/syscalls.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <limits>

#include "darwin/code_signing.h"
#include "host/darwin/errors.h"
#include "host/entry/answer.h"
#include "host/entry/kernel.h"
#include "host/machine/memory_status.h"
#include "host/machine/processes.h"

namespace {

using host::libraryAnswer;

int procInfo(va_list arguments) {
  const int32_t call = va_arg(arguments, int32_t);
  const int32_t pid = va_arg(arguments, int32_t);
  const uint32_t flavor = va_arg(arguments, uint32_t);
  const uint64_t arg = va_arg(arguments, uint64_t);
  void *buffer = va_arg(arguments, void *);
  const int32_t size = va_arg(arguments, int32_t);
  int result = 0;
  const host::Errno error = host::procInfo(call, pid, flavor, arg, buffer, size, result);
  return libraryAnswer(error, result, -1);
}

int memorystatusControl(va_list arguments) {
  const uint32_t command = va_arg(arguments, uint32_t);
  const int32_t pid = va_arg(arguments, int32_t);
  const uint32_t flags = va_arg(arguments, uint32_t);
  void *buffer = va_arg(arguments, void *);
  const size_t size = va_arg(arguments, size_t);
  int result = 0;
  const host::Errno error = host::memorystatusControl(command, pid, flags, buffer, size, result);
  return libraryAnswer(error, result, -1);
}

int codeSigning(va_list arguments) {
  const int32_t pid = va_arg(arguments, int32_t);
  const uint32_t operation = va_arg(arguments, uint32_t);
  void *buffer = va_arg(arguments, void *);
  const size_t size = va_arg(arguments, size_t);
  return darwin::csops(pid, operation, buffer, size);
}

// Of the policies only the state of an application can be had, and not of every machine.
host::Errno applicationState(int scope, int action, int policy, int subtype, void *attribute,
                             pid_t pid) {
  const bool isScope =
      scope == darwin::PROC_POLICY_SCOPE_PROCESS || scope == darwin::PROC_POLICY_SCOPE_THREAD;
  const bool isPolicy =
      policy == darwin::PROC_POLICY_APP_LIFECYCLE || policy == darwin::PROC_POLICY_APPTYPE;
  if (!isScope || !isPolicy) return darwin::DARWIN_EINVAL;
  if (scope != darwin::PROC_POLICY_SCOPE_PROCESS || action != darwin::PROC_POLICY_ACTION_GET ||
      policy != darwin::PROC_POLICY_APP_LIFECYCLE || subtype != darwin::PROC_POLICY_APPLIFE_STATE) {
    return darwin::DARWIN_ENOTSUP;
  }
  int32_t state = darwin::PROC_APPSTATE_NONE;
  const host::Errno error = host::processes().applicationState(pid == 0 ? getpid() : pid, state);
  return error == host::kAnswered ? host::copyOut(&state, sizeof state, attribute) : error;
}

// A null address for the reclaimed pages is as good as any: they are then not asked for.
host::Errno memoryPressure(bool waits, uint32_t seconds, uint32_t *reclaimed, int &wanted) {
  uint32_t pagesWanted = 0;
  uint32_t pagesReclaimed = 0;
  const host::Errno error =
      host::memoryStatus().memoryPressure(waits, seconds, pagesWanted, pagesReclaimed);
  if (error != host::kAnswered) return error;
  if (reclaimed != nullptr) *reclaimed = pagesReclaimed;
  wanted = static_cast<int>(std::min<uint32_t>(pagesWanted, std::numeric_limits<int>::max()));
  return host::kAnswered;
}

int pressureMonitor(va_list arguments) {
  const int waits = va_arg(arguments, int);
  const uint32_t seconds = va_arg(arguments, uint32_t);
  uint32_t *reclaimed = va_arg(arguments, uint32_t *);
  int wanted = 0;
  const host::Errno error =
      host::guarded([&] { return memoryPressure(waits != 0, seconds, reclaimed, wanted); });
  return libraryAnswer(error, wanted, -1);
}

int processPolicy(va_list arguments) {
  const int scope = va_arg(arguments, int);
  const int action = va_arg(arguments, int);
  const int policy = va_arg(arguments, int);
  const int subtype = va_arg(arguments, int);
  void *attribute = va_arg(arguments, void *);
  const int32_t pid = va_arg(arguments, int32_t);
  const host::Errno error = host::guarded(
      [&] { return applicationState(scope, action, policy, subtype, attribute, pid); });
  return libraryAnswer(error, 0, -1);
}

int stackSnapshot(va_list arguments) {
  const int version = va_arg(arguments, int);
  const void *config = va_arg(arguments, const void *);
  const size_t size = va_arg(arguments, size_t);
  return libraryAnswer(host::stackSnapshot(version, config, size), 0, -1);
}

int noSuchCall() {
  return libraryAnswer(darwin::DARWIN_ENOSYS, 0, -1);
}

int dispatch(long number, va_list arguments) {
  switch (number) {
    case darwin::DARWIN_SYS_csops:
      return codeSigning(arguments);
    case darwin::DARWIN_SYS_vm_pressure_monitor:
      return pressureMonitor(arguments);
    case darwin::DARWIN_SYS_process_policy:
      return processPolicy(arguments);
    case darwin::DARWIN_SYS_proc_info:
      return procInfo(arguments);
    case darwin::DARWIN_SYS_memorystatus_control:
      return memorystatusControl(arguments);
    case darwin::DARWIN_SYS_memorystatus_get_level:
      return memorystatus_get_level(va_arg(arguments, unsigned int *));
    case darwin::DARWIN_SYS_stack_snapshot_with_config:
      return stackSnapshot(arguments);
    default:
      return noSuchCall();
  }
}

}  // namespace

extern "C" long __wrap_syscall(long number, ...) noexcept {
  va_list arguments;
  va_start(arguments, number);
  const int result = dispatch(number, arguments);
  va_end(arguments);
  return result;
}
