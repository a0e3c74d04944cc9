#include "vm/page_map.h"

#include <stdlib.h>
#include <string.h>

#include "state/system.h"

namespace sondex {

constexpr size_t kMostPages = 65536;

// To skip less costs more than to read it.
constexpr uint64_t kShortestUntouched = 16384;

void openPageMap(PageMap *map, darwin::mach_port_t task) {
  *map = {};
  map->task = task;
  if (mach_vm_page_range_query_funcptr == nullptr) return;
  map->pages = static_cast<int *>(malloc(kMostPages * sizeof *map->pages));
  darwin::vm_size_t size = 0;
  if (map->pages != nullptr && darwin::host_page_size(host_self, &size) == darwin::KERN_SUCCESS) {
    map->pageSize = size;
  }
}

void closePageMap(PageMap *map) {
  free(map->pages);
}

static void ask(PageMap *map, uint64_t address, uint64_t size) {
  const uint64_t before = address % map->pageSize;
  const uint64_t most = kMostPages * map->pageSize;
  const uint64_t wanted = before + size < most ? before + size : most;
  map->start = address - before;
  map->count = static_cast<size_t>((wanted + map->pageSize - 1) / map->pageSize);
  darwin::mach_vm_size_t told = map->count;
  const darwin::kern_return_t answer = mach_vm_page_range_query_funcptr(
      map->task, map->start, map->count * map->pageSize,
      reinterpret_cast<darwin::mach_vm_address_t>(map->pages), &told);
  if (answer == darwin::KERN_SUCCESS && told == map->count) return;
  memset(map->pages, 0xFF, map->count * sizeof *map->pages);  // all is to be read
}

// How many pages in a row are untouched; 0 for too few of them.
static size_t countUntouched(const PageMap *map, size_t from) {
  size_t end = from;
  while (end < map->count && map->pages[end] == 0) end++;
  return (end - from) * map->pageSize < kShortestUntouched ? 0 : end - from;
}

PageRun pageRunAt(PageMap *map, uint64_t address, uint64_t size) {
  if (map->pageSize == 0) return {size, false};
  if (address - map->start >= map->count * map->pageSize) ask(map, address, size);
  const size_t first = static_cast<size_t>((address - map->start) / map->pageSize);
  size_t end = first + countUntouched(map, first);
  const bool isUntouched = end > first;
  while (!isUntouched && end < map->count && countUntouched(map, end) == 0) end++;
  const uint64_t length = end * map->pageSize - (address - map->start);
  return {length < size ? length : size, isUntouched};
}

}  // namespace sondex
