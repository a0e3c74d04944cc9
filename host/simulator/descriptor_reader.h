// The entries of `descriptors` in a device file. Who their peers are and what their patterns stand
// for is decided where their process is known (process_maker.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/simulator/device.h"
#include "host/simulator/loading.h"
#include "host/simulator/process_entry.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

// soi_state of a socket that has a peer.
inline constexpr int32_t kSocketConnected = 0x2;

struct DescriptorEntry : Entry<Descriptor> {  // its `number` as it was given, else -1
  Place numberPlace;                          // where there is a number
  Label label;
  Label peer;
};

// A descriptor that an event opens is no part of a process yet: it has no copies, and its texts no
// patterns.
DescriptorEntry readDescriptor(const Field &field, bool isPartOfProcess);

// Bytes of memory beyond the descriptor itself.
size_t textBytes(const Descriptor &descriptor);

// Makes the items of the entries: those with a number have it whatever comes before them, the
// others get the lowest that is free.
void makeDescriptors(Items<DescriptorEntry> &descriptors);

}  // namespace host::simulator
