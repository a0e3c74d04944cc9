// Sandbox queries: whether a process is confined, not what it may do.
#include "darwin/sandbox.h"

#include "host/entry/answer.h"

int darwin::sandbox_check(int pid, const char *operation, int type, ...) {
  if (operation != nullptr || type != 0) return host::libraryAnswer(DARWIN_EINVAL, 0, -1);
  int answer = -1;
  const host::Errno error = host::guarded([&]() -> host::Errno {
    answer = host::machine().sandboxCheck(pid);
    return host::kAnswered;
  });
  return host::libraryAnswer(error, answer, -1);
}

// No process here has a container.
int darwin::sandbox_container_path_for_pid(int, char *, size_t) {
  return DARWIN_ENOTSUP;
}
