// The parser of stackshots on large buffers, made of few bytes: the first byte says how to print
// and how large, the others are the start of the buffer, of which the last ones are repeated to its
// end.
#include <algorithm>
#include <cstring>

#include "fuzz/kcdata_printing.h"

namespace {

// By the bits 3 and 4 of the first byte.
constexpr size_t kSizes[] = {16 << 10, 64 << 10, 256 << 10, 1 << 20};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) return 0;
  const size_t given = size - 1;
  // So many bytes are repeated, by the three highest bits.
  const size_t period = std::min(size_t{1} << (data[0] >> 5), given);
  const size_t length = std::max(given, kSizes[data[0] >> 3 & 3]);
  uint8_t *buffer = static_cast<uint8_t *>(std::malloc(length));
  if (buffer == nullptr) return 0;
  std::memcpy(buffer, data + 1, given);
  for (size_t i = given; i < length; i++) buffer[i] = buffer[i - period];
  fuzz::printChecked(buffer, length, data[0]);
  std::free(buffer);
  return 0;
}
