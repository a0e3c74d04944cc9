// Sandbox queries: whether a process is confined and where its container is, not what it may do.
#include "darwin/sandbox.h"

#include <string>

#include "host/darwin/errors.h"
#include "host/entry/answer.h"
#include "host/machine/confinement.h"

int darwin::sandbox_check(int pid, const char *operation, int type, ...) {
  if (operation != nullptr || type != 0) return host::libraryAnswer(DARWIN_EINVAL, 0, -1);
  int answer = -1;
  const host::Errno error = host::guarded([&]() -> host::Errno {
    answer = host::confinement().sandboxCheck(pid);
    return host::kAnswered;
  });
  return host::libraryAnswer(error, answer, -1);
}

int darwin::sandbox_container_path_for_pid(int pid, char *buffer, size_t size) {
  return host::guarded([&]() -> host::Errno {
    std::string path;
    const host::Errno error = host::confinement().containerPath(pid, path);
    if (error != host::kAnswered) return error;
    if (path.size() >= size) return DARWIN_ERANGE;
    return host::copyOut(path.c_str(), path.size() + 1, buffer);
  });
}
