// Code-signing status of a process, as the kernel's csops call tells it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sondex {

// The answer of csFlagsToText for a process without a flag that has a text. Ends with a newline.
extern const char kNotSigned[];

// The status flags of `pid` that have a text, with commas between them; kNotSigned without any.
// "--" for PID 0; when the kernel doesn't say, a text that tells so. In a buffer that the next call
// overwrites. Nothing calls it yet.
const char *csFlagsToText(int32_t pid);

// The two-letter verdict: "AH" ad hoc, "OK" valid, "NO" neither, "--" for PID 0, "??" when the
// kernel doesn't say.
const char *isPidSigned(int32_t pid);

// Reads the signature of `pid` into `blob`, which holds *size bytes. Returns 0, or -1 with errno
// set: ERANGE when it doesn't fit (the second word then tells the length needed, big-endian).
// Nothing calls it yet.
int32_t getCSBlob(int32_t pid, void *blob, const size_t *size);

}  // namespace sondex
