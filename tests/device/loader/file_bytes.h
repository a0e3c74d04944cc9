// The bytes of an executable, of which none is believed: every read is checked against the part of
// the file that it belongs to.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

#include "load_error.h"

namespace loader {

// A part of a file, by its distance from the start.
struct FilePart {
  uint64_t offset = 0;
  uint64_t size = 0;
};

class FileBytes {
 public:
  explicit FileBytes(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  uint64_t size() const { return bytes_.size(); }
  const uint8_t *data() const { return bytes_.data(); }

  // Throws LoadError when the part is not all there; so do the others.
  FileBytes part(FilePart part) const {
    if (part.offset > size() || part.size > size() - part.offset) {
      throw LoadError("the file ends before what it announces");
    }
    return FileBytes(bytes_.subspan(part.offset, part.size));
  }
  FileBytes from(uint64_t offset) const {
    return part({offset, offset > size() ? 0 : size() - offset});
  }

  // Of the file's own structures, at any alignment.
  template <typename T>
  T read(uint64_t offset) const {
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, part({offset, sizeof(T)}).data(), sizeof value);
    return value;
  }

  // The text at that place, up to its NUL; as long as the bytes are there.
  std::string_view text(uint64_t offset) const {
    const FileBytes rest = from(offset);
    const std::string_view text(reinterpret_cast<const char *>(rest.data()),
                                std::min(rest.size(), kLongestName));
    const size_t length = text.find('\0');
    if (length == text.npos) throw LoadError("a name in the file does not end");
    return text.substr(0, length);
  }

 private:
  static constexpr uint64_t kLongestName = 4096;

  std::span<const uint8_t> bytes_;
};

}  // namespace loader
