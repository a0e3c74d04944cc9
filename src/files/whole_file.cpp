#include "files/whole_file.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace sondex {

static const char kSuffix[] = ".XXXXXX";

static bool nameFile(WholeFile *file, const char *path) {
  const size_t length = strlen(path);
  if (length + sizeof kSuffix > sizeof file->temporary) {
    errno = ENAMETOOLONG;
    return false;
  }
  memcpy(file->path, path, length + 1);
  memcpy(file->temporary, path, length);
  memcpy(file->temporary + length, kSuffix, sizeof kSuffix);
  return true;
}

bool beginWholeFile(WholeFile *file, const char *path) {
  file->stream = nullptr;
  if (!nameFile(file, path)) return false;
  const int descriptor = mkstemp(file->temporary);
  if (descriptor < 0) return false;
  file->stream = fdopen(descriptor, "w");
  if (file->stream != nullptr) return true;
  const int failure = errno;
  close(descriptor);
  unlink(file->temporary);
  errno = failure;
  return false;
}

// On the disk, so that the name never stands for less after a loss of power. A write that failed
// earlier stays an error of the stream's, whose number may be another's by now.
static bool isWritten(FILE *stream) {
  errno = 0;
  if (fflush(stream) != 0) return false;
  if (ferror(stream) == 0) return fsync(fileno(stream)) == 0;
  errno = EIO;
  return false;
}

bool finishWholeFile(WholeFile *file) {
  bool done = isWritten(file->stream);
  int failure = errno;
  if (fclose(file->stream) != 0 && done) {
    done = false;
    failure = errno;
  }
  file->stream = nullptr;
  if (done && rename(file->temporary, file->path) == 0) return true;
  if (done) failure = errno;
  unlink(file->temporary);
  errno = failure;
  return false;
}

void dropWholeFile(WholeFile *file) {
  if (file->stream == nullptr) return;
  fclose(file->stream);
  file->stream = nullptr;
  unlink(file->temporary);
}

}  // namespace sondex
