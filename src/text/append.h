// Puts texts together in a fixed buffer, piece by piece. What does not fit is cut off; the buffer
// always ends with a NUL.
#pragma once

#include <stddef.h>

namespace sondex {

// Appends a printf format and its arguments to the text in `text`, a buffer of `size` bytes (at
// least 1).
__attribute__((format(printf, 3, 4))) void append(char *text, size_t size, const char *format, ...);

// Appends what is in `from` (up to a NUL or `fromSize` bytes) made safe for a terminal, cut between
// characters.
void appendSafe(char *text, size_t size, const char *from, size_t fromSize);

}  // namespace sondex
