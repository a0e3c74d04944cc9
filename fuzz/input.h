// What the fuzzers have in common: input taken from the front, and what has to hold.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace fuzz {

inline void check(bool holds) {
  if (!holds) std::abort();
}

class Input {
 public:
  Input(const uint8_t *data, size_t size) : rest_(reinterpret_cast<const char *>(data), size) {}

  bool isEmpty() const { return rest_.empty(); }
  std::string_view rest() const { return rest_; }
  // As many bytes as there are, if not that many.
  std::string_view take(size_t size) {
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(taken.size());
    return taken;
  }
  // Little-endian; bytes that are missing are 0.
  template <typename Number>
  Number number() {
    Number value{};
    const std::string_view bytes = take(sizeof value);
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), bytes.size());
    return value;
  }
  uint8_t byte() { return number<uint8_t>(); }
  // Bytes behind their 16-bit length.
  std::string_view piece() { return take(number<uint16_t>()); }

 private:
  std::string_view rest_;
};

// A copy that stands right before the end of its memory: who reads beyond it is found.
class Copy {
 public:
  explicit Copy(std::string_view bytes)
      : size_(bytes.size()), bytes_(std::make_unique<char[]>(size_)) {
    std::copy(bytes.begin(), bytes.end(), bytes_.get());
  }
  std::string_view text() const { return {bytes_.get(), size_}; }
  const uint8_t *bytes() const { return reinterpret_cast<const uint8_t *>(bytes_.get()); }
  size_t size() const { return size_; }

 private:
  size_t size_;
  std::unique_ptr<char[]> bytes_;
};

// Whether a fixed field holds a text and its end.
template <size_t size>
bool isTerminated(const char (&field)[size]) {
  return std::memchr(field, '\0', size) != nullptr;
}

}  // namespace fuzz
