// Threads. One of them is a word on both sides, which the program compares and hands on.
#include <pthread.h>

#include <cerrno>

#include "imports/calls.h"
#include "imports/error_numbers.h"

namespace {

static_assert(sizeof(pthread_t) == sizeof(void *));

// Attributes have another form there; no program here has any.
int create(pthread_t *thread, const void *attributes, void *(*routine)(void *), void *argument) {
  if (attributes != nullptr) return loader::darwinErrno(EINVAL);
  return loader::darwinErrno(pthread_create(thread, nullptr, routine, argument));
}

int detach(pthread_t thread) {
  return loader::darwinErrno(pthread_detach(thread));
}

}  // namespace

namespace loader {

std::span<const Import> threads() {
  static const Import table[] = {
      call("pthread_create", &create),
      call("pthread_detach", &detach),
      call("pthread_self", &pthread_self),
  };
  return table;
}

}  // namespace loader
