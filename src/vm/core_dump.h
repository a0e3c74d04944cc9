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
// when there is no memory for the work, or the file can't be made or written, or (binary mode) the
// region can't be read; 1 when the binary mode can't open the executable.
int dumpCore(int32_t pid, darwin::mach_port_t task, int mode);

// Reads *size bytes of the task's memory at `address` into a buffer that the caller frees; *size
// becomes the bytes read, the rest of the buffer is zeros. On failure null, with *size 0 and a
// message on standard error.
void *readProcessMemory(darwin::mach_port_t task, uint64_t address, uint32_t *size);

// The load commands with the registers of the task's threads, in a buffer that the caller frees;
// *threadCount and *totalSize (bytes) say how much of it counts. A thread that is gone by then has
// zeros in its registers. Null, with both 0 and a message on standard error, when the threads can't
// be listed.
char *makeThreadCommands(darwin::mach_port_t task, uint32_t *threadCount, uint32_t *totalSize,
                         bool is32Bit);

// Not offered: says so on standard error and returns -1.
int writeProcessMemory(darwin::mach_port_t task, uint64_t address, const void *bytes,
                       uint32_t size);

// Lists nothing yet. `task` as in dumpCore(). Returns 0, or -5 without a task port.
int listImages(int32_t pid, darwin::mach_port_t task);

}  // namespace sondex
