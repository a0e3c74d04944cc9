// Files with fixed names in /tmp, written by a program that runs as root: anyone may have put
// something else at that name. Opening them is here; what is written is the caller's business.
#pragma once

#include <sys/types.h>

namespace sondex {

// Opens `path` to be written from its beginning, makes it if there is none (with the permissions of
// `mode` that the umask allows) and empties it. What is there already is only emptied if it is a
// regular file of the caller's own with no other name; a symbolic link is not followed, a FIFO not
// waited for. Returns a descriptor that the caller closes, not inherited by other programs; or -1
// with errno set and what is there left alone (EEXIST: something else has that name).
int openToRewrite(const char *path, mode_t mode = 0666);

}  // namespace sondex
