// Kernel state by name or number, and the structures that the names used here answer with.
#pragma once

#include <cstddef>
#include <cstdint>

#include "darwin/layout.h"

namespace darwin {

// First number of a name.
constexpr int DARWIN_CTL_KERN = 1;
constexpr int DARWIN_CTL_NET = 4;

// Second number: kern.boottime and the argument areas of a process (which take a pid as third).
constexpr int DARWIN_KERN_PROCARGS = 38;
constexpr int DARWIN_KERN_PROCARGS2 = 49;

struct timeval {
  int64_t tv_sec;
  int32_t tv_usec;
};
DARWIN_LAYOUT(timeval, 16, 8, (tv_sec, 0), (tv_usec, 8));

// Load of the last 1, 5 and 15 minutes, each to be divided by fscale (2048).
struct loadavg {
  uint32_t ldavg[3];
  int64_t fscale;
};
DARWIN_LAYOUT(loadavg, 24, 8, (ldavg, 0), (fscale, 16));

// Bytes; all zero on a machine without swap.
struct xsw_usage {
  uint64_t xsu_total;
  uint64_t xsu_avail;
  uint64_t xsu_used;
  uint32_t xsu_pagesize;
  int32_t xsu_encrypted;
};
DARWIN_LAYOUT(xsw_usage, 32, 8, (xsu_total, 0), (xsu_avail, 8), (xsu_used, 16), (xsu_pagesize, 24),
              (xsu_encrypted, 28));

extern "C" {

// Reads the value named by namelen numbers into old. *oldlen is the room in bytes and comes back as
// the bytes written, or, with a null old, as the bytes needed. newp and newlen set a value: null
// and 0 here. Returns 0, or -1 with errno set: ENOENT for an unknown name, ENOMEM for too little
// room.
//
// DARWIN_KERN_PROCARGS2 answers an int32 count, then the argument area of the process: an area
// longer than the room loses its start, not its end, and no error tells so. EINVAL when there is no
// such process, it is pid 0 or a zombie, it is another user's and the caller is not root, or the
// room is 4 bytes or less.
int sysctl(int *name, unsigned int namelen, void *old, size_t *oldlen, void *newp, size_t newlen);

// The same for a name such as "vm.swapusage".
int sysctlbyname(const char *name, void *old, size_t *oldlen, void *newp, size_t newlen);

}  // extern "C"

}  // namespace darwin
