// What the fuzzers of the parser of stackshots have in common.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "kcdata/iterator.h"
#include "kcdata/parser.h"

namespace fuzz {

// How much may still be printed.
inline size_t g_room = 0;

// What is printed must be fit for a terminal, and no longer than the parser says.
inline ssize_t checkPrinted(void *, const char *text, size_t size) {
  if (size > g_room) std::abort();
  g_room -= size;
  for (size_t i = 0; i < size; i++) {
    const unsigned char byte = static_cast<unsigned char>(text[i]);
    if ((byte < ' ' && byte != '\n' && byte != '\t') || byte == 0x7F) std::abort();
  }
  return static_cast<ssize_t>(size);
}

inline void checkItems(const uint8_t *begin, const uint8_t *end) {
  sondex::kcdata_iter_t iter = sondex::kcdata_iter(begin, end);
  while (sondex::kcdata_iter_valid(iter)) {
    const sondex::kcdata_iter_t next = sondex::kcdata_iter_next(iter);
    if (next.item <= iter.item || next.item > end) std::abort();
    iter = next;
  }
}

// Prints a buffer as the low bits of `how` say, and aborts where something is wrong.
inline void printChecked(const uint8_t *buffer, size_t size, uint8_t how) {
  checkItems(buffer, buffer + size);
  std::FILE *const terminal = stdout;
  stdout = fopencookie(nullptr, "w", {nullptr, checkPrinted, nullptr, nullptr});
  if (stdout != nullptr) {
    g_room = sondex::kMostPrintedPerByte * size;
    sondex::parse_stackshot(buffer, size, how & 3u, how >> 2 & 1u);
    std::fclose(stdout);
  }
  stdout = terminal;
}

}  // namespace fuzz
