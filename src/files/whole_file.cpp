#include "files/whole_file.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sondex {

static const char kSuffix[] = ".XXXXXX";

// Where the file is to be; false when it is something else than a file.
static bool findPlace(const char *path, char *place) {
  struct stat status = {};
  snprintf(place, PATH_MAX, "%s", path);
  if (stat(path, &status) != 0) return true;
  if (!S_ISREG(status.st_mode)) return false;
  if (realpath(path, place) == nullptr) snprintf(place, PATH_MAX, "%s", path);
  return true;
}

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
  char place[PATH_MAX];
  file->stream = nullptr;
  file->temporary[0] = '\0';
  if (!findPlace(path, place)) {
    file->stream = fopen(path, "w");
    return file->stream != nullptr;
  }
  if (!nameFile(file, place)) return false;
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
static bool isWritten(FILE *stream, bool onDisk) {
  errno = 0;
  if (fflush(stream) != 0) return false;
  if (ferror(stream) == 0) return !onDisk || fsync(fileno(stream)) == 0;
  errno = EIO;
  return false;
}

static bool isTemporary(const WholeFile *file) {
  return file->temporary[0] != '\0';
}

bool finishWholeFile(WholeFile *file) {
  bool done = isWritten(file->stream, isTemporary(file));
  int failure = errno;
  if (fclose(file->stream) != 0 && done) {
    done = false;
    failure = errno;
  }
  file->stream = nullptr;
  if (done && (!isTemporary(file) || rename(file->temporary, file->path) == 0)) return true;
  if (done) failure = errno;
  if (isTemporary(file)) unlink(file->temporary);
  errno = failure;
  return false;
}

void dropWholeFile(WholeFile *file) {
  if (file->stream == nullptr) return;
  fclose(file->stream);
  file->stream = nullptr;
  if (isTemporary(file)) unlink(file->temporary);
}

}  // namespace sondex
