// The check that every structure in this folder ends with: its size, its alignment and the offset
// of each field, so that a wrong declaration stops the build instead of misreading the kernel.
#pragma once

#include <cstddef>

#define DARWIN_LAYOUT_PARENS ()
#define DARWIN_LAYOUT_EXPAND(...) DARWIN_LAYOUT_EXPAND3(DARWIN_LAYOUT_EXPAND3(__VA_ARGS__))
#define DARWIN_LAYOUT_EXPAND3(...) \
  DARWIN_LAYOUT_EXPAND2(           \
      DARWIN_LAYOUT_EXPAND2(DARWIN_LAYOUT_EXPAND2(DARWIN_LAYOUT_EXPAND2(__VA_ARGS__))))
#define DARWIN_LAYOUT_EXPAND2(...) \
  DARWIN_LAYOUT_EXPAND1(           \
      DARWIN_LAYOUT_EXPAND1(DARWIN_LAYOUT_EXPAND1(DARWIN_LAYOUT_EXPAND1(__VA_ARGS__))))
#define DARWIN_LAYOUT_EXPAND1(...) __VA_ARGS__
#define DARWIN_LAYOUT_NAME(field, offset) #field
#define DARWIN_LAYOUT_FIELD(field, offset) field
#define DARWIN_LAYOUT_OFFSET(field, offset) offset
#define DARWIN_LAYOUT_EACH(type, pair, ...)                                            \
  static_assert(offsetof(type, DARWIN_LAYOUT_FIELD pair) == DARWIN_LAYOUT_OFFSET pair, \
                DARWIN_LAYOUT_NAME pair);                                              \
  __VA_OPT__(DARWIN_LAYOUT_AGAIN DARWIN_LAYOUT_PARENS(type, __VA_ARGS__))
#define DARWIN_LAYOUT_AGAIN() DARWIN_LAYOUT_EACH

// DARWIN_LAYOUT(type, size, alignment, (field, offset), (field, offset), ...)
#define DARWIN_LAYOUT(type, size, alignment, ...)                     \
  static_assert(sizeof(type) == (size), "size of " #type);            \
  static_assert(alignof(type) == (alignment), "alignment of " #type); \
  DARWIN_LAYOUT_EXPAND(DARWIN_LAYOUT_EACH(type, __VA_ARGS__)) static_assert(true)
