#include "host/linux/task_survey.h"

#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "host/linux/clock.h"

namespace host::linux_machine {

// How long a look may stand for the present.
static constexpr uint64_t kMoment = 100'000'000;

static constexpr int32_t kUsualPriority = 120;
static constexpr int32_t kZombie = 0x20;

// TASK_* as far as they tell letters apart.
static constexpr struct {
  uint32_t bit;
  const char *letters;
} kWaiting[] = {{1, "S"}, {2, "DI"}, {4, "T"}, {8, "t"}, {0x40, "P"}};

static bool isLetterOf(const TaskRecord &task, char letter) {
  if (task.hasEnded()) return task.exitState == kZombie && letter == 'Z';
  return std::ranges::any_of(kWaiting, [&](const auto &waiting) {
    return (task.state & waiting.bit) != 0 &&
           std::string_view(waiting.letters).find(letter) != std::string_view::npos;
  });
}

static uint64_t residentPages(const TaskRecord &task) {
  // Sums that lag behind may be negative.
  const auto count = [](int64_t pages) {
    return static_cast<uint64_t>(std::max<int64_t>(pages, 0));
  };
  return count(task.filePages) + count(task.anonymousPages) + count(task.sharedPages);
}

bool agrees(const TaskRecord &task, const ProcessStat &stat) {
  static const uint64_t pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const bool hasTerminal = stat.terminal != 0;
  return task.id == stat.id && task.turns != 0 && isLetterOf(task, stat.state) &&
         task.parent == stat.parent && task.group == stat.group && task.session == stat.session &&
         hasTerminal == (task.terminalMajor != 0) &&
         (!hasTerminal || task.terminalGroup == stat.terminalGroup) &&
         task.priority - kUsualPriority == stat.nice &&
         task.realTimePriority == stat.realTimePriority && task.policy == stat.policy &&
         static_cast<uint32_t>(task.threads) == stat.threads &&
         task.virtualPages * pageSize == stat.virtualSize &&
         residentPages(task) == static_cast<uint64_t>(stat.residentPages);
}

void TaskSurvey::take(const Reader &read) {
  std::swap(now_, before_);
  number_++;
  now_.places.clear();
  takenAt_ = coarseNanoseconds();
  if (!read(now_.tasks)) now_.tasks.clear();
  for (uint32_t i = 0; i < now_.tasks.size(); i++) {
    const int32_t process = now_.tasks[i].process;
    if (now_.places.empty() || now_.places.back().process != process) {
      now_.places.push_back({process, i, 0});
    }
    now_.places.back().count++;
  }
}

bool TaskSurvey::isFresh() const {
  return !now_.places.empty() && coarseNanoseconds() - takenAt_ < kMoment;
}

std::span<const TaskRecord> TaskSurvey::Look::find(int32_t process) const {
  const auto place = std::ranges::lower_bound(places, process, {}, &Place::process);
  if (place == places.end() || place->process != process) return {};
  return std::span(tasks).subspan(place->first, place->count);
}

std::span<const TaskRecord> TaskSurvey::tasks(int32_t process) const {
  return now_.find(process);
}

std::span<const TaskRecord> TaskSurvey::restingTasks(int32_t process) const {
  const std::span<const TaskRecord> tasks = now_.find(process);
  return std::ranges::equal(tasks, before_.find(process)) ? tasks : std::span<const TaskRecord>();
}

void TaskSurvey::listProcesses(std::vector<int32_t> &pids) const {
  pids.clear();
  pids.reserve(now_.places.size());
  for (size_t i = now_.places.size(); i > 0; i--) pids.push_back(now_.places[i - 1].process);
}

}  // namespace host::linux_machine
