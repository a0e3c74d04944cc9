#include "text/typed_number.h"

#include <limits.h>
#include <stdlib.h>

#include <algorithm>

namespace sondex {

bool parseNumber(const char *text, int32_t *number) {
  char *end = nullptr;
  const long typed = strtol(text, &end, 10);
  if (end == text) return false;
  *number = static_cast<int32_t>(std::clamp<long>(typed, INT_MIN, INT_MAX));
  return true;
}

bool parseWholeNumber(const char *text, int32_t *number) {
  char *end = nullptr;
  const long typed = strtol(text, &end, 10);
  if (end == text || *end != '\0' || typed < INT_MIN || typed > INT_MAX) return false;
  *number = static_cast<int32_t>(typed);
  return true;
}

}  // namespace sondex
