// Questions about processes and their threads.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "darwin/proc_info.h"
#include "darwin/rusage.h"
#include "host/errno.h"

namespace host {

// What a process was started with.
struct ProcessArguments {
  std::string path;  // of the executable
  std::vector<std::string> arguments;
  std::vector<std::string> environment;
  bool is64Bit = true;
};

class ProcessQuestions {
 public:
  // All processes, zombies included, newest first.
  virtual Errno processIDs(std::vector<int32_t> &) { return darwin::DARWIN_ENOTSUP; }

  virtual Errno taskAllInfo(pid_t, darwin::proc_taskallinfo &) { return darwin::DARWIN_ENOTSUP; }
  // Answers for a zombie too when `zombies` is set.
  virtual Errno bsdInfo(pid_t, bool /*zombies*/, darwin::proc_bsdinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno executablePath(pid_t, std::string &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno arguments(pid_t, ProcessArguments &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno coalition(pid_t, darwin::proc_pidcoalitioninfo &) { return darwin::DARWIN_ENOTSUP; }
  // Answers for a zombie too, with the latest layout, of which older ones are prefixes.
  virtual Errno resourceUsage(pid_t, darwin::rusage_info_v4 &) { return darwin::DARWIN_ENOTSUP; }
  // PROC_APPSTATE_* of an application.
  virtual Errno applicationState(pid_t, int32_t &) { return darwin::DARWIN_ENOTSUP; }
  // The process group, which everybody is told, of a zombie too. By default this system knows the
  // process.
  virtual Errno processGroup(pid_t, pid_t &) { return darwin::DARWIN_ENOTSUP; }

  // DARWIN_ESRCH for a process without a work queue.
  virtual Errno workQueue(pid_t, darwin::proc_workqueueinfo &) { return darwin::DARWIN_ENOTSUP; }
  // Handles that name threads to threadInfo: the thread's user-space pointer on a device.
  virtual Errno threadHandles(pid_t, std::vector<uint64_t> &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno threadInfo(pid_t, uint64_t /*handle*/, darwin::proc_threadinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }
  // The same by system-wide thread ID.
  virtual Errno threadIDs(pid_t, std::vector<uint64_t> &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno threadInfoByID(pid_t, uint64_t /*id*/, darwin::proc_threadinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }

  // Sends a signal, with Darwin's number; 0 only looks whether it could be sent. The pid is as in
  // kill(): 0 and negative numbers mean process groups.
  virtual Errno sendSignal(pid_t, int /*signal*/) { return darwin::DARWIN_ENOTSUP; }

  // The snapshot of one process, or of all for pid -1, as chunked data. `flags` are STACKSHOT_*.
  virtual Errno stackshot(pid_t, uint64_t /*flags*/, std::vector<uint8_t> &) {
    return darwin::DARWIN_ENOTSUP;
  }

 protected:
  ~ProcessQuestions() = default;
};

ProcessQuestions &processes();

}  // namespace host
