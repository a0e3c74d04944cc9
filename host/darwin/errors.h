// The rest of darwin/errors.h: what only the side that answers names.
#pragma once

#include "darwin/errors.h"

namespace darwin {

constexpr int DARWIN_ENOENT = 2;
constexpr int DARWIN_EINTR = 4;
constexpr int DARWIN_EIO = 5;
constexpr int DARWIN_ENXIO = 6;
constexpr int DARWIN_E2BIG = 7;
constexpr int DARWIN_EDEADLK = 11;
constexpr int DARWIN_EACCES = 13;
constexpr int DARWIN_EFAULT = 14;
constexpr int DARWIN_EEXIST = 17;
constexpr int DARWIN_ENOTTY = 25;
constexpr int DARWIN_ENOSPC = 28;
constexpr int DARWIN_EROFS = 30;
constexpr int DARWIN_ERANGE = 34;
constexpr int DARWIN_EINPROGRESS = 36;
constexpr int DARWIN_EALREADY = 37;
constexpr int DARWIN_ENOTSOCK = 38;
constexpr int DARWIN_EPROTOTYPE = 41;
constexpr int DARWIN_ENOPROTOOPT = 42;
constexpr int DARWIN_ENOBUFS = 55;
constexpr int DARWIN_EISCONN = 56;
constexpr int DARWIN_ENOTCONN = 57;
constexpr int DARWIN_ECONNREFUSED = 61;
constexpr int DARWIN_ENAMETOOLONG = 63;
constexpr int DARWIN_ENOSYS = 78;
constexpr int DARWIN_EOVERFLOW = 84;
constexpr int DARWIN_EOPNOTSUPP = 102;

}  // namespace darwin
