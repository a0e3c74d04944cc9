// The machine that answers on behalf of a Darwin kernel. The C entry points (host/entry/) check
// arguments and buffers as the kernel does and then ask here, each the family of questions that it
// is about; an answer is in Darwin's own structures and units. Machines: the live Linux system
// (host/linux/), a simulated device (host/simulator/), and one that supports nothing (host/none/).
#pragma once

#include "host/errno.h"
#include "host/machine/confinement.h"
#include "host/machine/descriptors.h"
#include "host/machine/events.h"
#include "host/machine/host_figures.h"
#include "host/machine/identity.h"
#include "host/machine/kernel.h"
#include "host/machine/memory_status.h"
#include "host/machine/networks.h"
#include "host/machine/power.h"
#include "host/machine/processes.h"
#include "host/machine/tasks.h"

namespace host {

// Every question may be asked from any thread. What a machine does not say is "not supported"
// (DARWIN_ENOTSUP). A question about a process answers DARWIN_ESRCH for one that is gone or a
// zombie, and DARWIN_EPERM where the caller may not look at it.
//
// The families are virtual bases, so that a machine can be put together from parts which answer one
// or a few of them each.
class Machine : public virtual KernelQuestions,
                public virtual ProcessQuestions,
                public virtual ConfinementQuestions,
                public virtual TaskQuestions,
                public virtual DescriptorQuestions,
                public virtual HostQuestions,
                public virtual MemoryStatusQuestions,
                public virtual NetworkQuestions,
                public virtual IdentityQuestions,
                public virtual PowerQuestions,
                public virtual EventQuestions {
 public:
  Machine() = default;
  Machine(const Machine &) = delete;
  Machine &operator=(const Machine &) = delete;
  virtual ~Machine() = default;
};

// The machine that the entry points ask. Chosen once, before main, from SONDEX_DEVICE
// (host/selection.h says how).
Machine &machine();

// Replaces the machine (null: back to the one chosen at start) and returns the one replaced, or
// null if it was that one. The caller keeps `replacement` alive. For tests, before other threads
// ask.
Machine *useMachine(Machine *replacement);

}  // namespace host
