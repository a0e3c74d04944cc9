// Texts of universally unique identifiers.
#pragma once

#include <cstdint>

namespace darwin {

constexpr int UUID_SIZE = 16;
constexpr int UUID_STRING_SIZE = 37;

extern "C" {

// Writes the identifier as text, with its NUL: upper-case hexadecimal in groups of 8, 4, 4, 4 and
// 12 digits with hyphens between them. Cannot fail.
void uuid_unparse(const uint8_t uuid[UUID_SIZE], char text[UUID_STRING_SIZE]);

}  // extern "C"

}  // namespace darwin
