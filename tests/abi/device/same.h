// Compares our declarations with the platform's at compile time. A file that uses this includes our
// headers first, keeps their constants (the platform's macros of the same names would replace them
// later), then includes the platform's headers and compares.
#pragma once

#include <type_traits>

#include "darwin/layout.h"

// Each takes one bare constant name, so that a list of names can be gone through before and after
// the platform's headers: #define NAMES(EACH) EACH(A); EACH(B)
#define KEEP(name) constexpr long long kOurs_##name = static_cast<long long>(darwin::name)
#define KEEP_PREFIXED(name) \
  constexpr long long kOurs_##name = static_cast<long long>(darwin::DARWIN_##name)
#define SAME_VALUE(name) static_assert(kOurs_##name == static_cast<long long>(name), #name)

// Arrays count as their element; a field of structure or pointer type has no sign to compare.
template <typename Ours, typename Theirs>
constexpr bool sameSign() {
  using A = std::remove_all_extents_t<Ours>;
  using B = std::remove_all_extents_t<Theirs>;
  if constexpr (std::is_integral_v<A> && std::is_integral_v<B>) {
    return std::is_signed_v<A> == std::is_signed_v<B>;
  } else {
    return std::is_integral_v<A> == std::is_integral_v<B>;
  }
}

#define SAME_EACH(type, field, ...)                                                          \
  static_assert(offsetof(::type, field) == offsetof(darwin::type, field), #field " offset"); \
  static_assert(sizeof(::type::field) == sizeof(darwin::type::field), #field " size");       \
  static_assert(sameSign<decltype(darwin::type::field), decltype(::type::field)>(),          \
                #field " sign");                                                             \
  __VA_OPT__(SAME_AGAIN DARWIN_LAYOUT_PARENS(type, __VA_ARGS__))
#define SAME_AGAIN() SAME_EACH

#define SAME_FIELDS(type, ...) \
  DARWIN_LAYOUT_EXPAND(SAME_EACH(type, __VA_ARGS__)) static_assert(true)

// SAME_STRUCTURE(type, field, field, ...)
#define SAME_STRUCTURE(type, ...)                                                 \
  static_assert(sizeof(::type) == sizeof(darwin::type), "size of " #type);        \
  static_assert(alignof(::type) == alignof(darwin::type), "alignment of " #type); \
  SAME_FIELDS(type, __VA_ARGS__)

// For a structure that the platform has lengthened since: ours is its beginning.
#define SAME_START(type, ...)                                                     \
  static_assert(sizeof(::type) >= sizeof(darwin::type), "size of " #type);        \
  static_assert(alignof(::type) == alignof(darwin::type), "alignment of " #type); \
  SAME_FIELDS(type, __VA_ARGS__)

#define SAME_FUNCTION(name) \
  static_assert(std::is_same_v<decltype(&::name), decltype(&darwin::name)>, #name)
