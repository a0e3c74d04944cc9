#include "fixups.h"

namespace loader {

Fixups readFixups(const FileBytes &file, const Image &image) {
  Fixups fixups;
  if (image.programs) readFixupPrograms(file, image, *image.programs, fixups);
  if (image.chains) readFixupChains(file, image, *image.chains, fixups);
  return fixups;
}

void checkCount(const Image &image, const Fixups &fixups) {
  const uint64_t pointers = (image.end - image.start) / sizeof(uint64_t);
  if (fixups.rebases.size() > pointers || fixups.binds.size() > pointers) {
    throw LoadError("more fixups than pointers");
  }
}

uint64_t pointerInFile(const FileBytes &file, const Image &image, uint64_t address) {
  const Segment *segment = segmentOf(image, address, sizeof(uint64_t));
  if (segment == nullptr || !segment->isWritable) {
    throw LoadError("a fixup is outside of the data");
  }
  const uint64_t distance = address - segment->address;
  // What follows the content is zeros, which a pointer may reach into.
  if (distance >= segment->content.size) return 0;
  return file.part(segment->content).read<uint64_t>(distance);
}

}  // namespace loader
