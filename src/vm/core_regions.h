// The regions that a core holds: which a process has, and the load command of each.
#pragma once

#include <stdint.h>

#include "darwin/mach_host.h"
#include "darwin/macho.h"
#include "darwin/proc_info.h"

namespace sondex {

// A region begins on a page, and so does the first one's data in the file.
constexpr uint64_t kCorePage = 4096;

constexpr int kMostRegions = 4096;

struct RegionTable {
  darwin::proc_regionwithpathinfo *regions;  // on the heap
  int count;
  bool hasPager[kMostRegions];  // whose pages come from elsewhere, such as a file
};

// Lists the regions of a process, of which `task` is a task port, in ascending order: those that
// begin on a page, at most 4096, with a warning on standard error when there are more. The caller
// frees table->regions. False when there is no memory for the table.
bool listRegions(int32_t pid, darwin::mach_port_t task, RegionTable *table);

// Whether they are those of a 32-bit process.
bool areFor32Bit(const RegionTable *table);

// The bytes of the regions that are to be read.
uint64_t readableBytes(const RegionTable *table);

// The load command of a region, the `index`th of the core, of which `written` bytes stand at
// `offset` in the file. For a 32-bit core it names the narrower command, which narrowSegment()
// makes of it.
darwin::segment_command_64 makeSegment(const darwin::proc_regioninfo *region, int index,
                                       uint64_t offset, uint32_t written, bool is32Bit);

// The same in a command of 32 bits; what does not fit becomes the largest number.
darwin::segment_command narrowSegment(const darwin::segment_command_64 *wide);

}  // namespace sondex
