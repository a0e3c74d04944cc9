// What the kernel refuses to say while a machine is captured: a device file has it refuse the same.
#pragma once

#include <stdint.h>

namespace sondex {

constexpr int32_t kEveryProcess = -1;

// Notes that a call was refused with that error, about `pid` or kEveryProcess; `form` narrows the
// call, or is null. Both are constant texts, as device files name them.
void noteRefusal(int32_t pid, const char *call, const char *form, int error);

// A place to which forgetRefusals() goes back.
int32_t refusalsNoted();
void forgetRefusals(int32_t noted);

// Writes an event for each that was noted.
void writeRefusals();

void releaseRefusals();

}  // namespace sondex
