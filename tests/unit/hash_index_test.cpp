#include "proc/hash_index.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <vector>

namespace {

using namespace sondex;

struct Released {
  void operator()(HashIndex *index) const { releaseHashIndex(index); }
};
using Index = std::unique_ptr<HashIndex, Released>;

TEST(HashIndexTest, IsEmptyAtFirst) {
  const Index index(makeHashIndex(0));
  ASSERT_NE(index, nullptr);
  for (const uint64_t key : {uint64_t{0}, uint64_t{1}, UINT64_MAX}) {
    EXPECT_EQ(placeOf(index.get(), key), kNoPlace) << key;
  }
}

TEST(HashIndexTest, TheFirstPlaceOfAKeyWins) {
  const Index index(makeHashIndex(2));
  EXPECT_EQ(enterPlace(index.get(), 7, 3), 3);
  EXPECT_EQ(enterPlace(index.get(), 7, 2), 3);
  EXPECT_EQ(enterPlace(index.get(), 8, 2), 2);
  EXPECT_EQ(placeOf(index.get(), 7), 3);
  EXPECT_EQ(placeOf(index.get(), 8), 2);
}

TEST(HashIndexTest, TakesAnyKeyAndPlace) {
  const Index index(makeHashIndex(4));
  enterPlace(index.get(), 0, INT32_MAX);
  enterPlace(index.get(), UINT64_MAX, 0);
  enterPlace(index.get(), uint64_t{1} << 63, 5);
  EXPECT_EQ(placeOf(index.get(), 0), INT32_MAX);
  EXPECT_EQ(placeOf(index.get(), UINT64_MAX), 0);
  EXPECT_EQ(placeOf(index.get(), uint64_t{1} << 63), 5);
  EXPECT_EQ(placeOf(index.get(), 1), kNoPlace);
}

TEST(HashIndexTest, AnswersAsAMap) {
  std::mt19937_64 random(4711);
  // Neighbours, and keys that have the same low or high bits.
  for (const uint64_t factor : {uint64_t{1}, uint64_t{4096}, uint64_t{1} << 40}) {
    for (const size_t keys : {size_t{1}, size_t{32}, size_t{33}, size_t{5000}}) {
      const Index index(makeHashIndex(keys));
      std::map<uint64_t, int32_t> wanted;
      for (int32_t place = 0; place < static_cast<int32_t>(keys); place++) {
        const uint64_t key = random() % (2 * keys) * factor;
        wanted.emplace(key, place);
        EXPECT_EQ(enterPlace(index.get(), key, place), wanted[key]);
      }
      for (uint64_t i = 0; i < 2 * keys; i++) {
        const auto found = wanted.find(i * factor);
        ASSERT_EQ(placeOf(index.get(), i * factor),
                  found != wanted.end() ? found->second : kNoPlace)
            << i << " of " << keys << " by " << factor;
      }
    }
  }
}

TEST(HashIndexTest, MoreKeysThanPlacesAreRefused) {
  EXPECT_EQ(makeHashIndex(size_t{INT32_MAX} + 1), nullptr);
  EXPECT_EQ(makeHashIndex(SIZE_MAX), nullptr);
}

TEST(HashIndexTest, ReleasedNullIsIgnored) {
  releaseHashIndex(nullptr);
}

}  // namespace
