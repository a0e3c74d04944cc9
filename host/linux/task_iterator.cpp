#include "host/linux/task_iterator.h"

#include <algorithm>
#include <tuple>
#include <type_traits>

namespace host::linux_machine {

// The second and third of a task's pids are those of its group and session, by the order of the
// kernel's enum pid_type; the counts of pages stand in that of its MM_FILEPAGES and so on.
static constexpr RecordField kFields[] = {
    {RECORD_FIELD(TaskRecord, id), "pid"},
    {RECORD_FIELD(TaskRecord, process), "tgid"},
    {RECORD_FIELD(TaskRecord, startTime), "start_boottime"},
    {RECORD_FIELD(TaskRecord, runTime), "se.sum_exec_runtime"},
    {RECORD_FIELD(TaskRecord, turns), "sched_info.pcount"},
    {RECORD_FIELD(TaskRecord, parent), "real_parent->tgid"},
    {RECORD_FIELD(TaskRecord, group), "signal->pids[2]->numbers[0].nr"},
    {RECORD_FIELD(TaskRecord, session), "signal->pids[3]->numbers[0].nr"},
    {RECORD_FIELD(TaskRecord, terminalMajor), "signal->tty->driver->major"},
    {RECORD_FIELD(TaskRecord, terminalIndex), "signal->tty->index"},
    {RECORD_FIELD(TaskRecord, terminalGroup), "signal->tty->ctrl.pgrp->numbers[0].nr"},
    {RECORD_FIELD(TaskRecord, state), "__state"},
    {RECORD_FIELD(TaskRecord, exitState), "exit_state"},
    {RECORD_FIELD(TaskRecord, priority), "static_prio"},
    {RECORD_FIELD(TaskRecord, realTimePriority), "rt_priority"},
    {RECORD_FIELD(TaskRecord, policy), "policy"},
    {RECORD_FIELD(TaskRecord, virtualPages), "mm->total_vm"},
    {RECORD_FIELD(TaskRecord, filePages), "mm->rss_stat[0].count", "mm->rss_stat.count[0].counter"},
    {RECORD_FIELD(TaskRecord, anonymousPages), "mm->rss_stat[1].count",
     "mm->rss_stat.count[1].counter"},
    {RECORD_FIELD(TaskRecord, sharedPages), "mm->rss_stat[3].count",
     "mm->rss_stat.count[3].counter"},
    {RECORD_FIELD(TaskRecord, threads), "signal->nr_threads"},
    {RECORD_FIELD(TaskRecord, score), "signal->oom_score_adj"},
};

static_assert(std::has_unique_object_representations_v<TaskRecord>, "the kernel fills all of it");

static constexpr RecordSource kTasks = {"bpf_iter_task", "bpf_iter__task", "task", "task_struct"};

std::optional<TaskIterator> TaskIterator::load(const KernelTypes &types) {
  std::optional<KernelIterator> tasks =
      KernelIterator::load(types, kTasks, kFields, sizeof(TaskRecord));
  if (!tasks) return std::nullopt;
  return TaskIterator(std::move(*tasks));
}

bool TaskIterator::read(std::vector<TaskRecord> &records) {
  int own = -1;
  const bool isRead = tasks_.read(records, SIZE_MAX, 0, own);
  std::ranges::sort(records, {},
                    [](const TaskRecord &task) { return std::tie(task.process, task.id); });
  return isRead;
}

}  // namespace host::linux_machine
