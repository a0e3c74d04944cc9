#include "state/system.h"

namespace sondex {

__attribute__((used)) const char ver[] = "@(#) PROJECT: ravel\tPROGRAM: sondex 2 (TLV)";

int g_pipe[2] = {0, 0};

int32_t g_gotGestalt = 0;
int32_t g_r00t = 0;
int32_t g_isARM64 = 0;
int32_t g_OsVer = 0;

darwin::mach_port_t host_self = 0;
char *g_hostName = nullptr;

darwin::memorystatus_get_level_function memorystatus_get_level_funcptr = nullptr;
darwin::proc_pid_rusage_function proc_pid_rusage_funcptr = nullptr;
darwin::mach_vm_page_range_query_function mach_vm_page_range_query_funcptr = nullptr;

}  // namespace sondex
