// Texts of the machine that are somebody's own: written as they are, or as stand-ins.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace sondex {

// From now on stand-ins are written: the same one for the same text, of the same length and kind.
void useStandIns();

// Each writes a text up to a NUL or `size` bytes under its key, or in an array with null.

// Of a process: a path, below which a home folder's user and files are somebody's own.
void writePath(const char *key, const char *path, size_t size);
// Of a process: what it was started with, where paths are as above and all else somebody's own.
void writeArgument(const char *key, const char *text, size_t size);
// A name of a machine or a network, a number or a text that names a device, letter by letter.
void writeName(const char *key, const char *text, size_t size);
// The same for an address in hexadecimal with colons.
void writeHardwareAddress(const char *key, const char *text, size_t size);

// The stand-in of an Internet address of `size` bytes, 4 or 16, in its place.
void hideAddress(uint8_t *address, size_t size);

}  // namespace sondex
