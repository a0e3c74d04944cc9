// Numbers that a user types: on the command line, or in answer to a prompt.
#pragma once

#include <stdint.h>

namespace sondex {

// The decimal number that `text` begins with, as the "%d" of scanf takes it, but saturating. False
// when there is none: *number stays.
bool parseNumber(const char *text, int32_t *number);

// The decimal number that `text`, but for blanks before it, is as a whole. False when it is
// anything else or does not fit: *number stays.
bool parseWholeNumber(const char *text, int32_t *number);

}  // namespace sondex
