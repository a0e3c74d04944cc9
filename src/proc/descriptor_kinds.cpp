#include "proc/descriptor_kinds.h"

#include "darwin/proc_info.h"

namespace sondex {

// Kept: events of the file system are asked about as pipes, and network policies as kqueues.
static const DescriptorKind kKinds[] = {
    {darwin::PROX_FDTYPE_ATALK, "AppleTalk", 0, false},
    {darwin::PROX_FDTYPE_VNODE, "File", darwin::PROC_PIDFDVNODEPATHINFO, true},
    {darwin::PROX_FDTYPE_SOCKET, "Socket", darwin::PROC_PIDFDSOCKETINFO, true},
    {darwin::PROX_FDTYPE_PSHM, "Shared Mem", darwin::PROC_PIDFDPSHMINFO, true},
    {darwin::PROX_FDTYPE_PSEM, "Semaphore", darwin::PROC_PIDFDPSEMINFO, true},
    {darwin::PROX_FDTYPE_KQUEUE, "KQueue", darwin::PROC_PIDFDKQUEUE_EXTINFO, true},
    {darwin::PROX_FDTYPE_PIPE, "Pipe/FIFO", darwin::PROC_PIDFDPIPEINFO, true},
    {darwin::PROX_FDTYPE_FSEVENTS, "FSEvents", darwin::PROC_PIDFDPIPEINFO, false},
    {darwin::PROX_FDTYPE_NETPOLICY, nullptr, darwin::PROC_PIDFDKQUEUE_EXTINFO, false},
    {darwin::PROX_FDTYPE_CHANNEL, nullptr, darwin::PROC_PIDFDCHANNELINFO, false},
    {darwin::PROX_FDTYPE_NEXUS, nullptr, kNexusFlavour, false},
};

const DescriptorKind *findDescriptorKind(uint32_t type) {
  for (const DescriptorKind &kind : kKinds) {
    if (kind.type == type) return &kind;
  }
  return nullptr;
}

}  // namespace sondex
