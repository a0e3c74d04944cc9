#include "text/safe_text.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>

#include "text/utf8.h"

namespace sondex {

// The screen may take it back while another thread traces.
static std::atomic<bool> utf8Allowed{true};

void allowUTF8(bool allowed) {
  utf8Allowed.store(allowed, std::memory_order_relaxed);
}

struct Range {
  uint32_t first;
  uint32_t last;
};

static const Range kUnsafe[] = {
    {0x00, 0x1F},
    {0x7F, 0x9F},  // they drive a terminal
    // Without width, or turning the direction of what follows: a name would pass for another one.
    {0x200B, 0x200F},
    {0x2028, 0x202E},
    {0x2060, 0x2069},
    {0xFEFF, 0xFEFF},
};

bool isUnsafe(uint32_t code) {
  for (const Range &range : kUnsafe) {
    if (code >= range.first && code <= range.last) return true;
  }
  return false;
}

// Length in bytes of the printable character that starts at `text`, 0 when there is none.
static size_t characterLength(const char *text, size_t available) {
  if (*text >= ' ' && *text <= '~') return 1;  // nearly all text
  uint32_t code = 0;
  const size_t length = decodeUTF8(text, available, &code);
  if (length > 1 && !utf8Allowed.load(std::memory_order_relaxed)) return 0;
  return isUnsafe(code) ? 0 : length;
}

char *makeSafe(char *to, size_t toSize, const char *from, size_t fromSize) {
  size_t written = 0;
  size_t i = 0;
  // No further than what is written, so that a long text can be taken piece by piece.
  while (i < fromSize && from[i] != '\0') {
    const size_t length = characterLength(from + i, fromSize - i);
    const size_t needed = length == 0 ? 1 : length;
    if (written + needed >= toSize) break;
    if (length > 1) {
      memcpy(to + written, from + i, length);
    } else {
      to[written] = length == 0 ? '?' : from[i];
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
