// Threads: how Linux states, policies and priorities are told in Darwin's numbers, how busy a
// thread has been lately, and one reading of a thread as Darwin's structure.
#pragma once

#include <cstdint>

#include "darwin/proc_info.h"
#include "host/linux/process_text.h"

namespace host::linux_machine {

// TH_STATE_* for the letter of a state. Letters of old kernels and unknown ones count as waiting.
int32_t threadState(char state);

// POLICY_* for a Linux policy.
int32_t threadPolicy(uint32_t policy);

// A Darwin priority, where more is sooner: 31 less the nice value for ordinary threads (12 to 51),
// 97 to 127 for real-time ones, 127 for deadlines, 4 for threads that only run when nothing else
// does.
int32_t threadPriority(const ProcessStat &stat);

// The highest priority that a thread of this kind can have.
int32_t largestThreadPriority(uint32_t policy);

// How much of one processor a thread uses, in tenths of a percent, as a scheduler estimates it:
// recent use counts most, and what is older fades by 5/8 every 125 ms.
class UsageEstimate {
 public:
  // `used` is the processor time so far, `start` when the thread started and `now` the time, all in
  // nanoseconds, the last two since boot. The first look answers the average over the thread's
  // life. A look less than a tick after the last one answers the same as that: less time than the
  // clock can tell apart says nothing.
  int32_t look(uint64_t used, uint64_t start, uint64_t now);

 private:
  bool looked_ = false;
  uint64_t used_ = 0;
  uint64_t lookedAt_ = 0;
  double estimate_ = 0;
};

// `stat` is the thread's own. Times come apart from it because they need not be read again for a
// thread that did not run.
struct ThreadFigures {
  uint64_t userTicks;
  uint64_t systemTicks;
  int32_t usage;
};
void fillThreadInfo(const ProcessStat &stat, const ThreadFigures &figures,
                    darwin::proc_threadinfo &info);

}  // namespace host::linux_machine
