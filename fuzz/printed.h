// What the program prints, taken instead of shown: it must be fit for a terminal.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdio>

#include "fuzz/input.h"

namespace fuzz {

// Stands in for `stream` while this lives. No more than `room` bytes may be written.
class Printed {
 public:
  Printed(std::FILE *&stream, size_t room) : stream_(stream), before_(stream), room_(room) {
    stream = fopencookie(this, "w", {nullptr, take, nullptr, nullptr});
    check(stream != nullptr);
  }
  Printed(const Printed &) = delete;
  Printed &operator=(const Printed &) = delete;
  ~Printed() {
    std::fclose(stream_);
    stream_ = before_;
  }

 private:
  static ssize_t take(void *self, const char *text, size_t size) {
    size_t &room = static_cast<Printed *>(self)->room_;
    check(size <= room);
    room -= size;
    for (size_t i = 0; i < size; i++) {
      const unsigned char byte = static_cast<unsigned char>(text[i]);
      check((byte >= ' ' || byte == '\n' || byte == '\t') && byte != 0x7F);
    }
    return static_cast<ssize_t>(size);
  }

  std::FILE *&stream_;
  std::FILE *const before_;
  size_t room_;
};

}  // namespace fuzz
