// One sample of one process: flat, of fixed size, copied and sorted as plain bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "darwin/proc_info.h"
#include "darwin/rusage.h"

namespace sondex {

constexpr int kFDSlots = 1024;
constexpr int kThreadSlots = 512;
constexpr int kFDDetailSize = 1024;  // bytes of one descriptor's detail slot

// What a usage counter holds when the kernel gave none.
constexpr uint64_t kUsageUnknown = UINT64_MAX;

struct ProcessRecord {
  darwin::proc_taskallinfo taskAllInfo;
  darwin::proc_workqueueinfo workqueueInfo;
  int32_t numFDs;  // entries of `fds` and slots of `fdDetails`
  darwin::proc_fdinfo fds[kFDSlots];
  int32_t numThreads;  // may exceed kThreadSlots: then no thread was read
  uint8_t *fdDetails;  // heap block of numFDs slots or null, owned; slot i belongs to fds[i]
  uint64_t threadIDs[kThreadSlots];
  darwin::proc_threadinfo threads[kThreadSlots];
  int32_t totalCPU;               // sum over the threads, tenths of a percent of one processor
  darwin::rusage_info_v3 rusage;  // kUsageUnknown in every counter when not available
  darwin::proc_pidcoalitioninfo coalitionInfo;
  char path[257];  // executable path, filled by the details report
  int32_t jetsamPriority;
  int32_t jetsamLimit;  // MB
  char csStatus[4];     // code-signing verdict, empty unless asked for
  int32_t sandboxed;
  int32_t displayed;                      // 1 when the last frame drew its row
  darwin::rusage_info_v3 previousRusage;  // of the same process in the sample before, else zero
  uint64_t lastNetRX;                     // received bytes last shown
  uint64_t lastNetTX;                     // sent bytes last shown
  // First record of a table only: the system's compressor counters / 256 at this sample.
  uint32_t decompressionsStash;
  uint32_t compressionsStash;
};

static_assert(std::is_trivially_copyable_v<ProcessRecord> &&
              std::is_standard_layout_v<ProcessRecord>);

inline int32_t pidOf(const ProcessRecord *record) {
  return static_cast<int32_t>(record->taskAllInfo.pbsd.pbi_pid);
}

inline bool is64Bit(const ProcessRecord *record) {
  return (record->taskAllInfo.pbsd.pbi_flags & darwin::PROC_FLAG_LP64) != 0;
}

// User and system time, taken as nanoseconds. Saturates.
inline uint64_t cpuTime(const ProcessRecord *record) {
  const darwin::proc_taskinfo &task = record->taskAllInfo.ptinfo;
  uint64_t sum = 0;
  return __builtin_add_overflow(task.pti_total_user, task.pti_total_system, &sum) ? UINT64_MAX
                                                                                  : sum;
}

}  // namespace sondex
