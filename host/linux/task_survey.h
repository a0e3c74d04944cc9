// What two looks at all tasks, one after the other, tell of each process: whether it has rested
// between them, and whether what was read of it since the first is all still true.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "host/linux/process_text.h"
#include "host/linux/task_iterator.h"

namespace host::linux_machine {

// Whether `stat` tells the same of a task, as far as others can change it while the task rests. It
// does not if the task is on a processor or waits for one, or if the kernel doesn't count when it
// is.
bool agrees(const TaskRecord &task, const ProcessStat &stat);

class TaskSurvey {
 public:
  // Fills its argument as TaskIterator::read does.
  using Reader = std::function<bool(std::vector<TaskRecord> &)>;

  // Looks again. What an earlier look found holds until then.
  void take(const Reader &read);
  // The number of the last look, which began before anything that is read from now on; 0 before the
  // first. One that failed found no tasks.
  uint64_t number() const { return number_; }
  // Whether it found some, and was taken a moment ago.
  bool isFresh() const;

  // The tasks of a process at the last look, ascending by ID; none if it was not there.
  std::span<const TaskRecord> tasks(int32_t process) const;
  // The same if the process had the same ones at the look before, and nothing at all in their
  // records has changed; else none.
  std::span<const TaskRecord> restingTasks(int32_t process) const;
  // All processes, in descending order.
  void listProcesses(std::vector<int32_t> &pids) const;

 private:
  struct Look {
    struct Place {
      int32_t process;
      uint32_t first;
      uint32_t count;
    };
    std::vector<TaskRecord> tasks;
    std::vector<Place> places;  // ascending by process

    std::span<const TaskRecord> find(int32_t process) const;
  };

  Look now_;
  Look before_;
  uint64_t number_ = 0;
  uint64_t takenAt_ = 0;
};

}  // namespace host::linux_machine
