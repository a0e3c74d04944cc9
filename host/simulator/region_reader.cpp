#include "host/simulator/region_reader.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "host/darwin/proc_info.h"
#include "host/simulator/loading.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

constexpr int64_t kMostRegionsOfOne = 65'536;
constexpr uint64_t kRegionUnit = 4096;

constexpr Word kRegionFlags[] = {{"submap", darwin::PROC_REGION_SUBMAP},
                                 {"shared", darwin::PROC_REGION_SHARED}};
constexpr Word kShareModes[] = {{"cow", darwin::SM_COW},
                                {"private", darwin::SM_PRIVATE},
                                {"empty", darwin::SM_EMPTY},
                                {"shared", darwin::SM_SHARED},
                                {"true-shared", darwin::SM_TRUESHARED},
                                {"private-aliased", darwin::SM_PRIVATE_ALIASED},
                                {"shared-aliased", darwin::SM_SHARED_ALIASED},
                                {"large-page", darwin::SM_LARGE_PAGE}};

constexpr FigureKey<Region> kFigures[] = {
    {"resident", &Region::resident, Unit::kCount},
    {"private-resident", &Region::privateResident, Unit::kCount},
    {"shared-resident", &Region::sharedResident, Unit::kCount},
    {"shared-now-private", &Region::sharedNowPrivate, Unit::kCount},
    {"swapped", &Region::swappedOut, Unit::kCount},
    {"dirty", &Region::dirty, Unit::kCount},
};

uint32_t readProtection(const Field &field) {
  constexpr std::string_view kLetters = "rwx";
  const std::string *text = field.as<std::string>();
  uint32_t protection = 0;
  bool isFine = text != nullptr && text->size() == kLetters.size();
  for (size_t i = 0; isFine && i < kLetters.size(); i++) {
    if ((*text)[i] == kLetters[i]) {
      protection |= 1u << i;
    } else if ((*text)[i] != '-') {
      isFine = false;
    }
  }
  if (!isFine) field.fail("a text such as \"r-x\"");
  return protection;
}

uint64_t readGap(const Field &field) {
  const uint64_t gap = field.size();
  if (gap % kRegionUnit != 0) field.fail("a multiple of 4096");
  return gap;
}

// A kernel may have any 64 bits there.
uint64_t readOffset(const Field &field) {
  const std::string *text = field.as<std::string>();
  return text != nullptr && text->starts_with("0x") ? field.address() : field.size();
}

// Where an item is to be, and its entry.
struct Position {
  uint64_t address;
  size_t entry;
};

std::vector<Position> positionsOf(const std::vector<RegionEntry> &entries) {
  std::vector<Position> positions;
  for (size_t i = 0; i < entries.size(); i++) {
    uint64_t address = entries[i].item.address;
    for (int64_t copy = 0; copy < entries[i].copies; copy++) {
      positions.push_back({address, i});
      address += entries[i].item.size + entries[i].gap;
    }
  }
  std::sort(positions.begin(), positions.end(), [](const Position &a, const Position &b) {
    return a.address != b.address ? a.address < b.address : a.entry < b.entry;
  });
  return positions;
}

// Of two that overlap, told about is the one that the reader of the file comes upon last.
void checkApart(const std::vector<RegionEntry> &entries, const Position &lower,
                const Position &upper) {
  const RegionEntry &first = entries[lower.entry];
  const RegionEntry &second = entries[upper.entry];
  if (lower.address + first.item.size <= upper.address) return;
  failAt(second.place.line >= first.place.line ? second.place : first.place,
         "overlaps another region", "regions apart from one another");
}

// In the order in which they lie in the region.
void readPieces(TableReader &of, Region &region) {
  const Field field = of.find("pieces");
  if (!field) return;
  if (!region.contents.empty()) field.fail("found `pieces` beside `contents`", "one of the two");
  uint64_t end = 0;
  for (const Field &element : field.elements()) {
    TableReader reader(element);
    MemoryPiece piece;
    reader.size("at", piece.offset);
    const Field bytes = reader.require("bytes", "pairs of hexadecimal digits");
    piece.bytes = bytes.bytes();
    if (piece.offset < end)
      element.fail("begins before the end of the one before it", "one behind");
    if (piece.offset > region.size || piece.bytes.size() > region.size - piece.offset) {
      bytes.fail("found more bytes than the region has", "at most its size");
    }
    reader.finish();
    end = piece.offset + piece.bytes.size();
    if (!piece.bytes.empty()) region.pieces.push_back(std::move(piece));
  }
}

}  // namespace

RegionEntry readRegion(const Field &field) {
  TableReader reader(field);
  RegionEntry entry;
  Region &region = entry.item;
  entry.place = field.place();
  const Field address = reader.require("address", "a number");
  region.address = address.number<uint64_t>();
  if (region.address % kRegionUnit != 0) address.fail("a multiple of 4096");
  const Field size = reader.require("size", "a size");
  region.size = size.size();
  if (region.size == 0 || region.size % kRegionUnit != 0) size.fail("a multiple of 4096, above 0");
  reader.number("copies", entry.copies, 1, kMostRegionsOfOne);
  reader.read("gap", entry.gap, readGap);
  const Wide end = Wide{region.address} + (Wide{region.size} + entry.gap) * entry.copies;
  if (end > Wide{kLargestNumber}) {
    address.fail("found a region that ends beyond 2 to 63", "one below");
  }
  reader.read("protection", region.protection, readProtection);
  reader.read("largest", region.largestProtection, readProtection);
  reader.number("inheritance", region.inheritance);
  reader.number("tag", region.tag);
  reader.number("references", region.references);
  reader.number("depth", region.depth);
  reader.number("object", region.object);
  reader.number("behaviour", region.behaviour);
  reader.number("wired", region.wiredCount);
  reader.number("shadow", region.shadowDepth);
  reader.read("offset", region.offset, readOffset);
  reader.severalOf("flags", region.flags, kRegionFlags);
  reader.oneOf("share", region.shareMode, kShareModes);
  reader.figures(kFigures, region);
  readText(reader.find("path"), kLongestPath, region, entry.patterns, &Region::path);
  if (const Field contents = reader.find("contents")) {
    region.contents = contents.bytes();
    if (region.contents.size() > region.size) {
      contents.fail("found more bytes than the region has", "at most its size");
    }
  }
  readPieces(reader, region);
  reader.flag("readable", region.isReadable);
  reader.finish();
  return entry;
}

size_t textBytes(const Region &region) {
  size_t bytes = textBytes(region.path) + region.contents.size();
  for (const MemoryPiece &piece : region.pieces) bytes += sizeof piece + piece.bytes.size();
  return bytes;
}

void makeRegions(Items<RegionEntry> &regions) {
  const std::vector<Position> positions = positionsOf(regions.entries);
  for (size_t i = 0; i < positions.size(); i++) {
    if (i > 0) checkApart(regions.entries, positions[i - 1], positions[i]);
    regions.items.push_back(regions.entries[positions[i].entry].item);
    regions.items.back().address = positions[i].address;
    regions.entryOf.push_back(positions[i].entry);
  }
}

}  // namespace host::simulator
