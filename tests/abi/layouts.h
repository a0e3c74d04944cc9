// For what the platform's public headers leave out: our declarations beside rows written down from
// the kernel's published sources.
#pragma once

#include <gtest/gtest.h>

#include <string_view>
#include <type_traits>
#include <vector>

// Size and offsets are asserted beside the declaration; without padding no field can have another
// width either.
#define EXPECT_NO_PADDING(structure) \
  EXPECT_TRUE(std::has_unique_object_representations_v<darwin::structure>)

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
