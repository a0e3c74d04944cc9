#include "image.h"

#include <algorithm>
#include <cstring>

#include "darwin/macho.h"
#include "host/darwin/mach_vm.h"

namespace loader {

namespace {

constexpr uint32_t kExecutable = 2;
constexpr uint32_t kPositionIndependent = 0x200000;

// Commands with this bit are not to be passed over by a loader that does not know them.
constexpr uint32_t kRequired = 0x80000000;
constexpr uint32_t kLoadLibrary = 0xC;
constexpr uint32_t kLoadWeakLibrary = 0x18 | kRequired;
constexpr uint32_t kFixupPrograms = 0x22;
constexpr uint32_t kMain = 0x28 | kRequired;
constexpr uint32_t kExports = 0x33 | kRequired;
constexpr uint32_t kFixupChains = 0x34 | kRequired;

constexpr uint32_t kReadOnlyOnceFixed = 0x10;  // of a segment's flags

constexpr uint32_t kSectionType = 0xFF;
constexpr uint32_t kInitialiserPointers = 0x9;
constexpr uint32_t kInitialiserDistances = 0x16;
constexpr uint32_t kFirstThreadLocal = 0x11;
constexpr uint32_t kLastThreadLocal = 0x15;

// Of the device, whatever this machine's are.
constexpr uint64_t kPage = 0x4000;
// More than any program here has; keeps what a wrong file can ask for small.
constexpr uint64_t kLargestImage = 64 << 20;

struct LoadCommand {
  uint32_t command;
  uint32_t size;
};

struct Section {
  char name[16];
  char segment[16];
  uint64_t address;
  uint64_t size;
  uint32_t offset;
  uint32_t alignment;
  uint32_t relocations;
  uint32_t relocationCount;
  uint32_t flags;
  uint32_t reserved[3];
};
static_assert(sizeof(Section) == 80);

struct FixupProgramsCommand {
  LoadCommand head;
  uint32_t rebaseOffset, rebaseSize;
  uint32_t bindOffset, bindSize;
  uint32_t weakBindOffset, weakBindSize;
  uint32_t lazyBindOffset, lazyBindSize;
  uint32_t exportOffset, exportSize;
};
static_assert(sizeof(FixupProgramsCommand) == 48);

struct MainCommand {
  LoadCommand head;
  uint64_t offset;
  uint64_t stackSize;
};

struct DataCommand {
  LoadCommand head;
  uint32_t offset;
  uint32_t size;
};

struct LibraryCommand {
  LoadCommand head;
  uint32_t nameOffset;
};

std::string nameOf(const char (&name)[16]) {
  return {name, strnlen(name, sizeof name)};
}

void addInitialisers(const Section &section, Image &image) {
  const uint32_t type = section.flags & kSectionType;
  if (type >= kFirstThreadLocal && type <= kLastThreadLocal) {
    throw LoadError("variables of a thread's own are not supported");
  }
  if (type != kInitialiserPointers && type != kInitialiserDistances) return;
  const bool areDistances = type == kInitialiserDistances;
  if (segmentOf(image, section.address, section.size) == nullptr) {
    throw LoadError("initialisers outside of all segments");
  }
  image.initialisers.push_back(
      {section.address, section.size / (areDistances ? 4 : 8), areDistances});
}

void checkSegment(const Segment &segment, const Image &image) {
  const bool isAligned = segment.address % kPage == 0;
  const bool fits = segment.size <= kLargestImage && segment.content.size <= segment.size &&
                    segment.address <= UINT64_MAX - kLargestImage;
  // In the order of their addresses: so none can lie upon another.
  const bool follows = image.end == 0 || segment.address >= image.end;
  if (!isAligned || !fits || !follows ||
      (image.end != 0 && segment.address + segment.size - image.start > kLargestImage)) {
    throw LoadError("segment " + segment.name + " is misplaced");
  }
  if (segment.isWritable && segment.isExecutable) {
    throw LoadError("segment " + segment.name + " is writable and executable");
  }
}

void addSegment(const FileBytes &file, const FileBytes &command, Image &image) {
  const auto raw = command.read<darwin::segment_command_64>(0);
  Segment segment;
  segment.name = nameOf(raw.segname);
  // The unmapped start of the address space keeps its number.
  if (raw.initprot == 0 && raw.filesize == 0 && image.end == 0) {
    image.segments.push_back(segment);
    return;
  }
  segment.address = raw.vmaddr;
  segment.size = raw.vmsize;
  segment.content = {raw.fileoff, raw.filesize};
  segment.isWritable = (raw.initprot & darwin::VM_PROT_WRITE) != 0;
  segment.isExecutable = (raw.initprot & darwin::VM_PROT_EXECUTE) != 0;
  segment.isConstantOnceFixed = (raw.flags & kReadOnlyOnceFixed) != 0;
  checkSegment(segment, image);
  (void)file.part(segment.content);
  if (image.end == 0) {
    if (raw.fileoff != 0) throw LoadError("the first segment does not hold the header");
    image.start = segment.address;
  }
  image.end = segment.address + (segment.size + kPage - 1) / kPage * kPage;
  image.segments.push_back(segment);
  for (uint32_t i = 0; i < raw.nsects; i++) {
    addInitialisers(command.read<Section>(sizeof raw + i * sizeof(Section)), image);
  }
}

void addCommand(const FileBytes &file, const FileBytes &command, uint32_t kind, Image &image) {
  switch (kind) {
    case darwin::LC_SEGMENT_64:
      addSegment(file, command, image);
      break;
    case kLoadLibrary:
    case kLoadWeakLibrary:
      image.libraries.emplace_back(command.text(command.read<LibraryCommand>(0).nameOffset));
      break;
    case kFixupPrograms:
    case kFixupPrograms | kRequired: {
      const auto raw = command.read<FixupProgramsCommand>(0);
      image.programs = {{raw.rebaseOffset, raw.rebaseSize},
                        {raw.bindOffset, raw.bindSize},
                        {raw.weakBindOffset, raw.weakBindSize},
                        {raw.lazyBindOffset, raw.lazyBindSize}};
      break;
    }
    case kFixupChains: {
      const auto raw = command.read<DataCommand>(0);
      image.chains = {raw.offset, raw.size};
      break;
    }
    case kMain:
      image.entry = command.read<MainCommand>(0).offset;
      break;
    case kExports:
      break;
    default:
      if ((kind & kRequired) != 0) {
        throw LoadError("load command " + std::to_string(kind & ~kRequired) + " is not supported");
      }
  }
}

void checkHeader(const darwin::mach_header_64 &header) {
  if (header.magic != darwin::MH_MAGIC_64) throw LoadError("not a 64-bit Mach-O file");
  if (header.cputype != darwin::CPU_TYPE_ARM64) throw LoadError("not for arm64");
  if (header.filetype != kExecutable) throw LoadError("not an executable");
  if ((header.flags & kPositionIndependent) == 0) throw LoadError("not position-independent");
}

}  // namespace

Image readImage(const FileBytes &file) {
  const auto header = file.read<darwin::mach_header_64>(0);
  checkHeader(header);
  FileBytes commands = file.part({sizeof header, header.sizeofcmds});
  Image image;
  for (uint32_t i = 0; i < header.ncmds; i++) {
    const auto head = commands.read<LoadCommand>(0);
    if (head.size < sizeof head) throw LoadError("a load command is too short");
    addCommand(file, commands.part({0, head.size}), head.command, image);
    commands = commands.from(head.size);
  }
  if (image.end == 0) throw LoadError("no segment");
  if (image.entry == 0) throw LoadError("no main");
  if (image.entry >= kLargestImage) throw LoadError("main is outside of the code");
  image.entry += image.start;
  const Segment *code = segmentOf(image, image.entry, 4);
  if (code == nullptr || !code->isExecutable) throw LoadError("main is outside of the code");
  return image;
}

const Segment *segmentOf(const Image &image, uint64_t address, uint64_t size) {
  const auto holds = [address, size](const Segment &segment) {
    return address >= segment.address && address - segment.address <= segment.size &&
           size <= segment.size - (address - segment.address) && segment.size > 0;
  };
  const auto found = std::find_if(image.segments.begin(), image.segments.end(), holds);
  return found == image.segments.end() ? nullptr : &*found;
}

}  // namespace loader
