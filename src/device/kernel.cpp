#include "device/kernel.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "state/display.h"
#include "state/system.h"

namespace sondex {

struct KernelGeneration {
  const char *build;
  int32_t osVersion;
  int32_t compression;
};

// The first that occurs in the version text decides: the order is part of the table. Builds of five
// digits match none.
static const KernelGeneration kGenerations[] = {
    {"xnu-24", 9, 1},  {"xnu-20", 8, 0},  {"xnu-27", 10, 1}, {"xnu-32", 11, 1},
    {"xnu-37", 12, 1}, {"xnu-45", 13, 1}, {"xnu-49", 14, 1}, {"xnu-6", 15, 1},
};

void noteKernelVersion(const char *version) {
  if (strstr(version, "ARM64") != nullptr) g_isARM64++;
  for (const KernelGeneration &generation : kGenerations) {
    if (strstr(version, generation.build) == nullptr) continue;
    g_OsVer = generation.osVersion;
    store(g_Compression, generation.compression);
    return;
  }
}

// The name is looked up because some releases lack the call; a missing one stays null.
template <typename Function>
static Function optionalEntryPoint(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

void probeRights() {
  host_self = darwin::mach_host_self();
  g_r00t = geteuid() == 0 ? 1 : 0;
  memorystatus_get_level_funcptr =
      optionalEntryPoint<darwin::memorystatus_get_level_function>("memorystatus_get_level");
  proc_pid_rusage_funcptr = optionalEntryPoint<darwin::proc_pid_rusage_function>("proc_pid_rusage");
  mach_vm_page_range_query_funcptr =
      optionalEntryPoint<darwin::mach_vm_page_range_query_function>("mach_vm_page_range_query");
}

const char *probeKernel() {
  static utsname names;
  if (uname(&names) != 0) {
    perror("uname");
    return nullptr;
  }
  g_hostName = strdup(names.nodename);
  noteKernelVersion(names.version);
  return names.version;
}

}  // namespace sondex
