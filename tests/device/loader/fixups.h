// What a loader has to write into an executable's pointers before it can run. The same comes out of
// both forms in which a file may say it.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "file_bytes.h"
#include "image.h"

namespace loader {

// The pointer at an address is one to another place of the executable.
struct Rebase {
  uint64_t address = 0;
  uint64_t target = 0;
};

// The pointer at an address is one to a symbol of a library, and so many bytes further. The name is
// in the file's bytes.
struct Bind {
  uint64_t address = 0;
  std::string_view symbol;
  int64_t addend = 0;
  bool mayBeMissing = false;
};

// In this order: a pointer may be in both lists.
struct Fixups {
  std::vector<Rebase> rebases;
  std::vector<Bind> binds;
};

// Throws LoadError for fixups that contradict themselves or reach outside of the segments that can
// be written. The pointers that are bound when they are first used are among the others.
Fixups readFixups(const FileBytes &file, const Image &image);

// Each of the two forms by itself.
void readFixupPrograms(const FileBytes &file, const Image &image, const FixupPrograms &programs,
                       Fixups &fixups);
void readFixupChains(const FileBytes &file, const Image &image, FilePart part, Fixups &fixups);

// Throws LoadError when there are more fixups than the image has room for pointers, as when a file
// leads back to the same ones over and over.
void checkCount(const Image &image, const Fixups &fixups);

// The pointer as the file has it. Throws LoadError where no pointer can be written.
uint64_t pointerInFile(const FileBytes &file, const Image &image, uint64_t address);

}  // namespace loader
