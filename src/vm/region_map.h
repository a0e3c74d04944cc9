// The memory map of a process: one line of text per region. How a region's tag is named is not
// here.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "darwin/mach_host.h"

namespace sondex {

// One line per region of `pid`, in a buffer that the next call overwrites; empty for a process that
// can't be looked at. `task` is a task port, which stays the caller's, or 0 to look one up. What
// grows beyond 2 MiB goes through the output sink meanwhile; only the rest is returned, for the
// caller to print. Colours, where they are on, are for standard output: the text has none in
// full-screen mode. One caller at a time.
const char *showProcRegions(int32_t pid, darwin::mach_port_t task);

// Writes three letters for protection bits (1 "r", 2 "w", 4 "x"; "-" where one is not set) and a
// NUL. Nothing happens unless `out` is there and `size` is 4.
void protection_bits_to_rwx(uint32_t bits, char *out, size_t size);

// Three letters for the sharing mode of a region; "???" for a mode that is none.
const char *share_mode_to_text(uint32_t mode);

}  // namespace sondex
