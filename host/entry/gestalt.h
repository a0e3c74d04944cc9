// The identity library as dlopen and dlsym find it.
#pragma once

#include <string_view>

namespace host {

// A handle when `path` is the library's and the machine has it, otherwise null.
void *openGestalt(std::string_view path) noexcept;

// Whether the handle is that of the library.
bool isGestalt(const void *handle) noexcept;

// What the library has under that name; null when there is no such thing in it.
void *findInGestalt(std::string_view name) noexcept;

}  // namespace host
