// Whether a process is confined, and where its container is.
#pragma once

#include <cstddef>

namespace darwin {

extern "C" {

// With a null operation and type 0: 1 when pid is sandboxed, 0 when not, negative on failure.
int sandbox_check(int pid, const char *operation, int type, ...);

// Writes the container's path with its NUL, at most size bytes. Returns 0; otherwise the buffer is
// untouched (ENOTSUP for a process without a container).
int sandbox_container_path_for_pid(int pid, char *buffer, size_t size);

}  // extern "C"

}  // namespace darwin
