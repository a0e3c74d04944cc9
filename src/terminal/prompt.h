// A question on the bottom row of the screen, and its answer.
#pragma once

namespace sondex {

constexpr int kPromptSize = 80;

// Asks `prompt` (not null) on the bottom row and reads keys up to Enter into a buffer of
// kPromptSize bytes, which is returned and which the next prompt overwrites. Of longer answers the
// first 79 keys count; there is no line editing. The answer is empty when there is no screen, when
// the program is to end, or when the terminal gives no more keys. The calling thread is the one
// that draws.
char *promptForInput(const char *prompt);

}  // namespace sondex
