#include "kcdata/type_names.h"

#include <string.h>

#include <charconv>
#include <iterator>

#include "darwin/kcdata.h"
#include "darwin/stackshot.h"

namespace sondex {

struct TypeName {
  uint32_t type;
  const char *name;
};

static const TypeName kTypeNames[] = {
    {1, "STRING_DESC"},
    {2, "UINT32_DESC"},
    {3, "UINT64_DESC"},
    {4, "INT32_DESC"},
    {5, "INT64_DESC"},
    {6, "BINDATA_DESC"},
    {17, "ARRAY"},
    {19, "CONTAINER_BEGIN"},
    {20, "CONTAINER_END"},
    {48, "LIBRARY_LOADINFO"},
    {49, "LIBRARY_LOADINFO64"},
    {50, "TIMEBASE"},
    {51, "MACH_ABSOLUTE_TIME"},
    {53, "USECS_SINCE_EPOCH"},
    {54, "PID"},
    {55, "PROCNAME"},
    {56, "NESTED_KCDATA"},
    {57, "LIBRARY_AOT_INFO"},
    {2305, "_IOSTATS"},
    {2306, "_GLOBAL_MEM_STATS"},
    {2307, "STACKSHOT_KCCONTAINER_TASK"},
    {2308, "STACKSHOT_KCCONTAINER_THREAD"},
    {2309, "_TASK_SNAPSHOT"},
    {2310, "_THREAD_SNAPSHOT"},
    {2311, "_DONATING_PIDS"},
    {2312, "_SHAREDCACHE_LOADINFO"},
    {2313, "_THREAD_NAME"},
    {2314, "_KERN_STACKFRAME"},
    {2315, "_KERN_STACKFRAME64"},
    {2316, "_USER_STACKFRAME"},
    {2317, "_USER_STACKFRAME64"},
    {2318, "_BOOTARGS"},
    {2319, "_OSVERSION"},
    {2320, "_KERN_PAGE_SIZE"},
    {2321, "_JETSAM_LEVEL"},
    {2322, "_DELTA_SINCE_TIMESTAMP"},
    {2323, "_KERN_STACKLR"},
    {2324, "_KERN_STACKLR64"},
    {2325, "_USER_STACKLR"},
    {2326, "_USER_STACKLR64"},
    {2327, "_NONRUNNABLE_TIDS"},
    {2328, "_NONRUNNABLE_TASKS"},
    {2329, "_CPU_TIMES"},
    {2330, "_STACKSHOT_DURATION"},
    {2331, "_STACKSHOT_FAULT_STATS"},
    {2332, "_KERNELCACHE_LOADINFO"},
    {2333, "_THREAD_WAITINFO"},
    {2334, "_THREAD_GROUP_SNAPSHOT"},
    {2335, "_THREAD_GROUP"},
    {2336, "_JETSAM_COALITION_SNAPSHOT"},
    {2337, "_JETSAM_COALITION"},
    {2338, "_THREAD_POLICY_VERSION"},
    {2339, "_INSTRS_CYCLES"},
    {2340, "_USER_STACKTOP"},
    {2341, "_ASID"},
    {2342, "_PAGE_TABLES"},
    {2343, "_SYS_SHAREDCACHE_LAYOUT"},
    {2344, "_THREAD_DISPATCH_QUEUE_LABEL"},
    {2345, "_THREAD_TURNSTILEINFO"},
    {2346, "_TASK_CPU_ARCHITECTURE"},
    {2347, "_LATENCY_INFO"},
    {2348, "_LATENCY_INFO_TASK"},
    {2349, "_LATENCY_INFO_THREAD"},
    {2350, "_LOADINFO64_TEXT_EXEC"},
    {2351, "_AOTCACHE_LOADINFO"},
    {2352, "_TRANSITIONING_TASK_SNAPSHOT"},
    {2353, "STACKSHOT_KCCONTAINER_TRANSITIONING_TASK"},
    {2354, "_USER_ASYNC_START_INDEX"},
    {2355, "_USER_ASYNC_STACKLR64"},
    {2356, "STACKSHOT_KCCONTAINER_PORTLABEL"},
    {2357, "_PORTLABEL"},
    {2358, "_PORTLABEL_NAME"},
    {2359, "_DYLD_COMPACTINFO"},
    {2360, "_SUSPENSION_INFO"},
    {2361, "_SUSPENSION_SOURCE"},
    {2368, "_TASK_DELTA_SNAPSHOT"},
    {2369, "_THREAD_DELTA_SNAPSHOT"},
    {2370, "STACKSHOT_KCCONTAINER_SHAREDCACHE"},
    {2371, "_SHAREDCACHE_INFO"},
    {2372, "_SHAREDCACHE_AOTINFO"},
    {2373, "_SHAREDCACHE_ID"},
    {2374, "_CODESIGNING_INFO"},
    {2375, "_OS_BUILD_VERSION"},
};

static const char *nameOf(uint32_t type) {
  for (const TypeName &row : kTypeNames) {
    if (row.type == type) return row.name;
  }
  return "UNKNOWN\n";
}

// Kept: these names stand alone, without a blank and a number.
static bool isBare(uint32_t type) {
  return type == darwin::STACKSHOT_KCTYPE_IOSTATS ||
         type == darwin::STACKSHOT_KCTYPE_GLOBAL_MEM_STATS ||
         (type >= darwin::STACKSHOT_KCTYPE_SHAREDCACHE_LOADINFO &&
          type <= darwin::STACKSHOT_KCTYPE_OSVERSION);
}

// The shorter name of a type that has one, else its own.
static const char *compactNameOf(uint32_t type) {
  switch (type) {
    case darwin::KCDATA_TYPE_CONTAINER_BEGIN:
    case darwin::KCDATA_TYPE_CONTAINER_END:
      return "";
    case darwin::STACKSHOT_KCTYPE_THREAD_NAME:
      return "Name: ";
    default:
      return nameOf(type);
  }
}

const char *kcdata_type_to_text(uint32_t type, uint32_t print_flags) {
  static char text[80];
  const char *name = (print_flags & kPrintCompact) != 0 ? compactNameOf(type) : nameOf(type);
  const size_t length = strlen(name);
  memcpy(text, name, length);
  char *end = text + length;
  if (!isBare(type)) {
    *end++ = ' ';
    if ((print_flags & kPrintNumbers) != 0) {
      memcpy(end, "(0x", 3);
      end = std::to_chars(end + 3, std::end(text), type, 16).ptr;
      *end++ = ')';
    }
  }
  *end = '\0';
  return text;
}

}  // namespace sondex
