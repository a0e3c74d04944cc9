// The device's identity, as its Gestalt service answers.
#pragma once

namespace sondex {

// The answer to one key as text, which the caller must not free; null when the service is not
// available.
const char *gestaltAnswer(const char *key);

// Writes the identity screen.
void showGestalt();

}  // namespace sondex
