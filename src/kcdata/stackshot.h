// Stackshots: the kernel's snapshot of a process's threads.
#pragma once

#include <stddef.h>

#include <cstdint>

namespace sondex {

// Takes a stackshot of `pid`. Returns it, which stays as long as the program does, with its bytes
// in *size and *error 0. *error is what stackshot_capture_with_config() returned when that failed;
// null then, and where there is nothing to be had for all that.
const void *takeStackshot(int32_t pid, uint32_t *size, int *error);

// Takes a stackshot of `pid` and prints it; the other two go to parse_stackshot() as they are.
// Returns 0; failures are only reported.
int stackshot_wrapper(int32_t pid, uint32_t print_flags, uint32_t threads_only);

// The system call beneath: `command` is the version of the `size` bytes at `config`. Returns 0, or
// -1 with errno set. Nothing calls it yet.
int stack_snapshot_with_config(int command, void *config, size_t size);

}  // namespace sondex
