// How functions get into the tables: those that a caller compiled for the device can call as they
// are, seen by their types, and those that need a few instructions in between.
#pragma once

#include <type_traits>

#include "imports/imports.h"

namespace loader {

// The device packs what does not fit into registers, and has a shorter long double.
template <typename T>
inline constexpr bool kIsPassedTheSame =
    std::is_scalar_v<T> && !std::is_same_v<T, long double> && !std::is_member_pointer_v<T>;

// A caller there takes a register's whole 32 bits for what was returned.
template <typename T>
inline constexpr bool kIsReturnedTheSame = kIsPassedTheSame<T> && sizeof(T) >= sizeof(int);
template <>
inline constexpr bool kIsReturnedTheSame<void> = true;

template <typename Result, typename... Arguments>
Import call(std::string_view name, Result (*function)(Arguments...)) {
  static_assert(kIsReturnedTheSame<Result> && (kIsPassedTheSame<Arguments> && ...) &&
                    sizeof...(Arguments) <= 8,
                "a caller on the device calls this in another way");
  return {name, reinterpret_cast<const void *>(function)};
}

// Of a function whose result is shorter than a register.
template <auto kFunction>
struct Widened;
template <typename Result, typename... Arguments, Result (*kFunction)(Arguments...)>
struct Widened<kFunction> {
  static unsigned int call(Arguments... arguments) { return kFunction(arguments...); }
};

template <auto kFunction>
Import widened(std::string_view name) {
  return call(name, &Widened<kFunction>::call);
}

// Data, or what is no C function.
inline Import place(std::string_view name, const void *address) {
  return {name, address};
}

}  // namespace loader

// What follows the named arguments of a call is on the stack there, eight bytes each. variadics.S
// has for each of these functions the entry point device_NAME, which calls on_NAME with the address
// of those bytes behind the named arguments.
#define LOADER_VARIADIC(name) loader::place(#name, reinterpret_cast<const void *>(&device_##name))
