// The parser of stackshots on any bytes. The first byte says how to print, the rest is the buffer,
// which stands right before the end of its memory.
#include <cstring>

#include "fuzz/kcdata_printing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const size_t length = size - 1;
  uint8_t *buffer = static_cast<uint8_t *>(std::malloc(length));
  if (buffer == nullptr) return 0;
  if (length != 0) std::memcpy(buffer, data + 1, length);
  fuzz::printChecked(buffer, length, data[0]);
  std::free(buffer);
  return 0;
}
