// Takes chunked data apart for tests, without what is tested: its items, and what their payloads
// hold.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace kcdata_test {

struct Item {
  uint32_t type;  // as in the header
  uint64_t flags;
  std::vector<uint8_t> payload;  // with its filler
};

inline std::vector<Item> itemsOf(const std::vector<uint8_t> &bytes) {
  std::vector<Item> items;
  size_t at = 0;
  while (at + 16 <= bytes.size()) {
    Item item{};
    uint32_t size = 0;
    std::memcpy(&item.type, &bytes[at], 4);
    std::memcpy(&size, &bytes[at + 4], 4);
    std::memcpy(&item.flags, &bytes[at + 8], 8);
    if (size > bytes.size() - at - 16) break;
    const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(at) + 16;
    item.payload.assign(start, start + size);
    items.push_back(std::move(item));
    at += 16 + size;
  }
  EXPECT_EQ(at, bytes.size());
  return items;
}

// The element type of an array, else the item's own.
inline std::vector<uint32_t> kindsOf(const std::vector<Item> &items) {
  std::vector<uint32_t> kinds;
  for (const Item &item : items) {
    const bool isArray = item.type >= 0x20 && item.type <= 0x2F;
    kinds.push_back(isArray ? static_cast<uint32_t>(item.flags >> 32) : item.type);
  }
  return kinds;
}

// The first item of a kind; an empty one, and a failure, without it.
inline Item itemOf(const std::vector<Item> &items, uint32_t kind) {
  const std::vector<uint32_t> kinds = kindsOf(items);
  for (size_t i = 0; i < items.size(); i++) {
    if (kinds[i] == kind) return items[i];
  }
  ADD_FAILURE() << "no item " << kind;
  return {};
}

template <typename Word>
Word wordAt(const Item &item, size_t offset) {
  Word word{};
  EXPECT_LE(offset + sizeof word, item.payload.size());
  if (offset + sizeof word <= item.payload.size()) {
    std::memcpy(&word, &item.payload[offset], sizeof word);
  }
  return word;
}

inline std::string textAt(const Item &item, size_t offset) {
  if (offset >= item.payload.size()) return "";
  return reinterpret_cast<const char *>(&item.payload[offset]);
}

}  // namespace kcdata_test
