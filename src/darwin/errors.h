// errno values with the kernel's own numbers: what a call of this folder leaves in errno is
// compared with these, never with the C library's macros. Comments in this folder name them without
// prefix.
#pragma once

namespace darwin {

constexpr int DARWIN_EPERM = 1;
constexpr int DARWIN_ESRCH = 3;
constexpr int DARWIN_EBADF = 9;
constexpr int DARWIN_ENOMEM = 12;
constexpr int DARWIN_EBUSY = 16;
constexpr int DARWIN_EINVAL = 22;
constexpr int DARWIN_EAGAIN = 35;
constexpr int DARWIN_ENOTSUP = 45;
constexpr int DARWIN_ETIMEDOUT = 60;

}  // namespace darwin
