// What an executable for the device says of itself: its segments, libraries, initialisers, the
// place of its fixups, and where it starts. Addresses are those that it is linked for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "file_bytes.h"

namespace loader {

struct Segment {
  std::string name;
  uint64_t address = 0;
  uint64_t size = 0;
  FilePart content;  // no longer than `size`: zeros follow
  bool isWritable = false;
  bool isExecutable = false;
  bool isConstantOnceFixed = false;
};

// Pointers to functions that run before main, or 32-bit distances of such from the header.
struct Initialisers {
  uint64_t address = 0;
  uint64_t count = 0;
  bool areDistances = false;
};

// Fixups in the older form: a program for each purpose.
struct FixupPrograms {
  FilePart rebase;
  FilePart bind;
  FilePart weakBind;
  FilePart lazyBind;
};

struct Image {
  std::vector<Segment> segments;  // by their numbers in the file
  std::vector<std::string> libraries;
  std::vector<Initialisers> initialisers;
  std::optional<FixupPrograms> programs;
  std::optional<FilePart> chains;  // fixups in the newer form
  uint64_t start = 0;              // of the header
  uint64_t end = 0;                // of the last segment
  uint64_t entry = 0;              // of main
};

// Throws LoadError for what is no position-independent executable for arm64, contradicts itself, or
// asks for what this loader does not do.
Image readImage(const FileBytes &file);

// The segment that holds all of these bytes, or null.
const Segment *segmentOf(const Image &image, uint64_t address, uint64_t size);

}  // namespace loader
