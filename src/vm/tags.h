// Names for the numbers with which memory regions say who allocated them.
#pragma once

#include <stdint.h>

namespace sondex {

// The name of a region's tag: a constant text, or one in a buffer that the next call overwrites;
// empty for tag 0 of a process. `protection` are the region's current protection bits; `kernel` is
// not 0 for a region of the kernel's own map, where tags mean other things.
const char *tag_to_text(uint32_t tag, uint32_t protection, int kernel);

// Names a tag that the kernel gave out to one of its extensions, in a buffer that the next call
// overwrites. "?" when the platform does not list its extensions; it is asked once.
const char *getKextTag(uint32_t tag);

}  // namespace sondex
