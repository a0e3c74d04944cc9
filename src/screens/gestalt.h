// The identity screen, and its answers for other screens.
#pragma once

#include <stddef.h>

namespace sondex {

// The keys that the screen asks for, in its order; null behind the last one.
const char *gestaltKeyAt(size_t index);

// Writes the answer to `key`, made safe for a terminal; "?" when there is none.
void outputGestaltAnswer(const char *key);

// Writes the identity screen. In full-screen mode it clears the screen and returns when a key
// leaves it. Ends the program with status 1 when start-up found no service.
void showGestalt();

}  // namespace sondex
