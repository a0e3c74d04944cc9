#include "capture/verdict.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "darwin/mach_host.h"
#include "text/safe_text.h"

namespace sondex {

constexpr size_t kHowSize = 256;

static Verdicts told = {};

Call beginCall(const char *name, int32_t pid) {
  Call call = {};
  if (pid == kNoProcess) {
    snprintf(call.text, sizeof call.text, "%s", name);
  } else {
    snprintf(call.text, sizeof call.text, "%s of %d", name, pid);
  }
  return call;
}

// Seen at once: the next call may be one that the kernel does not come back from.
static void tell(Call *call, const char *verdict, const char *how) {
  char safe[kHowSize];
  printf("%-56s %s%s%s\n", call->text, verdict, how[0] != '\0' ? ": " : "",
         makeSafe(safe, sizeof safe, how, kHowSize));
  fflush(stdout);
  call->isTold = true;
}

void tellRefused(Call *call, const char *by) {
  if (call->isTold) return;
  told.refused++;
  tell(call, "refused", by);
}

void tellError(Call *call, int error) {
  tellRefused(call, error != 0 ? strerror(error) : "without a reason");
}

// Those that the calls here come back with.
static const char *nameOfResult(int32_t result) {
  switch (result) {
    case 1:
      return "KERN_INVALID_ADDRESS";
    case 2:
      return "KERN_PROTECTION_FAILURE";
    case 4:
      return "KERN_INVALID_ARGUMENT";
    case 5:
      return "KERN_FAILURE";
    case 8:
      return "KERN_NO_ACCESS";
    case 46:
      return "KERN_NOT_SUPPORTED";
    case 53:
      return "KERN_DENIED";
    default:
      return "Mach result";
  }
}

bool expectSuccess(Call *call, int32_t result) {
  if (result == darwin::KERN_SUCCESS) return true;
  char by[48];
  snprintf(by, sizeof by, "%s (%d)", nameOfResult(result), result);
  tellRefused(call, by);
  return false;
}

bool expect(Call *call, bool holds, const char *format, ...) {
  if (holds || call->isTold) return holds;
  char how[kHowSize];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(how, sizeof how, format, arguments);
  va_end(arguments);
  told.different++;
  tell(call, "different", how);
  return false;
}

void endCall(Call *call) {
  if (call->isTold) return;
  told.fine++;
  tell(call, "fine", "");
}

Verdicts verdictsTold() {
  return told;
}

}  // namespace sondex
