// The steps of make_process that map memory at addresses that the test chooses, so that both sides
// know what stands where.
#pragma once

#include <string>

#include "steps.h"

namespace helper {

// Does the step if it is one of those.
bool mapMemoryAt(const std::string &step, Words &words);

// Maps and unmaps memory until standard input ends.
void mapAndUnmapUntilTheEnd();

}  // namespace helper
