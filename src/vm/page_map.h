// Which pages of a task nobody has touched, as the kernel tells: they are zeros, and need not be
// read to know that.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "darwin/mach_vm.h"

namespace sondex {

struct PageMap {
  darwin::mach_port_t task;
  uint64_t pageSize;  // in bytes; 0: nothing is told
  int *pages;         // on the heap: what is known of those that were asked about last
  uint64_t start;     // of the first of them
  size_t count;
};

// Memory all of which is one or the other.
struct PageRun {
  uint64_t size;
  bool isUntouched;
};

// Makes ready to ask about a task, whose port stays the caller's. Without memory for the answers
// nothing is known of any page.
void openPageMap(PageMap *map, darwin::mach_port_t task);

// Tells how memory of the task begins that has `size` bytes from `address` on and that the kernel
// fills with zeros: with at least a byte, and at most all of it, that is untouched or is to be
// read. Where the kernel refuses to tell or tells of other pages than it was asked about, all is to
// be read; and so are short stretches that are not worth another read.
PageRun pageRunAt(PageMap *map, uint64_t address, uint64_t size);

void closePageMap(PageMap *map);

}  // namespace sondex
