// The device's identity: what its Gestalt service answers to a key, and the screen that shows it.
// The service is looked for at run time, as not every system has it.
#pragma once

#include <atomic>

#include "darwin/gestalt.h"

namespace sondex {

// The service's entry point; null until it was found.
extern std::atomic<darwin::MGCopyAnswerWithError_function> MGCopyAnswerWithError_func;

// The answer to one key as text, which stays valid and which the caller must not free: "?" when the
// service refuses the key, "?!" when the answer is no text. Null when there is no service, and for
// a text that the platform does not store as plain characters. Any thread may ask.
const char *gestaltAnswer(const char *key);

// Writes the answer to `key` as it may go to a terminal; "?" in place of null.
void outputGestaltAnswer(const char *key);

// Writes the identity screen. In full-screen mode it clears the screen and returns when a key
// leaves it. Ends the program with status 1 when start-up found no service.
void showGestalt();

}  // namespace sondex
