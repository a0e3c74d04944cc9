// A format and its arguments as the device's printf() reads them, made fit for this machine's.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

namespace loader {

class PrintFormat {
 public:
  // Takes as many of the arguments as the format asks for; they are 8 bytes each.
  PrintFormat(const char *format, const uint64_t *arguments);
  PrintFormat(const PrintFormat &) = delete;
  PrintFormat &operator=(const PrintFormat &) = delete;

  const char *text() const { return text_.c_str(); }
  // To be read once, while this object lives.
  va_list &arguments() { return list_; }

 private:
  const char *addDirective(const char *at, const uint64_t *arguments);

  std::string text_;
  std::vector<uint64_t> values_;
  va_list list_{};
};

}  // namespace loader
