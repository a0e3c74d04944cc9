// For what the platform's public headers leave out: our declarations beside rows written down from
// the kernel's published sources.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <vector>

struct LayoutRow {
  std::string_view field;
  size_t ourOffset;
  size_t ourSize;
  size_t offset;
  size_t size;
};

// ROW(structure, field, offset, size), with the platform's figures.
#define ROW(structure, field, ...)                                                            \
  LayoutRow {                                                                                 \
#field, offsetof(darwin::structure, field), sizeof(darwin::structure::field), __VA_ARGS__ \
  }

// A row for each field, in order.
template <typename Structure>
void expectLayout(size_t size, size_t alignment, const std::vector<LayoutRow> &rows) {
  EXPECT_EQ(sizeof(Structure), size);
  EXPECT_EQ(alignof(Structure), alignment);
  size_t end = 0;
  for (const LayoutRow &row : rows) {
    EXPECT_EQ(row.ourOffset, row.offset) << row.field;
    EXPECT_EQ(row.ourSize, row.size) << row.field;
    EXPECT_GE(row.offset, end) << row.field;
    EXPECT_LT(row.offset, end + std::min<size_t>(row.size, 8)) << "no row before " << row.field;
    end = row.offset + row.size;
  }
  EXPECT_LT(size, end + alignment) << "no row for the last field";
}

struct NumberRow {
  std::string_view name;
  long long ours;
  long long kernel;
};

#define NUMBER(name, kernel)                              \
  NumberRow {                                             \
#name, static_cast < long long>(darwin::name), kernel \
  }

inline void expectNumbers(const std::vector<NumberRow> &rows) {
  for (const NumberRow &row : rows) EXPECT_EQ(row.ours, row.kernel) << row.name;
}

#define EXPECT_PROTOTYPE(function, ...) \
  EXPECT_TRUE((std::is_same_v<decltype(darwin::function), __VA_ARGS__>))
