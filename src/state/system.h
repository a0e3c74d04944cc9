// What start-up learns about the system once: rights, kernel generation, host port, optional entry
// points. Written before other threads start, read by everyone afterwards. No logic.
#pragma once

#include <cstdint>

#include "darwin/mach_host.h"
#include "darwin/mach_vm.h"
#include "darwin/memorystatus.h"
#include "darwin/rusage.h"

namespace sondex {

// Identification string for what(1).
extern const char ver[];

// The wake-up pipe: the refresh loop waits on [0], other threads write a byte to [1]. Zero until it
// is made.
extern int g_pipe[2];

extern int32_t g_gotGestalt;  // 1 when the Gestalt service answers
extern int32_t g_r00t;        // 1 when the effective user is root
extern int32_t g_isARM64;     // 1 when the kernel says that it runs on ARM64
extern int32_t g_OsVer;       // kernel generation, 0 when it is none of the known ones

extern darwin::mach_port_t host_self;  // host port; the privileged one for root
extern char *g_hostName;               // node name, on the heap; null until start-up asked

// Entry points that some releases lack; null there.
extern darwin::memorystatus_get_level_function memorystatus_get_level_funcptr;
extern darwin::proc_pid_rusage_function proc_pid_rusage_funcptr;
extern darwin::mach_vm_page_range_query_function mach_vm_page_range_query_funcptr;

}  // namespace sondex
