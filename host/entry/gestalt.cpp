#include "host/entry/gestalt.h"

#include <string>
#include <utility>
#include <variant>

#include "darwin/gestalt.h"
#include "host/entry/answer.h"
#include "host/entry/core_foundation.h"
#include "host/machine/identity.h"
#include "host/machine/kernel.h"

namespace {

// Nothing but its address is used.
constexpr char kLibrary = 0;

host::ObjectReference objectOf(host::GestaltAnswer answer) {
  if (std::string *text = std::get_if<std::string>(&answer)) {
    return host::makeString(std::move(*text));
  }
  if (const int64_t *number = std::get_if<int64_t>(&answer)) return host::makeNumber(*number);
  return host::makeBoolean(std::get<bool>(answer));
}

darwin::CFTypeRef copyAnswer(darwin::CFStringRef key, int *error, ...) {
  host::ObjectReference object;
  const char *name = key == nullptr
                         ? nullptr
                         : darwin::CFStringGetCStringPtr(key, darwin::kCFStringEncodingMacRoman);
  const host::Errno refused = host::guarded([&]() -> host::Errno {
    if (name == nullptr) return darwin::DARWIN_EINVAL;
    host::GestaltAnswer answer;
    const host::Errno result = host::identity().gestaltAnswer(name, answer);
    if (result == host::kAnswered) object = objectOf(std::move(answer));
    return result;
  });
  if (refused != host::kAnswered && error != nullptr) *error = refused;
  return object.release<darwin::CFTypeRef>();
}

}  // namespace

namespace host {

void *openGestalt(std::string_view path) noexcept {
  if (path != darwin::kGestaltLibrary || !isSo([] { return identity().hasGestalt(); })) {
    return nullptr;
  }
  return const_cast<char *>(&kLibrary);
}

bool isGestalt(const void *handle) noexcept {
  return handle == &kLibrary;
}

void *findInGestalt(std::string_view name) noexcept {
  const bool isThere =
      name == darwin::kGestaltEntryPoint && isSo([name] { return kernel().hasEntryPoint(name); });
  return isThere ? reinterpret_cast<void *>(&copyAnswer) : nullptr;
}

}  // namespace host
