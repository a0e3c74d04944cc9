#include "host/entry/errors.h"

#include <cerrno>
#include <cstdio>

#include "host/darwin/errors.h"

namespace {

struct ErrorPair {
  int darwin;
  int native;
};

// Those whose numbers differ.
constexpr ErrorPair kDifferent[] = {
    {darwin::DARWIN_EDEADLK, EDEADLK},
    {darwin::DARWIN_EAGAIN, EAGAIN},
    {darwin::DARWIN_EINPROGRESS, EINPROGRESS},
    {darwin::DARWIN_EALREADY, EALREADY},
    {darwin::DARWIN_ENOTSOCK, ENOTSOCK},
    {darwin::DARWIN_EPROTOTYPE, EPROTOTYPE},
    {darwin::DARWIN_ENOPROTOOPT, ENOPROTOOPT},
    {darwin::DARWIN_ENOTSUP, ENOTSUP},
    {darwin::DARWIN_ENOBUFS, ENOBUFS},
    {darwin::DARWIN_EISCONN, EISCONN},
    {darwin::DARWIN_ENOTCONN, ENOTCONN},
    {darwin::DARWIN_ETIMEDOUT, ETIMEDOUT},
    {darwin::DARWIN_ECONNREFUSED, ECONNREFUSED},
    {darwin::DARWIN_ENAMETOOLONG, ENAMETOOLONG},
    {darwin::DARWIN_ENOSYS, ENOSYS},
    {darwin::DARWIN_EOVERFLOW, EOVERFLOW},
    {darwin::DARWIN_EOPNOTSUPP, EOPNOTSUPP},
};

// The number that setErrno left last in this thread's errno. While errno still holds it, it is
// Darwin's.
thread_local int lastSet = 0;

}  // namespace

namespace host {

void setErrno(Errno error) noexcept {
  lastSet = error;
  errno = error;
}

int nativeErrno(Errno error) noexcept {
  for (const ErrorPair &pair : kDifferent) {
    if (pair.darwin == error) return pair.native;
  }
  return error;
}

}  // namespace host

extern "C" {

char *__real_strerror(int number) noexcept;
void __real_perror(const char *prefix);

char *__wrap_strerror(int number) noexcept {
  return __real_strerror(number == lastSet ? host::nativeErrno(number) : number);
}

void __wrap_perror(const char *prefix) {
  const int before = errno;
  if (before == lastSet) errno = host::nativeErrno(before);
  __real_perror(prefix);
  errno = before;
}

}  // extern "C"
