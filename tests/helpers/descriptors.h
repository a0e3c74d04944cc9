// The steps of make_process that open descriptors.
#pragma once

#include <string>

#include "steps.h"

namespace helper {

// Does the step if it is one of those. Each of them takes the lowest free descriptor numbers.
bool openDescriptor(const std::string &step, Words &words, State &state);

// Opens and closes descriptors of all kinds until standard input ends.
void openAndCloseUntilTheEnd();

}  // namespace helper
