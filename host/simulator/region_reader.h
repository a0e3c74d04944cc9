// The entries of `regions` in a device file.
#pragma once

#include <cstdint>

#include "host/simulator/device.h"
#include "host/simulator/process_entry.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

struct RegionEntry : Entry<Region> {
  uint64_t gap = 0;  // between copies
};

RegionEntry readRegion(const Field &field);

// Bytes of memory beyond the region itself.
size_t textBytes(const Region &region);

// Makes the items of the entries, by address. Refuses those that overlap.
void makeRegions(Items<RegionEntry> &regions);

}  // namespace host::simulator
