#include "files/safe_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sondex {

// Whose files ours are. The kernel puts that into any object it makes for us; the user that
// geteuid() names may be another machine's.
static bool getFileOwner(uid_t *owner) {
  int ends[2];
  if (pipe(ends) != 0) return false;
  struct stat made = {};
  const bool known = fstat(ends[0], &made) == 0;
  close(ends[0]);
  close(ends[1]);
  *owner = made.st_uid;
  return known;
}

// Whether `found`, which becomes what the kernel says of the file, is one of the caller's own.
static bool isOwnFile(int descriptor, struct stat *found) {
  uid_t owner = 0;
  if (fstat(descriptor, found) != 0 || !getFileOwner(&owner)) return false;
  if (S_ISREG(found->st_mode) && found->st_nlink == 1 && found->st_uid == owner) return true;
  errno = EEXIST;
  return false;
}

// File systems take it for a replacement of old contents, and send to the disk what was written
// since while the file is closed: an empty one is left as it is.
static bool makeEmpty(int descriptor, const struct stat *found) {
  return found->st_size == 0 || ftruncate(descriptor, 0) == 0;
}

int openToRewrite(const char *path, mode_t mode) {
  const int descriptor =
      open(path, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode);
  if (descriptor < 0) return -1;
  struct stat found = {};
  if (isOwnFile(descriptor, &found) && makeEmpty(descriptor, &found)) return descriptor;
  const int failure = errno;
  close(descriptor);
  errno = failure;
  return -1;
}

}  // namespace sondex
