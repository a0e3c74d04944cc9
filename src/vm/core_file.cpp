#include "vm/core_file.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "files/safe_file.h"

namespace sondex {

constexpr mode_t kOwnerOnly = 0600;

// More writes cost more than less of it would save.
constexpr size_t kSmallestHole = 16384;

constexpr int64_t kQuietTime = 1000;
constexpr int64_t kProgressPeriod = 500;

static int64_t milliseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

static void fail(CoreFile *file, const char *what) {
  file->failure = errno;
  perror(what);
}

bool openCoreFile(CoreFile *file) {
  file->failure = 0;
  file->piece = static_cast<char *>(malloc(kPieceSize));
  if (file->piece == nullptr) {
    fail(file, "malloc");
    return false;
  }
  file->descriptor = openToRewrite(file->path, kOwnerOnly);
  if (file->descriptor >= 0 && fchmod(file->descriptor, kOwnerOnly) == 0) {
    file->done = 0;
    file->showsProgress = isatty(STDERR_FILENO) == 1;
    file->nextProgress = milliseconds() + kQuietTime;
    file->progressShown = false;
    return true;
  }
  fail(file, file->path);
  if (file->descriptor >= 0) close(file->descriptor);
  free(file->piece);
  return false;
}

bool writeAt(const CoreFile *file, const void *bytes, size_t size, uint64_t offset) {
  const char *from = static_cast<const char *>(bytes);
  while (size > 0) {
    const ssize_t written = pwrite(file->descriptor, from, size, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      if (written == 0) errno = ENOSPC;
      return false;
    }
    from += written;
    size -= static_cast<size_t>(written);
    offset += static_cast<uint64_t>(written);
  }
  return true;
}

static bool isZero(const char *bytes, size_t size) {
  constexpr size_t kStep = 256;
  uint64_t words[kStep / sizeof(uint64_t)];
  for (; size >= kStep; bytes += kStep, size -= kStep) {
    memcpy(words, bytes, kStep);
    uint64_t any = 0;
    for (const uint64_t word : words) any |= word;
    if (any != 0) return false;
  }
  while (size > 0 && *bytes == 0) bytes++, size--;
  return size == 0;
}

bool writePiece(const CoreFile *file, size_t size, uint64_t offset) {
  size_t written = 0;
  for (size_t at = 0; at < size; at += kSmallestHole) {
    const size_t length = size - at < kSmallestHole ? size - at : kSmallestHole;
    if (!isZero(file->piece + at, length)) continue;
    if (!writeAt(file, file->piece + written, at - written, offset + written)) return false;
    written = at + length;
  }
  return writeAt(file, file->piece + written, size - written, offset + written);
}

bool setFileSize(const CoreFile *file, uint64_t size) {
  return ftruncate(file->descriptor, static_cast<off_t>(size)) == 0;
}

void addProgress(CoreFile *file, uint64_t bytes) {
  file->done += bytes;
  if (!file->showsProgress) return;
  const int64_t now = milliseconds();
  if (now < file->nextProgress) return;
  file->nextProgress = now + kProgressPeriod;
  file->progressShown = true;
  fprintf(stderr, "\r%s: %llu of %llu MB", file->path,
          static_cast<unsigned long long>(file->done >> 20),
          static_cast<unsigned long long>(file->total >> 20));
}

void clearProgress(CoreFile *file) {
  if (file->progressShown) fputs("\r\033[K", stderr);
  file->progressShown = false;
}

void reportUnwritten(CoreFile *file) {
  clearProgress(file);
  fail(file, file->path);
}

// Takes away a file that is not whole, unless something else has its name by now.
static void discard(const CoreFile *file) {
  struct stat opened = {};
  struct stat named = {};
  if (!setFileSize(file, 0)) perror(file->path);
  if (fstat(file->descriptor, &opened) == 0 && lstat(file->path, &named) == 0 &&
      opened.st_dev == named.st_dev && opened.st_ino == named.st_ino) {
    unlink(file->path);
  }
}

bool closeCoreFile(CoreFile *file, bool isWhole) {
  clearProgress(file);
  if (!isWhole) discard(file);
  if (close(file->descriptor) != 0 && isWhole) {
    fail(file, file->path);
    unlink(file->path);
    isWhole = false;
  }
  free(file->piece);
  return isWhole;
}

}  // namespace sondex
