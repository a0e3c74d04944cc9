// The kinds of descriptors: what each is called, and what the kernel is asked about one.
#pragma once

#include <cstdint>

namespace sondex {

// A flavour of proc_pidfdinfo that no kernel knows: what is asked with it is refused.
constexpr int32_t kNexusFlavour = 11;

struct DescriptorKind {
  uint32_t type;     // PROX_FDTYPE_...
  const char *name;  // null: it has none
  int32_t flavour;   // of proc_pidfdinfo; 0: nothing is asked about it
  bool isSampled;    // a sample of its process asks too
};

// The kind with that type; null when there is none.
const DescriptorKind *findDescriptorKind(uint32_t type);

}  // namespace sondex
