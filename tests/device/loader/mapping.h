// An executable in memory, away from the addresses that it is linked for.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "fixups.h"
#include "image.h"

namespace loader {

// Where a symbol is, or nothing when it is nowhere.
using Resolve = std::function<std::optional<uint64_t>(std::string_view symbol)>;

class Mapping {
 public:
  // Copies the segments to where they are linked for plus `slide`, which is a multiple of 16 KiB.
  // They can be written, and not yet run. Throws LoadError when the room is taken. What is mapped
  // stays for as long as the program runs.
  Mapping(const FileBytes &file, const Image &image, uint64_t slide);

  // Throws LoadError that names each symbol that is nowhere and not allowed to be missing. One that
  // is allowed to is at 0.
  void fix(const Fixups &fixups, const Resolve &resolve);

  // Gives each segment the rights that it asks for; constants can no longer be written.
  void protect() const;

  // From an address that the executable is linked for, and back.
  uint64_t slid(uint64_t address) const { return address + slide_; }
  uint64_t unslid(uint64_t address) const { return address - slide_; }
  bool contains(uint64_t slidAddress) const;

 private:
  void bind(const std::vector<Bind> &binds, const Resolve &resolve);
  void write(uint64_t address, uint64_t pointer);

  const Image &image_;
  uint64_t slide_;
};

}  // namespace loader
