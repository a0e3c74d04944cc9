#include "device/gestalt.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include "state/word.h"

namespace sondex {

constexpr size_t kKeptAnswers = 64;

std::atomic<darwin::MGCopyAnswerWithError_function> MGCopyAnswerWithError_func{nullptr};

// Answers that are never released, each with a text of its own, filled from the front.
static std::atomic<darwin::CFStringRef> keptAnswers[kKeptAnswers];

darwin::MGCopyAnswerWithError_function findGestalt(FILE *messages) {
  darwin::MGCopyAnswerWithError_function service = load(MGCopyAnswerWithError_func);
  if (service != nullptr) return service;
  void *library = dlopen(darwin::kGestaltLibrary, RTLD_LAZY);
  if (library == nullptr) {
    const char *reason = dlerror();
    if (messages != nullptr) {
      fprintf(messages, "Error loading Gestalt: %s\n", reason != nullptr ? reason : "unknown");
    }
    return nullptr;
  }
  service = reinterpret_cast<darwin::MGCopyAnswerWithError_function>(
      dlsym(library, darwin::kGestaltEntryPoint));
  if (service == nullptr) {
    if (messages != nullptr) {
      fputs(
          "Can't find MGCopyAnswerWithError in libMobileGestalt.. Which version of iOS is this?\n",
          messages);
    }
    return nullptr;
  }
  store(MGCopyAnswerWithError_func, service);
  return service;
}

static const char *textOf(darwin::CFStringRef string) {
  return darwin::CFStringGetCStringPtr(string, darwin::kCFStringEncodingMacRoman);
}

// The text lives as long as its answer. Of equal ones the first is kept for good and the others are
// released, so that the list screen may ask with every frame.
static const char *keepAnswer(darwin::CFStringRef answer, const char *text) {
  for (std::atomic<darwin::CFStringRef> &slot : keptAnswers) {
    darwin::CFStringRef kept = nullptr;
    if (slot.compare_exchange_strong(kept, answer)) return text;
    const char *keptText = textOf(kept);
    if (strcmp(keptText, text) == 0) {
      darwin::CFRelease(answer);
      return keptText;
    }
  }
  return text;
}

const char *gestaltAnswer(const char *key) {
  const darwin::MGCopyAnswerWithError_function service = findGestalt(stderr);
  if (service == nullptr) return nullptr;

  int error = 0;
  const darwin::CFStringRef name =
      darwin::CFStringCreateWithCString(nullptr, key, darwin::kCFStringEncodingMacRoman);
  const darwin::CFTypeRef answer = name != nullptr ? service(name, &error) : nullptr;
  if (name != nullptr) darwin::CFRelease(name);
  if (answer == nullptr) {
    fprintf(stderr, "Error %d\n", error);
    return "?";
  }
  if (darwin::CFGetTypeID(answer) != darwin::CFStringGetTypeID()) {
    darwin::CFRelease(answer);
    return "?!";
  }
  const darwin::CFStringRef string = static_cast<darwin::CFStringRef>(answer);
  const char *text = textOf(string);
  if (text != nullptr) return keepAnswer(string, text);
  darwin::CFRelease(answer);
  return nullptr;
}

}  // namespace sondex
