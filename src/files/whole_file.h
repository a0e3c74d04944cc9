// A file that is there whole or not at all: it is written beside its place under another name, and
// takes its place at the end.
#pragma once

#include <limits.h>
#include <stdio.h>

namespace sondex {

struct WholeFile {
  FILE *stream;  // to write to; null when none is open
  char path[PATH_MAX];
  char temporary[PATH_MAX];
};

// Begins the file that is to be at `path`, or where a link of that name leads, readable by its
// owner alone. What is there and no file, such as a device, is written to as it goes along. Returns
// false with errno set when it can't be made; nothing is open then.
bool beginWholeFile(WholeFile *file, const char *path);

// Puts what was written in its place, where it replaces what was there. Returns false with errno
// set when not all of it could be written or put there; what was there is left alone then, and
// nothing else left behind. The stream is closed.
bool finishWholeFile(WholeFile *file);

// Closes the stream and leaves nothing of what was written.
void dropWholeFile(WholeFile *file);

}  // namespace sondex
