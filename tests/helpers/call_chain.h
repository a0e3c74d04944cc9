// A thread that stands where the process knows it to stand.
#pragma once

#include <string>

#include "steps.h"

namespace helper {

// Does a step of this kind; false for another one.
bool blockInCallChain(const std::string &step, Words &words);

}  // namespace helper
