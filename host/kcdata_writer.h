// Writes chunked data as the kernel does: items behind one another, their payloads filled up to
// what the format wants, containers begun and ended. What the items mean is not here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

namespace host {

class KcdataWriter {
 public:
  // `opening` is the type of the first item, which says what is in the buffer.
  explicit KcdataWriter(uint32_t opening);

  // Each throws std::length_error for a payload that no header can tell the size of.
  void item(uint32_t type, const void *payload, size_t size);
  // The whole of a structure.
  template <typename Record>
  void record(uint32_t type, const Record &record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    item(type, &record, sizeof record);
  }
  // Up to a NUL within it, and one behind it.
  void text(uint32_t type, std::string_view text);
  // An array of elements that follow one another without gaps.
  template <typename Element>
  void array(uint32_t elementType, const std::vector<Element> &elements) {
    static_assert(std::is_trivially_copyable_v<Element>);
    array(elementType, elements.data(), elements.size(), sizeof(Element));
  }

  // The identifier tells a container from others of its type.
  void beginContainer(uint32_t type, uint64_t identifier);
  // Of the innermost one that is open.
  void endContainer();

  // Ends the buffer and gives it away; nothing may follow.
  std::vector<uint8_t> finish();

 private:
  void array(uint32_t elementType, const void *elements, size_t count, size_t elementSize);
  void append(uint32_t type, uint64_t flags, const void *payload, size_t size);

  std::vector<uint8_t> bytes_;
  std::vector<uint64_t> open_;  // identifiers, the innermost last
};

}  // namespace host
