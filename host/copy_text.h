// Texts in fields of fixed size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace host {

// As much of `text` as fits, and a NUL. What follows in the field stays.
template <size_t size>
void copyText(std::string_view text, char (&field)[size]) {
  const size_t length = std::min(text.size(), size - 1);
  std::memcpy(field, text.data(), length);
  field[length] = '\0';
}

}  // namespace host
