// Questions about the descriptors of a process.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "darwin/proc_info.h"
#include "host/errno.h"

namespace host {

class DescriptorQuestions {
 public:
  // Descriptors of one process, ascending. `limit` is how many the caller has room for: a machine
  // need not look further.
  virtual Errno descriptors(pid_t, size_t /*limit*/, std::vector<darwin::proc_fdinfo> &) {
    return darwin::DARWIN_ENOTSUP;
  }
  // How many slots the process's descriptor table has.
  virtual Errno descriptorTableSize(pid_t, size_t &) { return darwin::DARWIN_ENOTSUP; }
  // PROX_FDTYPE_* of an open descriptor; DARWIN_EBADF for a number that is not open. Asked only to
  // tell the two apart after vnodeDescriptor answered DARWIN_EBADF; a machine that leaves it out is
  // taken to mean "not open".
  virtual Errno descriptorType(pid_t, int /*fd*/, uint32_t &) { return darwin::DARWIN_ENOTSUP; }

  // DARWIN_EBADF for a number that is not open or of another type; DARWIN_ENOTSOCK from
  // socketDescriptor for another type.
  virtual Errno vnodeDescriptor(pid_t, int /*fd*/, darwin::vnode_fdinfowithpath &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno socketDescriptor(pid_t, int /*fd*/, darwin::socket_fdinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno semaphoreDescriptor(pid_t, int /*fd*/, darwin::psem_fdinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno sharedMemoryDescriptor(pid_t, int /*fd*/, darwin::pshm_fdinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno pipeDescriptor(pid_t, int /*fd*/, darwin::pipe_fdinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno kqueueDescriptor(pid_t, int /*fd*/, darwin::kqueue_fdinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno kqueueEvents(pid_t, int /*fd*/, std::vector<darwin::kevent_extinfo> &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno channelDescriptor(pid_t, int /*fd*/, darwin::channel_fdinfo &) {
    return darwin::DARWIN_ENOTSUP;
  }

 protected:
  ~DescriptorQuestions() = default;
};

DescriptorQuestions &descriptors();

}  // namespace host
