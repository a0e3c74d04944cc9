// Which processes Linux ends first when memory runs short, told as Darwin's jetsam list.
#pragma once

#include <cstdint>
#include <vector>

#include "darwin/memorystatus.h"
#include "host/linux/cgroup_limits.h"
#include "host/linux/known_processes.h"
#include "host/linux/procfs.h"
#include "host/linux/task_survey.h"

namespace host::linux_machine {

// The band for an oom_score_adj (-1000 never ended to 1000 ended first): 21 to 0, and 10 for the
// usual 0.
int32_t jetsamBand(int32_t scoreAdjustment);

// An oom_score_adj, the middle one, for which jetsamBand gives `band` (0 to 21).
int32_t scoreAdjustment(int32_t band);

// A limit in bytes as an entry has it, in megabytes; -1 for kNoMemoryLimit.
int32_t jetsamLimit(uint64_t limit);

// The limits of the control group of its own (own_cgroup.h) that the process of `processDirectory`,
// an open handle of /proc/PID, has in one of the hierarchies mounted there. A group has but one
// limit, and who exceeds it is ended: other limits are refused. DARWIN_ENOTSUP for that, and for a
// process that has no such group; DARWIN_ESRCH for one that is gone. Setting a limit may take time.
Errno readOwnLimits(int processDirectory, int32_t pid, const std::vector<CgroupMount> &mounts,
                    darwin::memorystatus_memlimit_properties &limits);
Errno writeOwnLimits(int processDirectory, int32_t pid, const std::vector<CgroupMount> &mounts,
                     const darwin::memorystatus_memlimit_properties &limits);

class MemoryStatus {
 public:
  // Entries of all processes among `pids` that are alive, lowest band first. `procDirectory` is an
  // open handle of /proc. Of one that a fresh survey does not know: if it was alive at the last
  // look it is taken to be alive without being asked, but only once, so that one that has ended
  // since then may still be in this list.
  void list(int procDirectory, const std::vector<int32_t> &pids, const TaskSurvey &survey,
            KnownProcesses &known, std::vector<darwin::memorystatus_priority_entry> &entries);

 private:
  bool lookAt(int procDirectory, int32_t pid, KnownProcesses &known, int32_t &score);

  CgroupLimits limits_;
  FileReader reader_;
};

}  // namespace host::linux_machine
