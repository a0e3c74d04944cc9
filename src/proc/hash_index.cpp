#include "proc/hash_index.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <bit>

namespace sondex {

constexpr size_t kFewestSlots = 64;
constexpr size_t kMostKeys = INT32_MAX;  // as a place is no larger number

struct Slot {
  uint64_t key;
  int32_t place;  // kNoPlace in a free slot
};

struct HashIndex {
  size_t mask;  // slots - 1; their number is a power of two
  int shift;    // leaves as many bits of a hash as number the slots
  Slot slots[];
};

// The slot of `key`, or else the free one where it belongs. Neighbouring keys are spread over the
// table: the high bits of a product with the golden ratio depend on all bits of the key.
static size_t slotOf(const HashIndex *index, uint64_t key) {
  size_t slot = key * 0x9E3779B97F4A7C15u >> index->shift;
  while (index->slots[slot].place != kNoPlace && index->slots[slot].key != key) {
    slot = (slot + 1) & index->mask;
  }
  return slot;
}

HashIndex *makeHashIndex(size_t keys) {
  if (keys > kMostKeys) return nullptr;
  const size_t slots = std::bit_ceil(std::max(keys * 2, kFewestSlots));
  HashIndex *index = static_cast<HashIndex *>(malloc(sizeof(HashIndex) + slots * sizeof(Slot)));
  if (index == nullptr) return nullptr;
  index->mask = slots - 1;
  index->shift = std::countl_zero(index->mask);
  memset(index->slots, 0xFF, slots * sizeof(Slot));
  return index;
}

int32_t enterPlace(HashIndex *index, uint64_t key, int32_t place) {
  Slot *slot = &index->slots[slotOf(index, key)];
  if (slot->place == kNoPlace) *slot = {key, place};
  return slot->place;
}

int32_t placeOf(const HashIndex *index, uint64_t key) {
  return index->slots[slotOf(index, key)].place;
}

void releaseHashIndex(HashIndex *index) {
  free(index);
}

}  // namespace sondex
