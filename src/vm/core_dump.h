// Core files of live processes: their memory and the registers of their threads, in the form that
// debuggers read. The process goes on running meanwhile.
#pragma once

#include <stdint.h>

#include "darwin/mach_host.h"

namespace sondex {

constexpr int kMiniCore = 0;
constexpr int kFullCore = 1;
constexpr int kBinaryCore = 255;

// Writes the memory of `pid` to /tmp/core.PID (the first two modes, which do the same), or only its
// first region to /tmp/CORE (the third). `task` is a task port, which stays the caller's, or 0 to
// obtain one. Messages go to standard error. A file that could not be written whole is removed;
// what belongs to somebody else under its name is left alone. Returns 0; -5 without a task port; -1
// with errno when there is no memory for the work, or the file can't be made or written, or the
// program is to end, or (binary mode) the region can't be read; 1 when the binary mode can't open
// the executable.
int dumpCore(int32_t pid, darwin::mach_port_t task, int mode);

}  // namespace sondex
