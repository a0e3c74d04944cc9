// Code-signing queries. Only the flags can be had: nothing here has a signature to hand out.
#include "darwin/code_signing.h"

#include <unistd.h>

#include "host/entry/answer.h"

namespace {

host::Errno status(pid_t pid, void *buffer, size_t size) {
  uint32_t flags = 0;
  const host::Errno error = host::machine().codeSigningFlags(pid == 0 ? getpid() : pid, flags);
  if (error != host::kAnswered) return error;
  if (size < sizeof flags) return darwin::DARWIN_ERANGE;
  return host::copyOut(&flags, sizeof flags, buffer);
}

}  // namespace

int darwin::csops(int pid, unsigned int operation, void *buffer, size_t size) {
  const host::Errno error = host::guarded([&]() -> host::Errno {
    return operation == CS_OPS_STATUS ? status(pid, buffer, size) : DARWIN_EINVAL;
  });
  return host::libraryAnswer(error, 0, -1);
}
