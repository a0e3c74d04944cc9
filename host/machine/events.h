// Questions about what happens to processes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/errno.h"

namespace host {

// What happened to a watched process since it was last told of: NOTE_FORK, NOTE_EXEC and NOTE_EXIT
// of darwin/kqueue.h. After NOTE_EXIT the process is no longer watched.
struct ProcessEvent {
  pid_t pid;
  uint32_t notes;
};

// Watches processes for one kernel queue. Every function may be called while another thread waits.
class ProcessEvents {
 public:
  ProcessEvents() = default;
  ProcessEvents(const ProcessEvents &) = delete;
  ProcessEvents &operator=(const ProcessEvents &) = delete;
  virtual ~ProcessEvents() = default;

  // DARWIN_ESRCH for a process that is gone or a zombie.
  virtual Errno watch(pid_t pid) = 0;
  virtual void unwatch(pid_t pid) = 0;
  // Waits until something happens to a watched process, without end if there is no timeout, and
  // puts that in place of `events`: none when the time was up. DARWIN_EINTR when a signal handler
  // ran meanwhile.
  virtual Errno wait(std::optional<std::chrono::nanoseconds> timeout,
                     std::vector<ProcessEvent> &events) = 0;
};

class EventQuestions {
 public:
  // Each answer is a watch of its own.
  virtual Errno processEvents(std::unique_ptr<ProcessEvents> &) { return darwin::DARWIN_ENOTSUP; }

 protected:
  ~EventQuestions() = default;
};

EventQuestions &events();

}  // namespace host
