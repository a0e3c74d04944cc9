#include "text/printer.h"

#include <stdio.h>

#include <algorithm>
#include <charconv>

#include "text/safe_text.h"

namespace sondex {

// As much as the longest number takes, and the longest character with a NUL behind it.
constexpr size_t kSmallPiece = 32;

void handOver(Printer &out) {
  fwrite(out.text, 1, out.length, stdout);
  out.length = 0;
}

// Where the next piece goes, which has at least kSmallPiece bytes there.
static char *roomIn(Printer &out) {
  if (sizeof out.text - out.length < kSmallPiece) handOver(out);
  return out.text + out.length;
}

void printLong(Printer &out, const char *text, size_t length) {
  while (length > 0) {
    char *to = roomIn(out);
    const size_t fitting = std::min(length, sizeof out.text - out.length);
    memcpy(to, text, fitting);
    out.length += fitting;
    text += fitting;
    length -= fitting;
  }
}

template <typename Number>
static void printNumber(Printer &out, Number number, int base) {
  char *const to = roomIn(out);
  out.length += static_cast<size_t>(std::to_chars(to, to + kSmallPiece, number, base).ptr - to);
}

void printPiece(Printer &out, int64_t number) {
  printNumber(out, number, 10);
}

void printPiece(Printer &out, Hexadecimal number) {
  printNumber(out, number.value, 16);
}

void printPiece(Printer &out, UnsafeText text) {
  size_t done = 0;
  while (done < text.size && text.text[done] != '\0') {
    char *to = roomIn(out);
    makeSafe(to, sizeof out.text - out.length, text.text + done, text.size - done);
    const size_t fitting = strlen(to);  // a text made safe keeps its length
    out.length += fitting;
    done += fitting;
  }
}

void printPiece(Printer &out, Repeated repeated) {
  while (repeated.count > 0) {
    char *to = roomIn(out);
    const size_t fitting = std::min(repeated.count, sizeof out.text - out.length);
    memset(to, repeated.character, fitting);
    out.length += fitting;
    repeated.count -= fitting;
  }
}

}  // namespace sondex
