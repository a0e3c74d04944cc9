#include "imports/print_format.h"

#include <cstring>

namespace loader {

namespace {

// How the compiler lays out a list of arguments.
struct ArgumentList {
  const void *onStack;
  const void *registersEnd;
  const void *floatRegistersEnd;
  int registersLeft;
  int floatRegistersLeft;
};
static_assert(sizeof(ArgumentList) == sizeof(va_list));

}  // namespace

PrintFormat::PrintFormat(const char *format, const uint64_t *arguments) {
  while (*format != '\0') {
    if (*format != '%') {
      text_ += *format++;
    } else {
      format = addDirective(format, arguments);
    }
  }
  // With no argument left in a register.
  const ArgumentList list = {values_.data(), nullptr, nullptr, 0, 0};
  std::memcpy(&list_, &list, sizeof list_);
}

// From the percent sign on. Returns what follows the directive.
const char *PrintFormat::addDirective(const char *at, const uint64_t *arguments) {
  text_ += *at++;
  for (; *at != '\0' && std::strchr("-+ #0'123456789.*hlqjztL", *at) != nullptr; at++) {
    if (*at == '*') values_.push_back(arguments[values_.size()]);
    // A long double is a double there.
    if (*at != 'L') text_ += *at;
  }
  if (*at == '\0') return at;
  if (*at != '%') values_.push_back(arguments[values_.size()]);
  if (*at == 'p' && values_.back() == 0) {
    values_.back() = reinterpret_cast<uint64_t>("0x0");
    text_ += 's';
  } else {
    text_ += *at;
  }
  return at + 1;
}

}  // namespace loader
