// Raw bytes as text, for traces.
#pragma once

#include <cstdint>

namespace sondex {

// Writes the `length` bytes of `buffer` in hexadecimal to standard error, eight in a line; a length
// below 1 gives an empty line. Returns 0.
int hexDump(const uint8_t *buffer, int32_t length);

}  // namespace sondex
