#include <gtest/gtest.h>

#include "kcdata/iterator.h"
#include "tests/unit/kcdata_bytes.h"

namespace {

using namespace sondex;
using kcdata_test::Bytes;
using kcdata_test::Exact;

kcdata_iter_t first(const Exact &buffer) {
  return kcdata_iter(buffer.begin(), buffer.end());
}

TEST(KcdataIterator, GoesFromItemToItem) {
  const Exact buffer(Bytes().item(54, Bytes().upTo(16)).item(55).item(56, Bytes().upTo(3)));
  kcdata_iter_t iter = first(buffer);
  const struct {
    uint32_t type;
    uint32_t size;
    size_t payload;
  } items[] = {{54, 16, 16}, {55, 0, 48}, {56, 3, 64}};
  for (const auto &item : items) {
    ASSERT_TRUE(kcdata_iter_valid(iter)) << item.type;
    EXPECT_EQ(kcdata_iter_type(iter), item.type);
    EXPECT_EQ(kcdata_iter_size(iter), item.size);
    EXPECT_EQ(kcdata_iter_payload(iter), buffer.begin() + item.payload);
    iter = kcdata_iter_next(iter);
  }
  EXPECT_FALSE(kcdata_iter_valid(iter));
  EXPECT_EQ(iter.item, buffer.end());
  EXPECT_EQ(kcdata_iter_next(iter).item, buffer.end());
}

TEST(KcdataIterator, HasNoItemsInNothing) {
  const kcdata_iter_t iter = kcdata_iter(nullptr, nullptr);
  EXPECT_FALSE(kcdata_iter_valid(iter));
  EXPECT_FALSE(kcdata_iter_valid(kcdata_iter_next(iter)));
  EXPECT_EQ(kcdata_iter_type(iter), 0u);
}

TEST(KcdataIterator, TakesNoItemThatRunsPastTheEnd) {
  for (const uint32_t size : {1u, 16u, 17u, 0x7FFFFFFFu, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
    const Exact buffer(Bytes().item(54, Bytes().upTo(size == 17 ? 16 : 0), 0, size));
    EXPECT_FALSE(kcdata_iter_valid(first(buffer))) << size;
    EXPECT_EQ(kcdata_iter_next(first(buffer)).item, buffer.end()) << size;
  }
  for (size_t header = 0; header < 16; header++) {
    const Exact buffer(Bytes().upTo(header));
    EXPECT_FALSE(kcdata_iter_valid(first(buffer))) << header;
    EXPECT_EQ(kcdata_iter_payload(first(buffer)), buffer.end()) << header;
    EXPECT_EQ(kcdata_iter_array_elem_count(first(buffer)), 0u) << header;
    EXPECT_EQ(kcdata_iter_container_type(first(buffer)), 0u) << header;
  }
}

TEST(KcdataIterator, KnowsEveryKindOfArray) {
  for (uint32_t type = 0; type <= 0x40; type++) {
    const Exact buffer(Bytes().item(type));
    const bool isArray = type >= 0x20 && type <= 0x2F;
    EXPECT_EQ(kcdata_iter_type(first(buffer)), isArray ? 17 : type);
    EXPECT_EQ(kcdata_iter_array_filler(first(buffer)), isArray ? type - 0x20 : 0);
  }
  EXPECT_EQ(kcdata_iter_type(first(Exact(Bytes().item(0xFFFFFFFF)))), 0xFFFFFFFFu);
}

TEST(KcdataIterator, FindsTypeAndCountOfElements) {
  const Exact buffer(Bytes().item(0x28, {}, 0xFEDCBA9876543210));
  EXPECT_EQ(kcdata_iter_array_elem_type(first(buffer)), 0xFEDCBA98u);
  EXPECT_EQ(kcdata_iter_array_elem_count(first(buffer)), 0x76543210u);
}

TEST(KcdataIterator, FindsTheTypeOfAContainer) {
  EXPECT_EQ(kcdata_iter_container_type(first(Exact(Bytes().begin(2308)))), 2308u);
  // What belongs to the next item is not this one's type.
  const Exact empty(Bytes().item(19).item(2308));
  EXPECT_EQ(kcdata_iter_container_type(first(empty)), 0u);
  const Exact half(Bytes().item(19, Bytes().word(uint16_t{2307})).item(2308));
  EXPECT_EQ(kcdata_iter_container_type(first(half)), 2307u);
  // Nor is what lies behind the buffer.
  const Exact cut(Bytes().item(19, {}, 0, 16));
  EXPECT_EQ(kcdata_iter_container_type(first(cut)), 0u);
}

TEST(KcdataIterator, TakesItemsAtAnyAddress) {
  const Exact buffer(Bytes().upTo(1).item(54, Bytes().upTo(5)).item(55));
  const kcdata_iter_t iter = kcdata_iter(buffer.begin() + 1, buffer.end());
  EXPECT_EQ(kcdata_iter_type(iter), 54u);
  EXPECT_EQ(kcdata_iter_type(kcdata_iter_next(iter)), 55u);
}

}  // namespace
