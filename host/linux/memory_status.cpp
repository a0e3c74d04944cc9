#include "host/linux/memory_status.h"

#include <algorithm>
#include <cstdio>

#include "host/darwin/errors.h"
#include "host/darwin/memorystatus.h"
#include "host/linux/liveness.h"
#include "host/linux/own_cgroup.h"

namespace host::linux_machine {

static constexpr int32_t kScoreMost = 1000;
static constexpr uint32_t kFatal = darwin::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL;

int32_t jetsamBand(int32_t scoreAdjustment) {
  int32_t score = std::clamp(scoreAdjustment, -kScoreMost, kScoreMost);
  return (kScoreMost - score) * darwin::JETSAM_PRIORITY_MAX / (2 * kScoreMost);
}

int32_t scoreAdjustment(int32_t band) {
  const int32_t score = kScoreMost - (2 * band + 1) * kScoreMost / darwin::JETSAM_PRIORITY_MAX;
  return std::max(score, -kScoreMost);
}

int32_t jetsamLimit(uint64_t limit) {
  return limit == kNoMemoryLimit ? -1 : saturate<int32_t>(limit >> 20);
}

// As long as the process lives, the pid is its own: what was found by the pid is about it.
static Errno errorUnlessGone(int processDirectory, Errno error) {
  return isAlive(processDirectory) ? error : darwin::DARWIN_ESRCH;
}

Errno readOwnLimits(int processDirectory, int32_t pid, const std::vector<CgroupMount> &mounts,
                    darwin::memorystatus_memlimit_properties &limits) {
  OwnCgroup group;
  uint64_t bytes = 0;
  Errno error = group.find(mounts, pid);
  if (error == kAnswered) error = group.readLimit(bytes);
  error = errorUnlessGone(processDirectory, error);
  if (error != kAnswered) return error;
  const int32_t limit = jetsamLimit(bytes);
  limits = {limit, kFatal, limit, kFatal};
  return kAnswered;
}

Errno writeOwnLimits(int processDirectory, int32_t pid, const std::vector<CgroupMount> &mounts,
                     const darwin::memorystatus_memlimit_properties &limits) {
  const int32_t limit = limits.memlimit_active;
  if (limits.memlimit_inactive != limit || limits.memlimit_active_attr != kFatal ||
      limits.memlimit_inactive_attr != kFatal) {
    return darwin::DARWIN_ENOTSUP;
  }
  OwnCgroup group;
  const Errno error = errorUnlessGone(processDirectory, group.find(mounts, pid));
  if (error != kAnswered) return error;
  const Errno written =
      group.writeLimit(limit > 0 ? static_cast<uint64_t>(limit) << 20 : kNoMemoryLimit);
  return written == kAnswered ? kAnswered : errorUnlessGone(processDirectory, written);
}

// The oom_score_adj of a process, from the file that is kept open for it if it is still the one
// with this pid.
static bool readScore(int procDirectory, int32_t pid, KnownProcess *known, FileReader &reader,
                      int32_t &score) {
  std::string_view text;
  bool isRead = known != nullptr && known->files.areOpen() &&
                reader.readRecord(known->files.score.handle(), text) == kAnswered;
  if (!isRead) {
    char name[32];
    std::snprintf(name, sizeof name, "%d/oom_score_adj", pid);
    isRead = reader.readRecord(procDirectory, name, text) == kAnswered;
  }
  return isRead && TextCursor(text).number(score);
}

// False for one that the survey does not know.
static bool takeFrom(const TaskSurvey &survey, int32_t pid, bool &isAlive, int32_t &score) {
  const std::span<const TaskRecord> tasks = survey.tasks(pid);
  const auto leader = std::ranges::find(tasks, pid, &TaskRecord::id);
  if (leader == tasks.end()) return false;
  isAlive = !leader->hasEnded() || leader->threads > 1;
  score = leader->score;
  return true;
}

bool MemoryStatus::lookAt(int procDirectory, int32_t pid, KnownProcesses &known, int32_t &score) {
  return readScore(procDirectory, pid, known.look(pid), reader_, score) &&
         (known.takeLife(pid) || isAlive(procDirectory, pid));
}

void MemoryStatus::list(int procDirectory, const std::vector<int32_t> &pids,
                        const TaskSurvey &survey, KnownProcesses &known,
                        std::vector<darwin::memorystatus_priority_entry> &entries) {
  const bool isSurveyed = survey.isFresh();
  limits_.read();
  entries.clear();
  entries.reserve(pids.size());
  for (int32_t pid : pids) {
    int32_t score = 0;
    bool isAlive = false;
    if (!isSurveyed || !takeFrom(survey, pid, isAlive, score)) {
      isAlive = lookAt(procDirectory, pid, known, score);
    }
    if (!isAlive) continue;
    darwin::memorystatus_priority_entry entry{};
    entry.pid = pid;
    entry.priority = jetsamBand(score);
    entry.limit = jetsamLimit(limits_.of(pid));
    entries.push_back(entry);
  }
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto &a, const auto &b) { return a.priority < b.priority; });
}

}  // namespace host::linux_machine
