// Writes a device file (docs/device-file.md), key by key, as it goes along. Nothing is held back:
// of a machine of any size only what the stream buffers is in memory.
// Nothing but its tests calls it yet.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

namespace sondex {

// What is written from here on goes to `to`, which stays the caller's: it closes it, and asks it
// for errors.
void beginDeviceFile(FILE *to);

// Begin the table `name`, the next entry of the array of tables `name`. No array or inline table is
// open then.
void writeTable(const char *name);
void writeEntry(const char *name);

// Each writes one value. `key` is its key, of letters, digits and "-"; or null for what is in an
// array.

// The text of `text` up to a NUL or `size` bytes. The file is in UTF-8: bytes that belong to no
// character of it become "?", one for each, as they do where they are shown.
void writeText(const char *key, const char *text, size_t size);
void writeNumber(const char *key, int64_t number);
void writeFlag(const char *key, bool flag);
// Of all 64 bits, as a text: a number of the file ends at 63.
void writeAddress(const char *key, uint64_t address);

// Open and close an array, and a table within the line. They may be within one another.
void beginArray(const char *key);
void endArray();
void beginInlineTable(const char *key);
void endInlineTable();

}  // namespace sondex
