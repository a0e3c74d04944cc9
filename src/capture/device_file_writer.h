// Writes a device file (docs/device-file.md) key by key, as it goes along: as TOML, or as the same
// tree in JSON. Nothing is held back: of a machine of any size only what the stream buffers is in
// memory. Keys are of letters, digits and "-"; those of what is in an array are null.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

namespace sondex {

enum class FileForm : uint8_t { kTOML, kJSON };

// In which form all is written, fragments too.
void useFileForm(FileForm form);

// What is written from here on goes to `to`, which stays the caller's: it closes it, and asks it
// for errors that come up then. endDeviceFile() closes what the form leaves open at the end.
void beginDeviceFile(FILE *to);
// The number of the first error with which something could not be written, fragments too; 0 while
// there is none.
int deviceFileError();
// Bytes of it up to now.
uint64_t deviceFileSize();
void endDeviceFile();

// Begin the table `name`; the next entry of the array of tables `name`; the next one of the array
// `name` in the table that is open. What was begun before ends, arrays and inline tables are closed
// by then.
void writeTable(const char *name);
void writeEntry(const char *name);
void writeEntryWithin(const char *name);

// What is written from here on goes to `to` until endFragment(): values of a table, which
// writeFragment() puts into the table that is open then. Its bytes are returned.
void beginFragment(FILE *to);
size_t endFragment();
// Of `size` bytes that `from` stands at. False when they can't be read.
bool writeFragment(FILE *from, size_t size);

// The text of `text` up to a NUL. The file is in UTF-8: bytes that belong to no character of it
// become "?", one for each, as they do where they are shown.
void writePlainText(const char *key, const char *text);
// A text of a process, up to a NUL or `size` bytes: what looks like a pattern stands for itself.
void writeText(const char *key, const char *text, size_t size);
void writeNumber(const char *key, int64_t number);
// The same, but for what the file takes for granted where the key is missing.
void writeUnless(const char *key, int64_t number, int64_t usual);
void writeFlag(const char *key, bool flag);
// Of all 64 bits, as a text: a number of the file ends at 63.
void writeAddress(const char *key, uint64_t address);
// A number, or that text where it is beyond one.
void writeWide(const char *key, uint64_t number);
// Bytes, with a unit where that says the same.
void writeSize(const char *key, uint64_t size);
// `number` divided by 10 to the power of `decimals`.
void writeDecimal(const char *key, int64_t number, int decimals);
// A time of day: seconds since 1970 and microseconds of the next.
void writeMoment(const char *key, int64_t seconds, int32_t microseconds);
// Raw bytes, in hexadecimal; piece by piece between the other two.
void beginBytes(const char *key);
void addBytes(const uint8_t *bytes, size_t size);
void endBytes();

struct FlagWord {
  const char *word;
  uint32_t bits;
};

// The words whose bits are all in `flags`, and what is left of it as a number.
void writeFlags(const char *key, uint32_t flags, const FlagWord *words, size_t count);
template <size_t count>
void writeFlags(const char *key, uint32_t flags, const FlagWord (&words)[count]) {
  writeFlags(key, flags, words, count);
}

// The word whose bits are `value`, else the number.
void writeWord(const char *key, uint32_t value, const FlagWord *words, size_t count);
template <size_t count>
void writeWord(const char *key, uint32_t value, const FlagWord (&words)[count]) {
  writeWord(key, value, words, count);
}

// Open and close an array, one with an element per line, and a table within the line. They may be
// within one another, the second kind only outermost.
void beginArray(const char *key);
void beginRows(const char *key);
void endArray();
void beginInlineTable(const char *key);
void endInlineTable();

}  // namespace sondex
