#include "text/append.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "text/safe_text.h"

namespace sondex {

void append(char *text, size_t size, const char *format, ...) {
  const size_t length = strlen(text);
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text + length, size - length, format, arguments);
  va_end(arguments);
}

void appendSafe(char *text, size_t size, const char *from, size_t fromSize) {
  const size_t length = strlen(text);
  makeSafe(text + length, size - length, from, fromSize);
}

}  // namespace sondex
