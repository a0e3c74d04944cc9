#include "kcdata/iterator.h"

#include <algorithm>

#include "darwin/kcdata.h"

namespace sondex {

static size_t bytesLeft(kcdata_iter_t iter) {
  return static_cast<size_t>(iter.end - iter.item);
}

static darwin::kcdata_item headerOf(kcdata_iter_t iter) {
  return readRecord<darwin::kcdata_item>(iter.item, bytesLeft(iter));
}

kcdata_iter_t kcdata_iter(const void *begin, const void *end) {
  return {static_cast<const uint8_t *>(begin), static_cast<const uint8_t *>(end)};
}

kcdata_iter_t kcdata_iter_next(kcdata_iter_t iter) {
  if (!kcdata_iter_valid(iter)) return {iter.end, iter.end};
  return {iter.item + sizeof(darwin::kcdata_item) + headerOf(iter).size, iter.end};
}

bool kcdata_iter_valid(kcdata_iter_t iter) {
  const size_t left = bytesLeft(iter);
  return left >= sizeof(darwin::kcdata_item) &&
         headerOf(iter).size <= left - sizeof(darwin::kcdata_item);
}

static bool recordsFiller(uint32_t type) {
  return type >= darwin::KCDATA_TYPE_ARRAY_PAD0 && type <= darwin::KCDATA_TYPE_ARRAY_PADf;
}

uint32_t kcdata_iter_type(kcdata_iter_t iter) {
  const uint32_t type = headerOf(iter).type;
  return recordsFiller(type) ? darwin::KCDATA_TYPE_ARRAY : type;
}

uint32_t kcdata_iter_size(kcdata_iter_t iter) {
  return headerOf(iter).size;
}

uint32_t kcdata_iter_array_elem_type(kcdata_iter_t iter) {
  return static_cast<uint32_t>(headerOf(iter).flags >> 32);
}

uint32_t kcdata_iter_array_elem_count(kcdata_iter_t iter) {
  return static_cast<uint32_t>(headerOf(iter).flags);
}

uint32_t kcdata_iter_array_filler(kcdata_iter_t iter) {
  const uint32_t type = headerOf(iter).type;
  return recordsFiller(type) ? type - darwin::KCDATA_TYPE_ARRAY_PAD0 : 0;
}

uint32_t kcdata_iter_container_type(kcdata_iter_t iter) {
  const uint8_t *payload = kcdata_iter_payload(iter);
  const size_t inBuffer = static_cast<size_t>(iter.end - payload);
  return readRecord<uint32_t>(payload, std::min<size_t>(inBuffer, kcdata_iter_size(iter)));
}

const uint8_t *kcdata_iter_payload(kcdata_iter_t iter) {
  return iter.item + std::min(bytesLeft(iter), sizeof(darwin::kcdata_item));
}

}  // namespace sondex
