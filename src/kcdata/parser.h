// Prints a stackshot: a line for each item of its chunked data, indented by the containers that it
// is in. A few payloads are decoded, the others are only named. All of it is written to standard
// output, whose stream knows about errors, when a function returns.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace sondex {

// One element of an array, or a whole payload. Nothing behind its bytes is read: words that are
// missing there are 0, and a text ends there.
struct KcdataElement {
  const uint8_t *bytes;
  size_t size;
};

// The most bytes that parse_stackshot() prints for each byte of a buffer, whatever is in it. Tests
// and fuzzers hold it to that.
constexpr size_t kMostPrintedPerByte = 32;

// Prints the `size` bytes of `buffer` to standard output; the first item, which opens the buffer,
// is left out. `print_flags` has the bits of type_names.h. With `threads_only` not 0, only what is
// in containers of threads is printed.
void parse_stackshot(const void *buffer, size_t size, uint32_t print_flags, uint32_t threads_only);

// Prints the payload of the item that starts at `item`, as far as it lies before `end`, where the
// buffer ends.
void kcdata_payload_to_text(const uint8_t *item, const uint8_t *end, uint32_t print_flags);

// Prints one element. Returns the bytes from its start to the next element's, which may be more
// than it has; 0 when it has no successor.
size_t dumpElem(KcdataElement element, uint32_t type);

}  // namespace sondex
