// Calls of the C library that mean the same on both sides, checked one by one: with the same types
// of the same layout and without a number that one side counts differently. Their errno is
// translated when it is read.
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "imports/calls.h"

namespace {

// Only 32 bits of the count are there; what is looked for is counted the same in the four that are
// used.
int pollFew(struct pollfd *polled, unsigned int count, int timeout) {
  return poll(polled, count, timeout);
}
static_assert(sizeof(pollfd) == 8 && POLLIN == 1 && POLLERR == 8 && POLLHUP == 0x10 &&
              POLLNVAL == 0x20);

// 16 bits of it are there.
int changeMode(int descriptor, unsigned int mode) {
  return fchmod(descriptor, mode & 07777);
}

}  // namespace

#define SAME(name) call(#name, &::name)

namespace loader {

std::span<const Import> sameCalls() {
  static const Import table[] = {
      SAME(_exit),
      SAME(atexit),
      SAME(bzero),
      SAME(calloc),
      SAME(close),
      SAME(dup2),
      SAME(exit),
      call("fchmod", &changeMode),
      SAME(free),
      SAME(fsync),
      SAME(ftruncate),
      SAME(getenv),
      SAME(getpgrp),
      SAME(getpid),
      SAME(isatty),
      SAME(malloc),
      SAME(memcmp),
      SAME(memcpy),
      SAME(memmove),
      SAME(memset),
      SAME(mkstemp),
      SAME(munmap),
      SAME(pipe),
      call("poll", &pollFew),
      SAME(pwrite),
      SAME(qsort),
      SAME(read),
      SAME(realloc),
      call("realpath$DARWIN_EXTSN", &::realpath),
      SAME(rename),
      SAME(strcmp),
      SAME(strcspn),
      SAME(strdup),
      SAME(strlen),
      SAME(strncasecmp),
      SAME(strncmp),
      SAME(strnlen),
      call("strstr", static_cast<const char *(*)(const char *, const char *)>(&::strstr)),
      SAME(strtol),
      SAME(tcgetpgrp),
      SAME(unlink),
      SAME(wcwidth),
      SAME(write),
  };
  return table;
}

}  // namespace loader
