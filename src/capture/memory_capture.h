// The contents of a region in a device file.
#pragma once

#include "darwin/mach_host.h"
#include "darwin/proc_info.h"

namespace sondex {

// Whether there was more memory than a device file can hold: not all of it was written then.
bool isMemoryTooMuch();

// Writes the keys `pieces`, with what is not zeros, or `readable`, of a region of the task, whose
// port stays the caller's.
void writeContents(darwin::mach_port_t task, const darwin::proc_regioninfo *region);

}  // namespace sondex
