// Fixups as chains: each pointer holds its own target and the distance to the next one of its page.
#include <cstddef>

#include "fixups.h"

namespace loader {

namespace {

struct ChainsHeader {
  uint32_t version;
  uint32_t startsOffset;
  uint32_t importsOffset;
  uint32_t namesOffset;
  uint32_t importCount;
  uint32_t importFormat;
  uint32_t namesFormat;
};

struct SegmentStarts {
  uint32_t size;
  uint16_t pageSize;
  uint16_t pointerFormat;
  uint64_t distance;  // of the segment from the header
  uint32_t largestPointer;
  uint16_t pageCount;
  uint16_t firstPageStart;
};
static_assert(sizeof(SegmentStarts) == 24);
constexpr uint64_t kPageStarts = offsetof(SegmentStarts, firstPageStart);

constexpr uint16_t kNoStart = 0xFFFF;
constexpr uint16_t kSeveralStarts = 0x8000;

// How a pointer is written: its target is an address, or a distance from the header.
constexpr uint16_t kAddressFormat = 2;
constexpr uint16_t kDistanceFormat = 6;
constexpr uint64_t kNextUnit = 4;

constexpr uint32_t kPlainImports = 1;
constexpr uint32_t kImportsWithAddend = 2;
constexpr uint32_t kImportsWithLongAddend = 3;
constexpr uint32_t kPlainNames = 0;

uint64_t bitsOf(uint64_t value, unsigned lowest, unsigned count) {
  return value >> lowest & ((uint64_t{1} << count) - 1);
}

struct Import {
  std::string_view symbol;
  int64_t addend = 0;
  bool mayBeMissing = false;
};

Import readImport(const FileBytes &list, uint32_t number, uint32_t format, const FileBytes &names) {
  switch (format) {
    case kPlainImports: {
      const uint32_t raw = list.read<uint32_t>(number * 4ull);
      return {names.text(bitsOf(raw, 9, 23)), 0, bitsOf(raw, 8, 1) != 0};
    }
    case kImportsWithAddend: {
      const uint32_t raw = list.read<uint32_t>(number * 8ull);
      return {names.text(bitsOf(raw, 9, 23)), list.read<int32_t>(number * 8ull + 4),
              bitsOf(raw, 8, 1) != 0};
    }
    case kImportsWithLongAddend: {
      const uint64_t raw = list.read<uint64_t>(number * 16ull);
      return {names.text(bitsOf(raw, 32, 32)), list.read<int64_t>(number * 16ull + 8),
              bitsOf(raw, 16, 1) != 0};
    }
    default:
      throw LoadError("fixup chains with an unknown form of imports");
  }
}

std::vector<Import> readImports(const FileBytes &chains, const ChainsHeader &header) {
  if (header.namesFormat != kPlainNames) throw LoadError("fixup chains with packed names");
  const FileBytes list = chains.from(header.importsOffset);
  const FileBytes names = chains.from(header.namesOffset);
  std::vector<Import> imports;
  for (uint32_t i = 0; i < header.importCount; i++) {
    imports.push_back(readImport(list, i, header.importFormat, names));
  }
  return imports;
}

class Chains {
 public:
  Chains(const FileBytes &file, const Image &image, std::vector<Import> imports, Fixups &fixups)
      : file_(file), image_(image), imports_(std::move(imports)), fixups_(fixups) {}

  void followSegment(const FileBytes &starts) {
    const auto segment = starts.read<SegmentStarts>(0);
    if (segment.pointerFormat != kAddressFormat && segment.pointerFormat != kDistanceFormat) {
      throw LoadError("fixup chains with an unknown form of pointers");
    }
    for (uint32_t page = 0; page < segment.pageCount; page++) {
      const uint16_t start = starts.read<uint16_t>(kPageStarts + page * sizeof(uint16_t));
      if (start == kNoStart) continue;
      if ((start & kSeveralStarts) != 0) throw LoadError("a page with several fixup chains");
      follow(image_.start + segment.distance + uint64_t{page} * segment.pageSize + start,
             segment.pointerFormat == kDistanceFormat);
    }
  }

 private:
  // Ends, as each step leads on and the data end.
  void follow(uint64_t address, bool hasDistances) {
    for (;;) {
      const uint64_t raw = pointerInFile(file_, image_, address);
      const bool isBind = bitsOf(raw, 63, 1) != 0;
      if (isBind) {
        bind(address, raw);
      } else {
        // The highest byte of the target is kept apart.
        const uint64_t target = bitsOf(raw, 0, 36) | bitsOf(raw, 36, 8) << 56;
        fixups_.rebases.push_back({address, hasDistances ? image_.start + target : target});
      }
      checkCount(image_, fixups_);
      const uint64_t next = bitsOf(raw, 51, 12);
      if (next == 0) return;
      address += next * kNextUnit;
    }
  }

  void bind(uint64_t address, uint64_t raw) {
    const uint64_t number = bitsOf(raw, 0, 24);
    if (number >= imports_.size()) throw LoadError("a fixup chain names an import too many");
    const Import &import = imports_[number];
    const uint64_t addend = static_cast<uint64_t>(import.addend) + bitsOf(raw, 24, 8);
    fixups_.binds.push_back(
        {address, import.symbol, static_cast<int64_t>(addend), import.mayBeMissing});
  }

  const FileBytes &file_;
  const Image &image_;
  std::vector<Import> imports_;
  Fixups &fixups_;
};

}  // namespace

void readFixupChains(const FileBytes &file, const Image &image, FilePart part, Fixups &fixups) {
  const FileBytes chains = file.part(part);
  const auto header = chains.read<ChainsHeader>(0);
  if (header.version != 0) throw LoadError("fixup chains of an unknown version");
  const FileBytes starts = chains.from(header.startsOffset);
  Chains followed(file, image, readImports(chains, header), fixups);
  const uint32_t segments = starts.read<uint32_t>(0);
  if (segments > image.segments.size()) throw LoadError("fixup chains for a segment too many");
  for (uint32_t i = 0; i < segments; i++) {
    const uint32_t offset = starts.read<uint32_t>(4 + i * 4ull);
    if (offset != 0) followed.followSegment(starts.from(offset));
  }
}

}  // namespace loader
