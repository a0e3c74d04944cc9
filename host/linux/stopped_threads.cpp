#include "host/linux/stopped_threads.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

namespace host::linux_machine {

using Clock = std::chrono::steady_clock;

// Between two looks. Most threads stop at once.
static constexpr long kFirstPause = 20'000;
static constexpr long kLongestPause = 1'000'000;

// The bits of a stop's status above the signal say which event it is.
static constexpr int kEventShift = 8;
static constexpr int kSignalMask = 0x7f;

StoppedThreads::StoppedThreads(const std::vector<pid_t> &threads,
                               std::chrono::milliseconds patience)
    : patience_(patience) {
  threads_.reserve(threads.size());
  for (const pid_t id : threads) {
    if (ptrace(PTRACE_SEIZE, id, nullptr, nullptr) != 0) continue;
    threads_.push_back({id, false, 0});
    // Fails for one that has ended by now, which the wait finds out.
    ptrace(PTRACE_INTERRUPT, id, nullptr, nullptr);
  }
  wait();
}

StoppedThreads::~StoppedThreads() {
  wait();
  for (const Traced &thread : threads_) {
    if (thread.isStopped) {
      ptrace(PTRACE_DETACH, thread.id, nullptr, static_cast<long>(thread.signal));
    }
  }
}

std::vector<pid_t> StoppedThreads::stopped() const {
  std::vector<pid_t> ids;
  for (const Traced &thread : threads_) {
    if (thread.isStopped) ids.push_back(thread.id);
  }
  return ids;
}

// Whether the thread still exists. Only looks: an end is left to whoever waits for it.
bool StoppedThreads::look(Traced &thread) {
  siginfo_t told{};
  int failed = 0;
  do {
    failed = waitid(P_PID, static_cast<id_t>(thread.id), &told,
                    WSTOPPED | WEXITED | WNOHANG | WNOWAIT | __WALL);
  } while (failed != 0 && errno == EINTR);
  if (failed == 0 && told.si_pid == 0) return true;
  if (failed != 0 || (told.si_code != CLD_TRAPPED && told.si_code != CLD_STOPPED)) return false;
  thread.isStopped = true;
  // Otherwise it was about to get a signal.
  const bool isOurStop = told.si_status >> kEventShift == PTRACE_EVENT_STOP;
  if (!isOurStop) thread.signal = told.si_status & kSignalMask;
  return true;
}

void StoppedThreads::wait() {
  Clock::time_point deadline = Clock::now() + patience_;
  timespec pause = {0, kFirstPause};
  for (size_t before = threads_.size();;) {
    std::erase_if(threads_, [](Traced &thread) { return !thread.isStopped && !look(thread); });
    const auto left = static_cast<size_t>(std::count_if(
        threads_.begin(), threads_.end(), [](const Traced &thread) { return !thread.isStopped; }));
    if (left < before) deadline = Clock::now() + patience_;
    if (left == 0 || Clock::now() >= deadline) return;
    before = left;
    nanosleep(&pause, nullptr);
    pause.tv_nsec = std::min(pause.tv_nsec * 2, kLongestPause);
  }
}

}  // namespace host::linux_machine
