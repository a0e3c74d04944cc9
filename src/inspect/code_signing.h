// Code-signing status of a process, as the kernel's csops call tells it.
#pragma once

#include <cstdint>

namespace sondex {

// The two-letter verdict: "AH" ad hoc, "OK" valid, "NO" neither, "--" for PID 0, "??" when the
// kernel doesn't say.
const char *isPidSigned(int32_t pid);

}  // namespace sondex
