#include "host/machine/kernel.h"

#include "host/posix.h"

namespace host {

uint32_t KernelQuestions::callerUser() {
  return __real_geteuid();
}

int64_t KernelQuestions::timeOfDay() {
  return __real_time(nullptr);
}

void KernelQuestions::wallClock(darwin::timeval &time) {
  time.tv_sec = timeOfDay();
  time.tv_usec = 0;
}

}  // namespace host
