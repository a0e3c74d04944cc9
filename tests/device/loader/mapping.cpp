#include "mapping.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>

namespace loader {

namespace {

void *pointerTo(uint64_t address) {
  return reinterpret_cast<void *>(address);
}

[[noreturn]] void failWith(const std::string &doing) {
  throw LoadError(doing + ": " + std::strerror(errno));
}

void setRights(uint64_t address, uint64_t size, int rights) {
  if (mprotect(pointerTo(address), size, rights) != 0) failWith("protecting a segment");
}

}  // namespace

Mapping::Mapping(const FileBytes &file, const Image &image, uint64_t slide)
    : image_(image), slide_(slide) {
  void *const start = pointerTo(slid(image.start));
  const void *mapped =
      mmap(start, image.end - image.start, PROT_NONE,
           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
  // An older kernel takes the address for a wish.
  if (mapped != start) failWith("no room at the executable's address");
  for (const Segment &segment : image.segments) {
    if (segment.size == 0) continue;
    setRights(slid(segment.address), segment.size, PROT_READ | PROT_WRITE);
    std::memcpy(pointerTo(slid(segment.address)), file.part(segment.content).data(),
                segment.content.size);
  }
}

void Mapping::fix(const Fixups &fixups, const Resolve &resolve) {
  for (const Rebase &rebase : fixups.rebases) write(rebase.address, rebase.target + slide_);
  bind(fixups.binds, resolve);
}

void Mapping::bind(const std::vector<Bind> &binds, const Resolve &resolve) {
  std::set<std::string_view> missing;
  for (const Bind &bind : binds) {
    const std::optional<uint64_t> target = resolve(bind.symbol);
    if (target) {
      write(bind.address, *target + static_cast<uint64_t>(bind.addend));
    } else if (bind.mayBeMissing) {
      write(bind.address, 0);
    } else {
      missing.insert(bind.symbol);
    }
  }
  if (missing.empty()) return;
  std::string names;
  for (const std::string_view symbol : missing) names.append(" ").append(symbol);
  throw LoadError("nothing here binds" + names);
}

void Mapping::write(uint64_t address, uint64_t pointer) {
  std::memcpy(pointerTo(slid(address)), &pointer, sizeof pointer);
}

void Mapping::protect() const {
  for (const Segment &segment : image_.segments) {
    if (segment.size == 0) continue;
    int rights = PROT_READ;
    if (segment.isWritable && !segment.isConstantOnceFixed) rights |= PROT_WRITE;
    if (segment.isExecutable) {
      rights |= PROT_EXEC;
      char *code = static_cast<char *>(pointerTo(slid(segment.address)));
      __builtin___clear_cache(code, code + segment.size);
    }
    setRights(slid(segment.address), segment.size, rights);
  }
}

bool Mapping::contains(uint64_t address) const {
  return address >= slid(image_.start) && address < slid(image_.end);
}

}  // namespace loader
