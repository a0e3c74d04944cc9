// Questions about the inside of a process: its task's ports, its memory, its threads' registers.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <variant>

#include "darwin/proc_info.h"
#include "darwin/thread_state.h"
#include "host/errno.h"

namespace host {

// What a thread has in its registers, in the form of its word size.
using ThreadRegisters = std::variant<darwin::arm_thread_state64_t, darwin::arm_thread_state32_t>;

class TaskQuestions {
 public:
  // Whether the caller may have the port that opens the process's task, or the one that only names
  // it.
  virtual Errno taskPort(pid_t) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno taskNamePort(pid_t) { return darwin::DARWIN_ENOTSUP; }
  // Whether the host keeps the kernel's task among its special ports, as some changed kernels do.
  virtual Errno kernelTaskPort() { return darwin::DARWIN_ENOTSUP; }

  // The region that contains `address`, or the next one above it; DARWIN_EINVAL past the last.
  virtual Errno region(pid_t, uint64_t /*address*/, darwin::proc_regionwithpathinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }
  // All `size` bytes or none: DARWIN_EFAULT where a page is missing or may not be read.
  virtual Errno readMemory(pid_t, uint64_t /*address*/, size_t /*size*/, void * /*to*/) {
    return darwin::DARWIN_ENOTSUP;
  }
  // What is known of `count` pages of the kernel's size from `address` on, the start of one:
  // VM_PAGE_QUERY_*.
  virtual Errno pages(pid_t, uint64_t /*address*/, size_t /*count*/, int * /*to*/) {
    return darwin::DARWIN_ENOTSUP;
  }
  // Of a thread by its system-wide ID.
  virtual Errno threadRegisters(pid_t, uint64_t /*id*/, ThreadRegisters &) {
    return darwin::DARWIN_ENOTSUP;
  }

 protected:
  ~TaskQuestions() = default;
};

TaskQuestions &tasks();

}  // namespace host
