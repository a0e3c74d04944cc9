// Names in the kernel's tables of mounts and swaps.
#pragma once

#include <string>
#include <string_view>

namespace host::linux_machine {

// `text` with its escapes undone: blanks, newlines and backslashes are written there as a backslash
// and three octal digits.
std::string unescapeMountName(std::string_view text);

}  // namespace host::linux_machine
