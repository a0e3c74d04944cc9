// The descriptors of a process: how many there are, or a line for each.
#pragma once

#include <cstdint>

#include "darwin/proc_info.h"

namespace sondex {

constexpr int32_t kEveryType = 24;  // in place of a descriptor type: lists them all

// Lists the `count` descriptors `fds` of `pid`. When `detailed` is non-zero, a line for each that
// has the type `wantedType`, or for each at all with kEveryType; otherwise one line with how many
// files and sockets there are, whatever is wanted. `name` is the process's short name, 16 bytes
// unless a NUL ends it before. At most kFDSlots descriptors are looked at. A type that is not known
// closes the screen, which opens again with the next refresh. Returns 0.
int showProcessFDs(int32_t pid, const darwin::proc_fdinfo *fds, int32_t count, int32_t wantedType,
                   int32_t detailed, const char *name);

// Asks the kernel about descriptor `fd` of `pid` with that flavour of proc_pidfdinfo, and writes
// its line; when the kernel refuses, a line that says why. `unused` is not looked at. Returns what
// the last output returned.
int do_pidfdinfo(int32_t pid, int32_t fd, int32_t flavour, int32_t unused, const char *name);

// The word for a descriptor type; "?!?" for one that has none. Constant text. Nothing calls it yet.
const char *fdtype_to_txt(int32_t type);

}  // namespace sondex
