// Places in the tables of nstat/accounting.h for sources whose references are no small numbers: 64
// bits wide, and growing for as long as the connection lasts. The reader's alone.
#pragma once

#include <cstdint>

namespace sondex {

constexpr int kNoSourcePlace = -1;

// The place of a source; kNoSourcePlace for one that has none.
int findSourcePlace(uint64_t reference);

// The same, after giving one that has none the smallest that is free, with no owner and no bytes.
// kNoSourcePlace, said once on standard error, when all are taken.
int takeSourcePlace(uint64_t reference);

// Lets another source have the place. A source without one is ignored.
void freeSourcePlace(uint64_t reference);

// Frees all.
void freeSourcePlaces();

}  // namespace sondex
