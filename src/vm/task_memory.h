// Another process's task: its port, and its memory by that.
#pragma once

#include <stdint.h>

#include "darwin/mach_host.h"

namespace sondex {

// What is returned for want of a task port.
constexpr int kNoTaskPort = -5;

// The task port of `pid`, to be given back with mach_port_deallocate(). Null, with a message on
// standard error, when it can't be had.
darwin::mach_port_t obtainTaskPort(int32_t pid);

// Copies `size` bytes of the task's memory at `address` to `to`. *copied becomes the bytes that are
// now there: at most `size`, none on failure. Returns the kernel's answer.
darwin::kern_return_t copyTaskMemory(darwin::mach_port_t task, uint64_t address, void *to,
                                     uint32_t size, uint32_t *copied);

// Says on standard error that those bytes can't be read, for that answer of the kernel's.
void reportUnreadMemory(uint64_t address, uint32_t size, darwin::kern_return_t answer);

// Reads *size bytes of the task's memory at `address` into a buffer that the caller frees; *size
// becomes the bytes read, the rest of the buffer is zeros. On failure null, with *size 0 and a
// message on standard error. Nothing calls it yet.
void *readProcessMemory(darwin::mach_port_t task, uint64_t address, uint32_t *size);

// Not offered: says so on standard error and returns -1. Nothing calls it yet.
int writeProcessMemory(darwin::mach_port_t task, uint64_t address, const void *bytes,
                       uint32_t size);

// Lists nothing yet. `task` is a task port, which stays the caller's, or 0 to obtain one. Returns
// 0, or kNoTaskPort. Nothing calls it yet.
int listImages(int32_t pid, darwin::mach_port_t task);

}  // namespace sondex
