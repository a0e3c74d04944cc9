// The file that a core is written to: for its owner only, with a progress line when writing takes
// long, and removed when it does not become whole. What it holds is not known here.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace sondex {

// Small enough to stay in a processor's cache between reading and writing.
constexpr size_t kPieceSize = 512 << 10;

struct CoreFile {
  int descriptor;
  char path[64];
  char *piece;           // kPieceSize bytes on the heap, for what passes through
  uint64_t done;         // bytes, for the progress line
  uint64_t total;        // what `done` comes to in the end
  int64_t nextProgress;  // when that line is due, in milliseconds
  int failure;           // the error number of what failed, 0 while nothing has
  bool showsProgress;
  bool progressShown;
};

// Opens the file; path and total are the caller's, all else is set here, `failure` too. What
// belongs to somebody else under its name is left alone. False with a message on standard error,
// and nothing to be closed.
bool openCoreFile(CoreFile *file);

// Writes all bytes at a place in the file. False with errno set.
bool writeAt(const CoreFile *file, const void *bytes, size_t size, uint64_t offset);

// Writes the first `size` bytes of the piece at a place where the file has nothing yet, but for
// stretches of zeros, which are holes then: setFileSize() is to say where the file ends. False with
// errno set.
bool writePiece(const CoreFile *file, size_t size, uint64_t offset);

// Cuts the file, or fills it up with zeros that take no room. False with errno set.
bool setFileSize(const CoreFile *file, uint64_t size);

// Counts `bytes` as done. On a terminal a line on standard error tells how far it is: after the
// first second, then twice a second.
void addProgress(CoreFile *file, uint64_t bytes);

// Takes that line away, for what is written next on standard error.
void clearProgress(CoreFile *file);

// Notes errno as the file's failure, and says on standard error that it can't be written.
void reportUnwritten(CoreFile *file);

// Closes the file, and removes it unless it is whole. False when it wasn't, or when closing it
// fails, with a message on standard error.
bool closeCoreFile(CoreFile *file, bool isWhole);

}  // namespace sondex
