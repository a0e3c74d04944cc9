// Libraries opened and functions looked up by name while the program runs. Only what stands in for
// the device's is found: nothing of this machine's.
#include <dlfcn.h>

#include <algorithm>

#include "host/entry/gestalt.h"
#include "imports/calls.h"

extern "C" {

void *__wrap_dlopen(const char *path, int mode) noexcept;
void *__wrap_dlsym(void *handle, const char *name) noexcept;

}  // extern "C"

namespace {

// The device's word for "wherever it is".
constexpr intptr_t kAnywhere = -2;

// What is known of one that is missing is said by dlerror().
void *openLibrary(const char *path, int) {
  void *library = __wrap_dlopen(path, RTLD_LAZY);
  return host::isGestalt(library) ? library : nullptr;
}

void *findSymbol(void *library, const char *name) {
  if (reinterpret_cast<intptr_t>(library) != kAnywhere) {
    return host::isGestalt(library) ? __wrap_dlsym(library, name) : nullptr;
  }
  const auto calls = loader::darwinCalls();
  const bool isKnown = std::any_of(calls.begin(), calls.end(),
                                   [name](const auto &import) { return import.name == name; });
  return isKnown ? __wrap_dlsym(RTLD_DEFAULT, name) : nullptr;
}

}  // namespace

namespace loader {

std::span<const Import> libraries() {
  static const Import table[] = {
      call("dlerror", &dlerror),
      call("dlopen", &openLibrary),
      call("dlsym", &findSymbol),
  };
  return table;
}

}  // namespace loader
