// The device's identity service. Its library is loaded at run time: not every system has it.
#pragma once

#include "darwin/core_foundation.h"

namespace darwin {

constexpr char kGestaltLibrary[] = "/usr/lib/libMobileGestalt.dylib";
constexpr char kGestaltEntryPoint[] = "MGCopyAnswerWithError";

// The answer to a key, released by the caller: mostly a text, but any object can be one. Null when
// the service refuses, with its number in `error`.
using MGCopyAnswerWithError_function = CFTypeRef (*)(CFStringRef key, int *error, ...);

}  // namespace darwin
