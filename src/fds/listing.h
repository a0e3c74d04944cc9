// The descriptors of a process.
#pragma once

#include <cstdint>

#include "darwin/proc_info.h"

namespace sondex {

constexpr int32_t kEveryType = 24;  // `mode` that lists descriptors of every type

// Lists the `count` descriptors `fds` of `pid`, whose short name is `name`: only those of type
// `mode` unless it is kEveryType; a line each when `detailed` is non-zero. Returns 0.
int showProcessFDs(int32_t pid, const darwin::proc_fdinfo *fds, int32_t count, int32_t mode,
                   int32_t detailed, const char *name);

}  // namespace sondex
