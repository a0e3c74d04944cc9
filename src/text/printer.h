// Prints what is long and put together of small pieces: they go to standard output many at a time.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace sondex {

// What is printed and not handed over yet.
struct Printer {
  size_t length = 0;
  char text[16384];
};

// Pieces beside texts that end in a NUL, which are printed as they are, and decimal numbers.

// As hexadecimal digits, small ones, with nothing before them.
struct Hexadecimal {
  uint64_t value;
};

// The text in `text` (up to a NUL or `size` bytes) made safe for a terminal.
struct UnsafeText {
  const char *text;
  size_t size;
};

// One character so many times.
struct Repeated {
  char character;
  size_t count;
};

// Writes to standard output what is printed so far; an error is left to the stream to know.
void handOver(Printer &out);

// Prints `length` bytes as they are.
void printLong(Printer &out, const char *text, size_t length);
inline void printBytes(Printer &out, const char *text, size_t length) {
  if (length > sizeof out.text - out.length) return printLong(out, text, length);
  memcpy(out.text + out.length, text, length);
  out.length += length;
}

inline void printPiece(Printer &out, const char *text) {
  printBytes(out, text, strlen(text));
}
void printPiece(Printer &out, int64_t number);
void printPiece(Printer &out, Hexadecimal number);
void printPiece(Printer &out, UnsafeText text);
void printPiece(Printer &out, Repeated repeated);

// Prints pieces of any of these kinds one after the other. handOver() has to follow before anything
// else prints, and at the end.
template <typename... Pieces>
void print(Printer &out, const Pieces &...pieces) {
  (printPiece(out, pieces), ...);
}

}  // namespace sondex
