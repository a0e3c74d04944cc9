// The device's identity: what its Gestalt service answers to a key. The service is looked for at
// run time, as not every system has it.
#pragma once

#include <stdio.h>

#include <atomic>

#include "darwin/gestalt.h"

namespace sondex {

// The service's entry point; null until it was found.
extern std::atomic<darwin::MGCopyAnswerWithError_function> MGCopyAnswerWithError_func;

// Looks for the service's entry point. Null when there is none, which is said to `messages` unless
// that is null.
darwin::MGCopyAnswerWithError_function findGestalt(FILE *messages);

// The answer to one key as text, which stays valid and which the caller must not free: "?" when the
// service refuses the key, "?!" when the answer is no text. Null when there is no service, and for
// a text that the platform does not store as plain characters. Any thread may ask.
const char *gestaltAnswer(const char *key);

}  // namespace sondex
