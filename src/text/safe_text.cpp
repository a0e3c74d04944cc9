#include "text/safe_text.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace sondex {

static bool utf8Allowed = true;

void allowUTF8(bool allowed) {
  utf8Allowed = allowed;
}

static bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// Length in bytes of the printable character that starts at `text`, 0 when there is none.
static size_t characterLength(const unsigned char *text, size_t available) {
  const unsigned char first = text[0];
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  if (!utf8Allowed) return 0;

  size_t length = 0;
  uint32_t code = 0;
  uint32_t smallest = 0;
  if (first >= 0xC2 && first <= 0xDF) {
    length = 2;
    code = first & 0x1Fu;
    smallest = 0xA0;  // below it stand the C1 controls, which drive a terminal as well
  } else if (first >= 0xE0 && first <= 0xEF) {
    length = 3;
    code = first & 0x0Fu;
    smallest = 0x800;
  } else if (first >= 0xF0 && first <= 0xF4) {
    length = 4;
    code = first & 0x07u;
    smallest = 0x10000;
  } else {
    return 0;
  }
  if (length > available) return 0;
  for (size_t i = 1; i < length; i++) {
    if (!isContinuation(text[i])) return 0;
    code = code << 6 | (text[i] & 0x3Fu);
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code >= smallest && code <= 0x10FFFF && !surrogate ? length : 0;
}

char *makeSafe(char *to, size_t toSize, const char *from, size_t fromSize) {
  const size_t end = strnlen(from, fromSize);
  const unsigned char *bytes = reinterpret_cast<const unsigned char *>(from);
  size_t written = 0;
  size_t i = 0;
  while (i < end) {
    const size_t length = characterLength(bytes + i, end - i);
    const size_t needed = length == 0 ? 1 : length;
    if (written + needed >= toSize) break;
    if (length == 0) {
      to[written] = '?';
    } else {
      memcpy(to + written, from + i, length);
    }
    written += needed;
    i += needed;
  }
  to[written] = '\0';
  return to;
}

char *copySafe(const char *text) {
  const size_t size = strlen(text) + 1;  // a character never grows
  char *copy = static_cast<char *>(malloc(size));
  return copy == nullptr ? nullptr : makeSafe(copy, size, text, size);
}

}  // namespace sondex
