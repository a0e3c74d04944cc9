// Puts chunked data together for tests: the bytes of payloads, and items around them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "darwin/kcdata.h"
#include "darwin/stackshot.h"

namespace kcdata_test {

class Bytes {
 public:
  template <typename Word>
  Bytes &word(Word value) {
    static_assert(std::is_integral_v<Word>);
    const size_t at = bytes_.size();
    bytes_.resize(at + sizeof value);
    std::memcpy(bytes_.data() + at, &value, sizeof value);
    return *this;
  }
  Bytes &u64(uint64_t value) { return word(value); }
  Bytes &text(std::string_view text) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  // Zeroes up to that size.
  Bytes &upTo(size_t size) {
    bytes_.resize(size);
    return *this;
  }

  // An item whose header tells the true size, or the one that is given.
  Bytes &item(uint32_t type, const Bytes &payload = {}, uint64_t flags = 0) {
    return item(type, payload, flags, static_cast<uint32_t>(payload.size()));
  }
  Bytes &item(uint32_t type, const Bytes &payload, uint64_t flags, uint32_t size) {
    word(type).word(size).u64(flags);
    bytes_.insert(bytes_.end(), payload.bytes_.begin(), payload.bytes_.end());
    return *this;
  }
  Bytes &array(uint32_t elementType, uint32_t count, const Bytes &payload,
               uint32_t type = darwin::KCDATA_TYPE_ARRAY_PAD0) {
    return item(type, payload, uint64_t{elementType} << 32 | count);
  }
  Bytes &begin(uint32_t container) {
    return item(darwin::KCDATA_TYPE_CONTAINER_BEGIN, Bytes().word(container).upTo(16));
  }
  Bytes &end() { return item(darwin::KCDATA_TYPE_CONTAINER_END); }
  Bytes &endOfData() { return item(darwin::KCDATA_TYPE_BUFFER_END); }

  const uint8_t *data() const { return bytes_.data(); }
  size_t size() const { return bytes_.size(); }

 private:
  std::vector<uint8_t> bytes_;
};

// A buffer that has its opening header.
inline Bytes opened() {
  return Bytes().item(darwin::KCDATA_BUFFER_BEGIN_STACKSHOT);
}

// A copy of the bytes that ends where its memory ends, so that a sanitizer sees a read past it.
class Exact {
 public:
  explicit Exact(const Bytes &bytes) : data_(new uint8_t[bytes.size()]), size_(bytes.size()) {
    if (size_ != 0) std::memcpy(data_, bytes.data(), size_);
  }
  ~Exact() { delete[] data_; }
  Exact(const Exact &) = delete;
  Exact &operator=(const Exact &) = delete;

  const uint8_t *begin() const { return data_; }
  const uint8_t *end() const { return data_ + size_; }
  size_t size() const { return size_; }

 private:
  uint8_t *data_;
  size_t size_;
};

}  // namespace kcdata_test
