#include "capture/memory_capture.h"

#include <string.h>

#include "capture/device_file_writer.h"
#include "darwin/mach_vm.h"
#include "terminal/ending.h"
#include "vm/page_map.h"
#include "vm/task_memory.h"

namespace sondex {

constexpr uint32_t kPage = 4096;  // what is zeros is left out by so many bytes
constexpr uint32_t kBatch = 64 * kPage;

constexpr uint64_t kMostMemory = uint64_t{64} << 20;  // in two letters each

static uint64_t g_written;  // bytes

bool isMemoryTooMuch() {
  return g_written > kMostMemory;
}

static bool isZeros(const uint8_t *bytes, size_t size) {
  return bytes[0] == 0 && memcmp(bytes, bytes + 1, size - 1) == 0;
}

// A piece goes on until a page of zeros.
struct Pieces {
  bool areOpen;  // the array
  bool isOpen;   // a piece
};

static void addPage(Pieces *pieces, uint64_t offset, const uint8_t *bytes, size_t size) {
  if (isZeros(bytes, size)) {
    if (!pieces->isOpen) return;
    endBytes();
    endInlineTable();
    pieces->isOpen = false;
    return;
  }
  if (!pieces->areOpen) beginArray("pieces");
  pieces->areOpen = true;
  if (!pieces->isOpen) {
    beginInlineTable(nullptr);
    if (offset != 0) writeNumber("at", static_cast<int64_t>(offset));
    beginBytes("bytes");
    pieces->isOpen = true;
  }
  addBytes(bytes, size);
  g_written += size;
}

static void endPieces(Pieces *pieces) {
  if (pieces->isOpen) {
    endBytes();
    endInlineTable();
  }
  if (pieces->areOpen) endArray();
}

static uint32_t smaller(uint64_t a, uint32_t b) {
  return a < b ? static_cast<uint32_t>(a) : b;
}

// What can't be read up to the end of the region is zeros.
static bool addMemory(darwin::mach_port_t task, const darwin::proc_regioninfo *region,
                      Pieces *pieces) {
  static uint8_t batch[kBatch];
  bool isReadable = true;
  PageMap map;
  openPageMap(&map, task);
  PageRun run = {0, false};
  for (uint64_t at = 0; at < region->pri_size && !isMemoryTooMuch() && reasonToEnd() == 0;) {
    if (run.size == 0) run = pageRunAt(&map, region->pri_address + at, region->pri_size - at);
    const uint32_t size = smaller(run.size, kBatch);
    uint32_t copied = 0;
    memset(batch, 0, size);
    if (!run.isUntouched && copyTaskMemory(task, region->pri_address + at, batch, size, &copied) !=
                                darwin::KERN_SUCCESS) {
      isReadable = at != 0;
      break;
    }
    for (uint32_t page = 0; page < size; page += kPage) {
      addPage(pieces, at + page, batch + page, smaller(size - page, kPage));
    }
    at += size;
    run.size -= size;
  }
  closePageMap(&map);
  return isReadable;
}

void writeContents(darwin::mach_port_t task, const darwin::proc_regioninfo *region) {
  if ((region->pri_protection & darwin::VM_PROT_READ) == 0) return;
  Pieces pieces = {};
  const bool isReadable = addMemory(task, region, &pieces);
  endPieces(&pieces);
  if (!isReadable) writeFlag("readable", false);
}

}  // namespace sondex
