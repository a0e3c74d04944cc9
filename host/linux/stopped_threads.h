// Threads of other processes brought to a stop for a look at what they are doing, and let go again.
// Nothing in them is read here.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <vector>

namespace host::linux_machine {

// Stops threads by tracing them, which does not show in the process's own state: who waits for it
// is told nothing, and a process that is stopped stays so. All calls, the destructor's too, must
// come from the thread that made this object: to the kernel that is the tracer.
class StoppedThreads {
 public:
  // Waits until all have stopped, or none more has for `patience`: on a busy machine many take
  // their turns. Threads that are gone, are traced by another, or may not be traced are passed
  // over. One in uninterruptible sleep stops only when it wakes: better not asked for.
  StoppedThreads(const std::vector<pid_t> &threads, std::chrono::milliseconds patience);
  // Lets all of them go on as they were; a signal that one was about to get is not lost. Waits for
  // those that have not stopped yet in the same way again, as the kernel lets no others go. What is
  // still left it lets go when the thread that made this object ends.
  ~StoppedThreads();
  StoppedThreads(const StoppedThreads &) = delete;
  StoppedThreads &operator=(const StoppedThreads &) = delete;

  // Those that did stop, in the order in which they were given.
  std::vector<pid_t> stopped() const;

 private:
  struct Traced {
    pid_t id;
    bool isStopped;
    int signal;  // to be handed on; 0 for none
  };

  void wait();
  static bool look(Traced &thread);

  std::chrono::milliseconds patience_;
  std::vector<Traced> threads_;
};

}  // namespace host::linux_machine
