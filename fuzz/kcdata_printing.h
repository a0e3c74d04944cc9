// What the fuzzers of the parser of stackshots have in common.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "fuzz/printed.h"
#include "kcdata/iterator.h"
#include "kcdata/parser.h"

namespace fuzz {

inline void checkItems(const uint8_t *begin, const uint8_t *end) {
  sondex::kcdata_iter_t iter = sondex::kcdata_iter(begin, end);
  while (sondex::kcdata_iter_valid(iter)) {
    const sondex::kcdata_iter_t next = sondex::kcdata_iter_next(iter);
    check(next.item > iter.item && next.item <= end);
    iter = next;
  }
}

// Prints a buffer as the low bits of `how` say, and aborts where something is wrong.
inline void printChecked(const uint8_t *buffer, size_t size, uint8_t how) {
  checkItems(buffer, buffer + size);
  const Printed printed(stdout, sondex::kMostPrintedPerByte * size);
  sondex::parse_stackshot(buffer, size, how & 3u, how >> 2 & 1u);
}

}  // namespace fuzz
