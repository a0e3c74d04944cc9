// Texts as printf writes them.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace test {

__attribute__((format(printf, 1, 2))) inline std::string format(const char *pattern, ...) {
  char text[2048];
  va_list arguments;
  va_start(arguments, pattern);
  vsnprintf(text, sizeof text, pattern, arguments);
  va_end(arguments);
  return text;
}

}  // namespace test
