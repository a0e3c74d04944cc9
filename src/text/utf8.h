// Text in UTF-8, character by character, and the cells that it takes on a terminal.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace sondex {

// The length in bytes of the character that `text` begins with, of which at most `available` bytes
// are looked at, and its code in *code. 0 where no well-formed character begins.
size_t decodeUTF8(const char *text, size_t available, uint32_t *code);

// Whether the locale's characters are in UTF-8.
bool isLocaleUTF8();

// Measures the beginning of `text` (`length` bytes) that takes at most `most` cells, and ends
// between characters: a wide one takes two cells, one that joins the one before it none, and what
// the locale does not know one, as a byte does that belongs to no character. Returns its bytes;
// *cells becomes its cells.
size_t fitCells(const char *text, size_t length, int32_t most, int32_t *cells);

}  // namespace sondex
