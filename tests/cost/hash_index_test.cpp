#include "proc/hash_index.h"

#include <gtest/gtest.h>

#include "tests/cost/steps.h"

namespace {

using namespace sondex;

// Of entering keys that lie `apart`, and looking for them.
uint64_t stepsForKeys(int32_t count, uint64_t apart) {
  HashIndex *index = makeHashIndex(static_cast<size_t>(count));
  const uint64_t steps = cost::stepsOf([&] {
    for (int32_t i = 0; i < count; i++) enterPlace(index, static_cast<uint64_t>(i) * apart, i);
    for (int32_t i = 0; i < count; i++) placeOf(index, static_cast<uint64_t>(i) * apart);
  });
  releaseHashIndex(index);
  return steps;
}

// Sixteen times as many keys would cost 256 times as much if they crowded together.
TEST(HashIndex, CostsInProportion) {
  for (const uint64_t apart : {uint64_t{1}, uint64_t{4096}, uint64_t{1} << 40}) {
    const uint64_t few = stepsForKeys(1000, apart);
    EXPECT_GT(few, 2000u) << apart;
    EXPECT_LT(stepsForKeys(16000, apart), 32 * few) << apart;
  }
}

}  // namespace
