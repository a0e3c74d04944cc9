// What comes of asking the kernel a question whose answer is looked at more closely: one line per
// call on standard output.
#pragma once

#include <stdint.h>

namespace sondex {

constexpr int32_t kNoProcess = -1;

struct Call {
  char text[96];
  bool isTold;
};

// How often each verdict was told.
struct Verdicts {
  int32_t fine;
  int32_t refused;
  int32_t different;
};

// A call that is about to be made: its name with the flavour or the command, and the process that
// it asks about or kNoProcess.
Call beginCall(const char *name, int32_t pid);

// Tells who refused it or what it lacks; nothing after another verdict.
void tellRefused(Call *call, const char *by);

// The same, for what the call left in errno: 0 where it gives no reason.
void tellError(Call *call, int error);

// The same, for a result of Mach's. True, and nothing is told, where that is success.
bool expectSuccess(Call *call, int32_t result);

// Where `holds` is false, tells that the answer is different: how, a printf format with its
// arguments says. Of several differences the first is told. Returns `holds`.
__attribute__((format(printf, 3, 4))) bool expect(Call *call, bool holds, const char *format, ...);

// Told fine where nothing else was.
void endCall(Call *call);

// Those that were told up to now.
Verdicts verdictsTold();

}  // namespace sondex
