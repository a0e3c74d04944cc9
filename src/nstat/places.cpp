#include "nstat/places.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "nstat/accounting.h"

namespace sondex {

// The table's last place is not summed.
constexpr int kPlaces = kLastSource;

struct PlacedSource {
  uint64_t reference;
  int place;
};

// Ascending by reference: a new source, which has the highest, goes to the end.
static PlacedSource placed[kPlaces];
static int placedCount = 0;
static bool isTaken[kPlaces];
static bool overflowIsSaid = false;

static PlacedSource *lowerBound(uint64_t reference) {
  return std::lower_bound(
      placed, placed + placedCount, reference,
      [](const PlacedSource &source, uint64_t wanted) { return source.reference < wanted; });
}

static bool isOf(const PlacedSource *source, uint64_t reference) {
  return source != placed + placedCount && source->reference == reference;
}

int findSourcePlace(uint64_t reference) {
  const PlacedSource *source = lowerBound(reference);
  return isOf(source, reference) ? source->place : kNoSourcePlace;
}

static void sayOverflow() {
  if (overflowIsSaid) return;
  overflowIsSaid = true;
  fprintf(stderr, "More than %d network sources: the bytes of the others are not counted\n",
          kPlaces);
}

int takeSourcePlace(uint64_t reference) {
  PlacedSource *source = lowerBound(reference);
  if (isOf(source, reference)) return source->place;
  if (placedCount == kPlaces) {
    sayOverflow();
    return kNoSourcePlace;
  }
  int place = 0;
  while (isTaken[place]) place++;
  isTaken[place] = true;
  std::move_backward(source, placed + placedCount, placed + placedCount + 1);
  *source = {reference, place};
  placedCount++;
  store(process_pid_info[place], 0);
  store(process_ntstat_info[place].received, 0);
  store(process_ntstat_info[place].sent, 0);
  return place;
}

void freeSourcePlace(uint64_t reference) {
  PlacedSource *source = lowerBound(reference);
  if (!isOf(source, reference)) return;
  isTaken[source->place] = false;
  std::move(source + 1, placed + placedCount, source);
  placedCount--;
}

void freeSourcePlaces() {
  placedCount = 0;
  std::fill(isTaken, isTaken + kPlaces, false);
  overflowIsSaid = false;
}

}  // namespace sondex
