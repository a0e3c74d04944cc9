// Makes names and paths that come from other users' processes safe on their way to a terminal.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace sondex {

// Copies the text in `from` (up to a NUL or `fromSize` bytes) to `to` and terminates it. Control
// characters, DEL, characters that have no width of their own or turn the direction of text, and
// every byte of broken UTF-8 become "?"; so does each byte above 127 where UTF-8 is not allowed. A
// text longer than `toSize` - 1 bytes is cut between characters. `toSize` is at least 1. Returns
// `to`.
char *makeSafe(char *to, size_t toSize, const char *from, size_t fromSize);

// The same for a whole text of any length. Returns a heap copy that the caller frees; null when
// memory is short.
char *copySafe(const char *text);

// Whether who reads takes UTF-8; so it is unless told otherwise. Any thread.
void allowUTF8(bool allowed);

// Whether the character with that code would drive a terminal, has no width, or turns the direction
// of text. None is beyond the first 65,536.
bool isUnsafe(uint32_t code);

}  // namespace sondex
