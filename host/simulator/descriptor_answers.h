// What a kernel says about a descriptor, in Darwin's structures. All fields are set.
#pragma once

#include <cstdint>
#include <vector>

#include "darwin/proc_info.h"
#include "host/errno.h"
#include "host/simulator/peers.h"
#include "host/simulator/running_process.h"

namespace host::simulator {

// PROX_FDTYPE_*.
uint32_t typeOf(const Descriptor &descriptor);

// An open descriptor, its process, and what is around it.
struct DescriptorView {
  const RunningProcess &process;
  const Descriptor &descriptor;
  const Peers &peers;
  Nanoseconds now;
};

// Each answers DARWIN_EBADF for a descriptor of another type, fillSocket DARWIN_ENOTSOCK; the
// output is then as it was.
Errno fillVnode(const DescriptorView &view, darwin::vnode_fdinfowithpath &info);
Errno fillSocket(const DescriptorView &view, darwin::socket_fdinfo &info);
Errno fillSemaphore(const DescriptorView &view, darwin::psem_fdinfo &info);
Errno fillSharedMemory(const DescriptorView &view, darwin::pshm_fdinfo &info);
Errno fillPipe(const DescriptorView &view, darwin::pipe_fdinfo &info);
Errno fillKqueue(const DescriptorView &view, darwin::kqueue_fdinfo &info);
Errno fillKqueueEvents(const DescriptorView &view, std::vector<darwin::kevent_extinfo> &events);
Errno fillChannel(const DescriptorView &view, darwin::channel_fdinfo &info);

}  // namespace host::simulator
