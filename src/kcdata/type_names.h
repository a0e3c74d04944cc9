// Names of the types of chunked data.
#pragma once

#include <stdint.h>

namespace sondex {

// Bits of print_flags.
constexpr uint32_t kPrintCompact = 1;  // shorter names of a few types
constexpr uint32_t kPrintNumbers = 2;  // offsets, depths and type numbers

// The name of an item's type, in a static buffer that the next call overwrites. Most names end in
// a blank, and in the number with kPrintNumbers. Never null.
const char *kcdata_type_to_text(uint32_t type, uint32_t print_flags);

}  // namespace sondex
