// What every C entry point shares: no exception and no errno of the machine's own system calls
// leaves it.
#pragma once

#include <cerrno>
#include <cstring>

#include "host/darwin/errors.h"
#include "host/entry/errors.h"
#include "host/errno.h"
#include "host/machine/kernel.h"

namespace host {

// Runs `call`, which answers an Errno. An exception becomes DARWIN_ENOMEM; errno stays as it was.
template <typename Call>
Errno guarded(Call &&call) noexcept {
  const int before = errno;
  Errno error = darwin::DARWIN_ENOMEM;
  try {
    error = call();
  } catch (...) {
    // Keeps ENOMEM: memory is what a machine can run out of.
  }
  errno = before;
  return error;
}

// The same for a question with yes or no as its answer; an exception means no.
template <typename Question>
bool isSo(Question &&question) noexcept {
  bool yes = false;
  guarded([&]() -> Errno {
    yes = question();
    return kAnswered;
  });
  return yes;
}

inline bool callerIsPrivileged() noexcept {
  return isSo([] { return kernel().isPrivileged(); });
}

// How a library function ends: with `result`, or with `failure` and errno set.
inline int libraryAnswer(Errno error, int result, int failure) noexcept {
  if (error == kAnswered) return result;
  setErrno(error);
  return failure;
}

// Writes to the caller's memory as the kernel does: a null address is refused.
inline Errno copyOut(const void *from, size_t bytes, void *to) noexcept {
  if (bytes == 0) return kAnswered;
  if (to == nullptr) return darwin::DARWIN_EFAULT;
  std::memcpy(to, from, bytes);
  return kAnswered;
}

}  // namespace host
