// An index from numbers to the places where things stand: a hash table with open addressing, linear
// probing and Fibonacci hashing, at most half full. Once filled, any number of threads may look
// into it.
#pragma once

#include <stddef.h>

#include <cstdint>

namespace sondex {

struct HashIndex;

constexpr int32_t kNoPlace = -1;

// An empty index for as many different keys. Null when there is no memory for it. The caller owns
// it until releaseHashIndex().
HashIndex *makeHashIndex(size_t keys);

// Enters `place` (0 or more) under a key that has none yet: the first one wins. Returns the key's
// place. The caller enters no more different keys than the index is made for.
int32_t enterPlace(HashIndex *index, uint64_t key, int32_t place);

// The place entered under `key`; kNoPlace when there is none.
int32_t placeOf(const HashIndex *index, uint64_t key);

// Null is ignored.
void releaseHashIndex(HashIndex *index);

}  // namespace sondex
