#include "kcdata/stackshot.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include "darwin/errors.h"
#include "darwin/stackshot.h"
#include "darwin/syscalls.h"
#include "kcdata/parser.h"
#include "state/tracing.h"
#include "text/hex_dump.h"

namespace sondex {

// Always these, whatever is printed of it.
constexpr uint64_t kSnapshotFlags = 0x09092006;
static_assert(kSnapshotFlags ==
              (darwin::STACKSHOT_SAVE_LOADINFO | darwin::STACKSHOT_GET_GLOBAL_MEM_STATS |
               darwin::STACKSHOT_SAVE_IMP_DONATION_PIDS | darwin::STACKSHOT_KCDATA_FORMAT |
               darwin::STACKSHOT_COLLECT_SHAREDCACHE_LAYOUT | darwin::STACKSHOT_THREAD_WAITINFO |
               darwin::STACKSHOT_INSTRS_CYCLES));

static void reportFailure(int result) {
  switch (result) {
    case darwin::DARWIN_EPERM:
      errno = result;  // the library answers the number, and may have changed errno since
      perror("sswc");
      break;
    case darwin::DARWIN_EINVAL:
      fputs("sswc: Invalid argument\n", stderr);
      break;
    case darwin::DARWIN_EBUSY:
      fputs("sswc: BUSY\n", stderr);
      break;
    case darwin::DARWIN_ENOTSUP:
      fputs("sswc: NOTSUPP\n", stderr);
      break;
    case darwin::DARWIN_ETIMEDOUT:
      fputs("sswc: ETIMEDOUT\n", stderr);
      break;
    case darwin::DARWIN_ENOMEM:
      fputs("sswc: NOMEM\n", stderr);
      break;
    default:
      if (result < 0) perror("sswc");
      break;
  }
  printf("RC: %d\n", result);
}

const void *takeStackshot(int32_t pid, uint32_t *size, int *error) {
  // Kept: neither it nor the snapshot that it comes to hold is ever released.
  darwin::stackshot_config_t *config = darwin::stackshot_config_create();
  *size = 0;
  *error = darwin::DARWIN_ENOMEM;
  if (config != nullptr) {
    darwin::stackshot_config_set_flags(config, kSnapshotFlags);
    darwin::stackshot_config_set_pid(config, pid);
    *error = darwin::stackshot_capture_with_config(config);
  }
  if (*error != 0) return nullptr;
  const void *buffer = darwin::stackshot_config_get_stackshot_buffer(config);
  if (buffer != nullptr) *size = darwin::stackshot_config_get_stackshot_size(config);
  return buffer;
}

int stackshot_wrapper(int32_t pid, uint32_t print_flags, uint32_t threads_only) {
  uint32_t size = 0;
  int error = 0;
  const void *buffer = takeStackshot(pid, &size, &error);
  if (error != 0) {
    reportFailure(error);
    return 0;
  }
  if (buffer == nullptr) return 0;
  if (isTracing()) {
    hexDump(static_cast<const uint8_t *>(buffer),
            static_cast<int32_t>(std::min<uint32_t>(size, INT32_MAX)));
  }
  parse_stackshot(buffer, size, print_flags, threads_only);
  return 0;
}

int stack_snapshot_with_config(int command, void *config, size_t size) {
  return static_cast<int>(
      syscall(darwin::DARWIN_SYS_stack_snapshot_with_config, command, config, size));
}

}  // namespace sondex
