#include "host/kcdata_writer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

#include "kcdata/iterator.h"

namespace {

using host::KcdataWriter;

const std::vector<uint8_t> kOpening = {0x07, 0x58, 0xA2, 0x59, 0, 0, 0, 0,
                                       0x80, 0,    0,    0,    0, 0, 0, 0};
const std::vector<uint8_t> kEnd = {0xED, 0x58, 0x91, 0xF1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

// Between the opening and the end.
std::vector<uint8_t> framed(const std::vector<uint8_t> &items) {
  std::vector<uint8_t> all = kOpening;
  all.insert(all.end(), items.begin(), items.end());
  all.insert(all.end(), kEnd.begin(), kEnd.end());
  return all;
}

TEST(KcdataWriter, NothingIsAnOpeningAndAnEnd) {
  EXPECT_EQ(KcdataWriter(0x59A25807).finish(), framed({}));
}

TEST(KcdataWriter, ItemIsFilledUpAndSaysSo) {
  KcdataWriter writer(0x59A25807);
  writer.record(2320, uint32_t{0x4000});
  EXPECT_EQ(writer.finish(), framed({0x10, 0x09, 0, 0, 16, 0, 0, 0, 0x8C, 0, 0, 0, 0, 0, 0, 0,
                                     0,    0x40, 0, 0, 0,  0, 0, 0, 0,    0, 0, 0, 0, 0, 0, 0}));
}

TEST(KcdataWriter, ItemThatFitsHasNoFiller) {
  KcdataWriter writer(0x59A25807);
  writer.record(0x31, std::array<uint64_t, 2>{1, 2});
  EXPECT_EQ(writer.finish(), framed({0x31, 0, 0, 0, 16, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0,
                                     1,    0, 0, 0, 0,  0, 0, 0, 2,    0, 0, 0, 0, 0, 0, 0}));
}

// One byte beyond that takes 15 of filler.
TEST(KcdataWriter, FillerCountsUpTo15) {
  for (size_t size = 0; size <= 48; size++) {
    const std::vector<uint8_t> payload(size, 0xAB);
    KcdataWriter writer(0x59A25807);
    writer.item(7, payload.data(), payload.size());
    const std::vector<uint8_t> written = writer.finish();
    const size_t filled = (size + 15) / 16 * 16;
    ASSERT_EQ(written.size(), 48 + filled) << size;
    EXPECT_EQ(written[20], filled) << size;
    EXPECT_EQ(written[24], 0x80 + filled - size) << size;
    for (size_t i = 0; i < filled; i++) EXPECT_EQ(written[32 + i], i < size ? 0xAB : 0) << size;
  }
}

TEST(KcdataWriter, TextEndsWithItsNul) {
  KcdataWriter writer(0x59A25807);
  writer.text(2318, "debug=0x1");
  writer.text(2318, std::string_view("ab\0cd", 5));
  writer.text(2318, "");
  EXPECT_EQ(writer.finish(),
            framed({0x0E, 0x09, 0,   0,   16,  0,   0,   0,   0x86, 0, 0, 0, 0, 0, 0, 0,
                    'd',  'e',  'b', 'u', 'g', '=', '0', 'x', '1',  0, 0, 0, 0, 0, 0, 0,
                    0x0E, 0x09, 0,   0,   16,  0,   0,   0,   0x8D, 0, 0, 0, 0, 0, 0, 0,
                    'a',  'b',  0,   0,   0,   0,   0,   0,   0,    0, 0, 0, 0, 0, 0, 0,
                    0x0E, 0x09, 0,   0,   16,  0,   0,   0,   0x8F, 0, 0, 0, 0, 0, 0, 0,
                    0,    0,    0,   0,   0,   0,   0,   0,   0,    0, 0, 0, 0, 0, 0, 0}));
}

TEST(KcdataWriter, TypeOfAnArrayTellsItsFiller) {
  KcdataWriter writer(0x59A25807);
  writer.array(2326, std::vector<uint64_t>{0x1122334455667788, 2, 3});
  EXPECT_EQ(writer.finish(),
            framed({0x28, 0,    0,    0,    32,   0,    0,    0,    3, 0, 0, 0, 0x16, 0x09, 0, 0,
                    0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 2, 0, 0, 0, 0,    0,    0, 0,
                    3,    0,    0,    0,    0,    0,    0,    0,    0, 0, 0, 0, 0,    0,    0, 0}));
}

TEST(KcdataWriter, ArrayOfSmallElements) {
  KcdataWriter writer(0x59A25807);
  writer.array(2325, std::vector<uint32_t>{5});
  writer.array(2325, std::vector<uint32_t>{1, 2, 3, 4});
  writer.array(2325, std::vector<uint32_t>{});
  EXPECT_EQ(writer.finish(), framed({0x2C, 0, 0, 0, 16, 0, 0, 0, 1, 0, 0, 0, 0x15, 0x09, 0, 0,  //
                                     5,    0, 0, 0, 0,  0, 0, 0, 0, 0, 0, 0, 0,    0,    0, 0,  //
                                     0x20, 0, 0, 0, 16, 0, 0, 0, 4, 0, 0, 0, 0x15, 0x09, 0, 0,  //
                                     1,    0, 0, 0, 2,  0, 0, 0, 3, 0, 0, 0, 4,    0,    0, 0,  //
                                     0x20, 0, 0, 0, 0,  0, 0, 0, 0, 0, 0, 0, 0x15, 0x09, 0, 0}));
}

TEST(KcdataWriter, ContainersCarryTheirIdentifierAtBothEnds) {
  KcdataWriter writer(0x59A25807);
  writer.beginContainer(2307, 40);
  writer.beginContainer(2308, 0x100000002);
  writer.endContainer();
  writer.endContainer();
  EXPECT_EQ(writer.finish(), framed({0x13, 0,    0, 0, 16, 0, 0, 0, 40, 0, 0, 0, 0, 0, 0, 0,  //
                                     0x03, 0x09, 0, 0, 0,  0, 0, 0, 0,  0, 0, 0, 0, 0, 0, 0,  //
                                     0x13, 0,    0, 0, 16, 0, 0, 0, 2,  0, 0, 0, 1, 0, 0, 0,  //
                                     0x04, 0x09, 0, 0, 0,  0, 0, 0, 0,  0, 0, 0, 0, 0, 0, 0,  //
                                     0x14, 0,    0, 0, 0,  0, 0, 0, 2,  0, 0, 0, 1, 0, 0, 0,  //
                                     0x14, 0,    0, 0, 0,  0, 0, 0, 40, 0, 0, 0, 0, 0, 0, 0}));
}

// As the program's own iterator finds it.
TEST(KcdataWriter, CanBeWalked) {
  KcdataWriter writer(0x59A25807);
  writer.beginContainer(2308, 7);
  writer.array(2324, std::vector<uint64_t>{9});
  writer.endContainer();
  const std::vector<uint8_t> bytes = writer.finish();

  sondex::kcdata_iter_t iter = sondex::kcdata_iter(bytes.data(), bytes.data() + bytes.size());
  iter = sondex::kcdata_iter_next(iter);
  EXPECT_EQ(sondex::kcdata_iter_container_type(iter), 2308u);
  iter = sondex::kcdata_iter_next(iter);
  EXPECT_EQ(sondex::kcdata_iter_type(iter), 17u);
  EXPECT_EQ(sondex::kcdata_iter_array_elem_type(iter), 2324u);
  EXPECT_EQ(sondex::kcdata_iter_array_elem_count(iter), 1u);
  EXPECT_EQ(sondex::kcdata_iter_array_filler(iter), 8u);
  iter = sondex::kcdata_iter_next(iter);
  EXPECT_EQ(sondex::kcdata_iter_type(iter), 20u);
  iter = sondex::kcdata_iter_next(iter);
  EXPECT_EQ(sondex::kcdata_iter_type(iter), 0xF19158EDu);
  iter = sondex::kcdata_iter_next(iter);
  EXPECT_FALSE(sondex::kcdata_iter_valid(iter));
}

}  // namespace
