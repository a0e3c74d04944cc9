// The parser of stackshots on any bytes. The first byte says how to print, the rest is the buffer,
// which stands right before the end of its memory.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kcdata/iterator.h"
#include "kcdata/parser.h"

namespace {

constexpr size_t kLongestOutput = 64 << 20;

// What was printed since the stream was opened must be fit for a terminal.
void checkPrinted(const char *text, size_t size) {
  for (size_t i = 0; i < size; i++) {
    const unsigned char byte = static_cast<unsigned char>(text[i]);
    if ((byte < ' ' && byte != '\n' && byte != '\t') || byte == 0x7F) std::abort();
  }
}

void checkItems(const uint8_t *begin, const uint8_t *end) {
  sondex::kcdata_iter_t iter = sondex::kcdata_iter(begin, end);
  while (sondex::kcdata_iter_valid(iter)) {
    const sondex::kcdata_iter_t next = sondex::kcdata_iter_next(iter);
    if (next.item <= iter.item || next.item > end) std::abort();
    iter = next;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const uint32_t printFlags = data[0] & 3u;
  const uint32_t threadsOnly = data[0] >> 2 & 1u;
  const size_t length = size - 1;
  uint8_t *buffer = static_cast<uint8_t *>(std::malloc(length));
  if (buffer == nullptr) return 0;
  if (length != 0) std::memcpy(buffer, data + 1, length);

  checkItems(buffer, buffer + length);
  char *printed = nullptr;
  size_t printedSize = 0;
  std::FILE *const terminal = stdout;
  stdout = open_memstream(&printed, &printedSize);
  if (stdout != nullptr) {
    sondex::parse_stackshot(buffer, length, printFlags, threadsOnly);
    std::fclose(stdout);
    if (printedSize > kLongestOutput) std::abort();
    checkPrinted(printed, printedSize);
    std::free(printed);
  }
  stdout = terminal;
  std::free(buffer);
  return 0;
}
