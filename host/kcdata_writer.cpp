#include "host/kcdata_writer.h"

#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "darwin/kcdata.h"

namespace host {

namespace {

constexpr size_t kAlignment = 16;

// In the flags of an item: its low four bits count the filler.
constexpr uint64_t kTellsFiller = 0x80;

size_t fillerBehind(size_t size) {
  return (kAlignment - size % kAlignment) % kAlignment;
}

}  // namespace

KcdataWriter::KcdataWriter(uint32_t opening) {
  append(opening, kTellsFiller, nullptr, 0);
}

void KcdataWriter::append(uint32_t type, uint64_t flags, const void *payload, size_t size) {
  const size_t filled = size + fillerBehind(size);
  if (filled < size || filled > UINT32_MAX) throw std::length_error("chunked data");
  const darwin::kcdata_item header = {type, static_cast<uint32_t>(filled), flags};
  const size_t at = bytes_.size();
  bytes_.resize(at + sizeof header + filled);
  std::memcpy(bytes_.data() + at, &header, sizeof header);
  if (size != 0) std::memcpy(bytes_.data() + at + sizeof header, payload, size);
}

void KcdataWriter::item(uint32_t type, const void *payload, size_t size) {
  append(type, kTellsFiller | fillerBehind(size), payload, size);
}

void KcdataWriter::text(uint32_t type, std::string_view text) {
  std::string bytes(text.substr(0, text.find('\0')));
  item(type, bytes.c_str(), bytes.size() + 1);
}

void KcdataWriter::array(uint32_t elementType, const void *elements, size_t count,
                         size_t elementSize) {
  if (count > UINT32_MAX) throw std::length_error("chunked data");
  const size_t size = count * elementSize;
  const uint32_t type = darwin::KCDATA_TYPE_ARRAY_PAD0 + static_cast<uint32_t>(fillerBehind(size));
  append(type, uint64_t{elementType} << 32 | count, elements, size);
}

void KcdataWriter::beginContainer(uint32_t type, uint64_t identifier) {
  append(darwin::KCDATA_TYPE_CONTAINER_BEGIN, identifier, &type, sizeof type);
  open_.push_back(identifier);
}

void KcdataWriter::endContainer() {
  append(darwin::KCDATA_TYPE_CONTAINER_END, open_.back(), nullptr, 0);
  open_.pop_back();
}

std::vector<uint8_t> KcdataWriter::finish() {
  append(darwin::KCDATA_TYPE_BUFFER_END, 0, nullptr, 0);
  return std::move(bytes_);
}

}  // namespace host
