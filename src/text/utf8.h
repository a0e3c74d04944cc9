// Text in UTF-8, character by character, and the cells that it takes on a terminal.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace sondex {

// The length in bytes of the character that `text` begins with, of which at most `available` bytes
// are looked at, and its code in *code. 0 where no well-formed character begins.
size_t decodeUTF8(const char *text, size_t available, uint32_t *code);

// The cells of one character: 2 for a wide one, 0 for one that joins the one before it, else 1.
// What the locale does not know counts as 1.
int32_t cellsOfCharacter(uint32_t code);

// Measures the beginning of `text` (`length` bytes) that takes at most `most` cells, and ends
// between characters; a byte that belongs to none takes one cell. Returns its bytes; *cells becomes
// its cells.
size_t fitCells(const char *text, size_t length, int32_t most, int32_t *cells);

}  // namespace sondex
