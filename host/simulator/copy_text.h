// Texts in fields of fixed size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace host::simulator {

// As much of `text` as fits before a NUL. The rest of the field is 0 already.
template <size_t size>
void copyText(std::string_view text, char (&field)[size]) {
  std::memcpy(field, text.data(), std::min(text.size(), size - 1));
}

}  // namespace host::simulator
