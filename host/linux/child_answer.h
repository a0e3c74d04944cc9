// Work done in a child process, because it may go wrong in ways that the program must survive: what
// breaks, hangs or grows without end there is only an answer that does not come.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace host::linux_machine {

struct ChildLimits {
  std::chrono::seconds time;  // on the clock, and of a processor
  size_t memory;              // bytes of address space beyond what the program has
  size_t answer;              // words
};

// Calls `work` in a child, which ends with it, and returns what it returned; nothing when the child
// failed, had no end in time, or threw. Only the calling thread exists in the child: `work` must
// not want locks that another one may hold. A tracer that dies lets its tracees go: whatever `work`
// stopped, it goes on in the end.
std::optional<std::vector<uint64_t>> answerOfChild(
    const std::function<std::vector<uint64_t>()> &work, const ChildLimits &limits);

}  // namespace host::linux_machine
