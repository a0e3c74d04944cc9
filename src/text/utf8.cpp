#include "text/utf8.h"

#include <langinfo.h>
#include <string.h>
#include <wchar.h>

namespace sondex {

static bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

static bool isASCII(char byte) {
  return static_cast<unsigned char>(byte) < 0x80;
}

size_t decodeUTF8(const char *text, size_t available, uint32_t *code) {
  if (available == 0) return 0;
  const unsigned char *bytes = reinterpret_cast<const unsigned char *>(text);
  const unsigned char first = bytes[0];
  *code = first;
  if (first < 0x80) return 1;

  size_t length = 0;
  uint32_t smallest = 0;
  if (first >= 0xC2 && first <= 0xDF) {
    length = 2;
    *code = first & 0x1Fu;
    smallest = 0x80;
  } else if (first >= 0xE0 && first <= 0xEF) {
    length = 3;
    *code = first & 0x0Fu;
    smallest = 0x800;
  } else if (first >= 0xF0 && first <= 0xF4) {
    length = 4;
    *code = first & 0x07u;
    smallest = 0x10000;
  } else {
    return 0;
  }
  if (length > available) return 0;
  for (size_t i = 1; i < length; i++) {
    if (!isContinuation(bytes[i])) return 0;
    *code = *code << 6 | (bytes[i] & 0x3Fu);
  }
  const bool surrogate = *code >= 0xD800 && *code <= 0xDFFF;
  return *code >= smallest && *code <= 0x10FFFF && !surrogate ? length : 0;
}

bool isLocaleUTF8() {
  return strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

static int32_t cellsOfCharacter(uint32_t code) {
  const int cells = wcwidth(static_cast<wchar_t>(code));
  return cells < 0 ? 1 : cells;
}

size_t fitCells(const char *text, size_t length, int32_t most, int32_t *cells) {
  size_t bytes = 0;
  *cells = 0;
  while (bytes < length) {
    size_t size = 1;
    int32_t wanted = 1;
    // Nearly all text is ASCII.
    if (!isASCII(text[bytes])) {
      uint32_t code = 0;
      const size_t whole = decodeUTF8(text + bytes, length - bytes, &code);
      if (whole > 0) {
        size = whole;
        wanted = cellsOfCharacter(code);
      }
    }
    if (*cells + wanted > most) break;
    bytes += size;
    *cells += wanted;
  }
  return bytes;
}

}  // namespace sondex
