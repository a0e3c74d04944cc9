// A look at all tasks of the system at once.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "host/linux/kernel_iterator.h"

namespace host::linux_machine {

// What the kernel keeps of a task, in its own terms: what tells whether it has run, and what others
// can change while it doesn't. Pids are those of the initial namespace.
struct TaskRecord {
  int32_t id;
  int32_t process;
  uint64_t startTime;  // nanoseconds since boot
  uint64_t runTime;    // nanoseconds on a processor
  uint64_t turns;      // how often it was put on one
  int32_t parent;
  int32_t group;
  int32_t session;
  int32_t terminalMajor;  // 0 for none
  int32_t terminalIndex;
  int32_t terminalGroup;
  uint32_t state;  // TASK_*
  int32_t exitState;
  int32_t priority;  // 120 more than the nice value
  uint32_t realTimePriority;
  uint32_t policy;
  int32_t threads;
  uint64_t virtualPages;
  // As far as the kernel has summed them up.
  int64_t filePages;
  int64_t anonymousPages;
  int64_t sharedPages;
  int16_t score;  // oom_score_adj
  int16_t unused[3];

  bool operator==(const TaskRecord &) const = default;
  bool hasEnded() const { return exitState != 0; }
};

class TaskIterator {
 public:
  // As KernelIterator::load.
  static std::optional<TaskIterator> load(const KernelTypes &types);

  // Fills `records` with those of all tasks, ascending by process and then by ID. False, with no
  // records, if the kernel can't give them now.
  bool read(std::vector<TaskRecord> &records);

 private:
  explicit TaskIterator(KernelIterator tasks) : tasks_(std::move(tasks)) {}

  KernelIterator tasks_;
};

}  // namespace host::linux_machine
