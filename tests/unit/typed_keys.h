// Keys for a curses screen of a test's own, as if they had been typed.
#pragma once

#include <curses.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace sondex {

inline std::vector<int> keysOf(const std::string &text) {
  std::vector<int> keys;
  for (const char byte : text) keys.push_back(static_cast<unsigned char>(byte));
  return keys;
}

// The next keys that the screen gives, in this order.
inline void typeKeys(const std::vector<int> &keys) {
  for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
    if (ungetch(*key) == ERR) throw std::length_error("too many keys at once");
  }
}

}  // namespace sondex
