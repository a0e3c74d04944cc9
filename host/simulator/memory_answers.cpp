#include "host/simulator/memory_answers.h"
#include "darwin/mach_vm.h"
#include "host/darwin/errors.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace host::simulator {

namespace {

constexpr uint32_t kMayRead = 1;

// What the region that holds `address` has from there on; 0 where nothing may be read.
size_t readableFrom(const RunningProcess &process, uint64_t address) {
  const Region *region = process.region(address);
  if (region == nullptr || region->address > address) return 0;
  if (!region->isReadable || (region->protection & kMayRead) == 0) return 0;
  return region->address + region->size - address;
}

// The first that does not end at or before the offset.
std::vector<MemoryPiece>::const_iterator firstPiece(const Region &region, uint64_t offset) {
  return std::partition_point(
      region.pieces.begin(), region.pieces.end(),
      [offset](const MemoryPiece &piece) { return piece.offset + piece.bytes.size() <= offset; });
}

void copyPieces(const Region &region, uint64_t offset, size_t size, uint8_t *to) {
  const uint64_t end = offset + size;
  for (auto piece = firstPiece(region, offset); piece != region.pieces.end() && piece->offset < end;
       ++piece) {
    const uint64_t from = std::max(piece->offset, offset);
    const uint64_t stop = std::min(piece->offset + piece->bytes.size(), end);
    std::memcpy(to + (from - offset), piece->bytes.data() + (from - piece->offset), stop - from);
  }
}

// The contents begin anew at each multiple of their length.
void copyContents(const Region &region, uint64_t offset, size_t size, uint8_t *to) {
  const std::vector<uint8_t> &contents = region.contents;
  if (contents.empty()) {
    std::memset(to, 0, size);
    copyPieces(region, offset, size, to);
    return;
  }
  size_t from = offset % contents.size();
  while (size > 0) {
    const size_t length = std::min(size, contents.size() - from);
    std::memcpy(to, contents.data() + from, length);
    to += length;
    size -= length;
    from = 0;
  }
}

bool hasPieceBetween(const Region &region, uint64_t start, uint64_t end) {
  const uint64_t from = start > region.address ? start - region.address : 0;
  const auto piece = firstPiece(region, from);
  return piece != region.pieces.end() && piece->offset < end - region.address;
}

// Of what the region has between two addresses, the second of which is in it or beyond.
int dispositionOf(const Region &region, uint64_t start, uint64_t end) {
  if (!region.path.empty()) return darwin::VM_PAGE_QUERY_PAGE_EXTERNAL;
  const bool isThere =
      !region.contents.empty() || !region.isReadable || hasPieceBetween(region, start, end);
  return isThere ? darwin::VM_PAGE_QUERY_PAGE_PRESENT : 0;
}

// A thread that is said to be somewhere, but not in which instruction, is in its innermost call.
uint64_t programCounterOf(const Thread &thread) {
  const uint64_t given = thread.registers.programCounter;
  return given == 0 && !thread.userStack.empty() ? thread.userStack.front() : given;
}

darwin::arm_thread_state64_t wideState(const Thread &thread) {
  const Registers &from = thread.registers;
  darwin::arm_thread_state64_t state{};
  std::copy_n(from.general.begin(), std::min(from.general.size(), std::size(state.__x)), state.__x);
  state.__fp = from.framePointer;
  state.__lr = from.link;
  state.__sp = from.stackPointer;
  state.__pc = programCounterOf(thread);
  state.__cpsr = from.status;
  return state;
}

darwin::arm_thread_state32_t narrowState(const Thread &thread) {
  const Registers &from = thread.registers;
  darwin::arm_thread_state32_t state{};
  const size_t count = std::min(from.general.size(), std::size(state.__r));
  for (size_t i = 0; i < count; ++i) state.__r[i] = static_cast<uint32_t>(from.general[i]);
  state.__sp = static_cast<uint32_t>(from.stackPointer);
  state.__lr = static_cast<uint32_t>(from.link);
  state.__pc = static_cast<uint32_t>(programCounterOf(thread));
  state.__cpsr = from.status;
  return state;
}

}  // namespace

ThreadRegisters registersOf(const RunningProcess &process, const Thread &thread) {
  if (process.description().is64Bit) return wideState(thread);
  return narrowState(thread);
}

Errno copyMemory(const RunningProcess &process, uint64_t address, size_t size, void *to) {
  if (size > UINT64_MAX - address) return darwin::DARWIN_EFAULT;
  const uint64_t end = address + size;
  for (uint64_t at = address; at < end;) {
    const size_t readable = readableFrom(process, at);
    if (readable == 0) return darwin::DARWIN_EFAULT;
    at += std::min<uint64_t>(readable, end - at);
  }
  auto *bytes = static_cast<uint8_t *>(to);
  for (uint64_t at = address; at < end;) {
    const Region &region = *process.region(at);
    const uint64_t length = std::min(region.address + region.size, end) - at;
    copyContents(region, at - region.address, length, bytes);
    bytes += length;
    at += length;
  }
  return kAnswered;
}

void tellPages(const RunningProcess &process, uint64_t address, size_t count, uint64_t pageSize,
               int *to) {
  for (size_t i = 0; i < count; i++, address += pageSize) {
    to[i] = 0;
    const Region *region = process.region(address);
    while (region != nullptr && region->address < address + pageSize) {
      to[i] |= dispositionOf(*region, address, address + pageSize);
      region = process.region(region->address + region->size);
    }
  }
}

}  // namespace host::simulator
