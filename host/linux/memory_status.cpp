#include "host/linux/memory_status.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "host/darwin/memorystatus.h"
#include "host/linux/liveness.h"

namespace host::linux_machine {

static constexpr int32_t kScoreMost = 1000;

int32_t jetsamBand(int32_t scoreAdjustment) {
  int32_t score = std::clamp(scoreAdjustment, -kScoreMost, kScoreMost);
  return (kScoreMost - score) * darwin::JETSAM_PRIORITY_MAX / (2 * kScoreMost);
}

int32_t jetsamLimit(uint64_t limit) {
  return limit == kNoMemoryLimit ? -1 : saturate<int32_t>(limit >> 20);
}

static bool isProcessAlive(int procDirectory, int32_t pid) {
  const FileHandle process = openStartingPoint(procDirectory, std::to_string(pid).c_str());
  return process.isOpen() && isAlive(process.get());
}

void MemoryStatus::list(int procDirectory, const std::vector<int32_t> &pids, KnownProcesses &known,
                        std::vector<darwin::memorystatus_priority_entry> &entries) {
  limits_.read();
  entries.clear();
  entries.reserve(pids.size());
  for (int32_t pid : pids) {
    char name[32];
    std::snprintf(name, sizeof name, "%d/oom_score_adj", pid);
    std::string_view text;
    int32_t score = 0;
    if (reader_.readRecord(procDirectory, name, text) != kAnswered ||
        !TextCursor(text).number(score)) {
      continue;
    }
    if (!known.takeLife(pid) && !isProcessAlive(procDirectory, pid)) continue;
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
