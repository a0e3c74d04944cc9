// Walks the items of a chunked-data buffer. The buffer may hold anything: what lies past its end is
// never read, and words that are missing there are 0.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace sondex {

// The record at the start of the `size` bytes at `bytes`.
template <typename Record>
Record readRecord(const uint8_t *bytes, size_t size) {
  Record record = {};
  if (size >= sizeof record) {
    memcpy(&record, bytes, sizeof record);  // nearly always: no call, as the size is known
  } else if (size != 0) {
    memcpy(&record, bytes, size);
  }
  return record;
}

// A place in a buffer, which has to outlive it.
struct kcdata_iter_t {
  const uint8_t *item;
  const uint8_t *end;
};

// The first item of the bytes from `begin` up to `end`.
kcdata_iter_t kcdata_iter(const void *begin, const void *end);

// The item behind this one; the end of the buffer behind an item that is not valid.
kcdata_iter_t kcdata_iter_next(kcdata_iter_t iter);

// Whether header and payload of the item lie within the buffer.
bool kcdata_iter_valid(kcdata_iter_t iter);

// The item's type; KCDATA_TYPE_ARRAY for every kind of array.
uint32_t kcdata_iter_type(kcdata_iter_t iter);

// Payload bytes, as the header says.
uint32_t kcdata_iter_size(kcdata_iter_t iter);

// Of an array.
uint32_t kcdata_iter_array_elem_type(kcdata_iter_t iter);
uint32_t kcdata_iter_array_elem_count(kcdata_iter_t iter);

// Bytes behind the last element of an array; 0 where that is not recorded.
uint32_t kcdata_iter_array_filler(kcdata_iter_t iter);

// Of a container's begin.
uint32_t kcdata_iter_container_type(kcdata_iter_t iter);

// The payload, or the end of the buffer when not even the header lies within it.
const uint8_t *kcdata_iter_payload(kcdata_iter_t iter);

}  // namespace sondex
