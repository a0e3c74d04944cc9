#include "nstat/accounting.h"

#include <stdlib.h>

#include <algorithm>

namespace sondex {

SharedInt process_pid_info[kLastSource + 1];
SourceTotals process_ntstat_info[kLastSource + 1];
SharedInt g_nstat_ok{0};

struct ProcessSum {
  int32_t pid;
  NetworkTotals totals;
};

struct SourceSums {
  int count;
  ProcessSum sums[kLastSource];  // ascending by PID, one each
};

static void addSource(int source, NetworkTotals *totals) {
  totals->received += load(process_ntstat_info[source].received);
  totals->sent += load(process_ntstat_info[source].sent);
}

bool sumSources(int32_t pid, NetworkTotals *totals) {
  if (pid == 0) return false;
  *totals = {};
  bool owned = false;
  // Kept: the last place can be filed into but is not summed.
  for (int source = 0; source < kLastSource; source++) {
    if (load(process_pid_info[source]) != pid) continue;
    addSource(source, totals);
    owned = true;
  }
  return owned;
}

// Makes one of the sums of each process, which stand beside each other.
static int mergeSums(ProcessSum *sums, int count) {
  int merged = 0;
  for (int i = 0; i < count; i++) {
    if (merged > 0 && sums[merged - 1].pid == sums[i].pid) {
      sums[merged - 1].totals.received += sums[i].totals.received;
      sums[merged - 1].totals.sent += sums[i].totals.sent;
    } else {
      sums[merged++] = sums[i];
    }
  }
  return merged;
}

SourceSums *takeSourceSums() {
  SourceSums *taken = static_cast<SourceSums *>(malloc(sizeof(SourceSums)));
  if (taken == nullptr) return nullptr;
  int count = 0;
  for (int source = 0; source < kLastSource; source++) {
    const int32_t pid = load(process_pid_info[source]);
    if (pid == 0) continue;
    taken->sums[count] = {pid, {}};
    addSource(source, &taken->sums[count++].totals);
  }
  std::sort(taken->sums, taken->sums + count,
            [](const ProcessSum &a, const ProcessSum &b) { return a.pid < b.pid; });
  taken->count = mergeSums(taken->sums, count);
  return taken;
}

bool sumAtMoment(const SourceSums *sums, int32_t pid, NetworkTotals *totals) {
  if (pid == 0) return false;
  const ProcessSum *end = sums->sums + sums->count;
  const ProcessSum *found =
      std::lower_bound(sums->sums, end, pid,
                       [](const ProcessSum &each, int32_t wanted) { return each.pid < wanted; });
  const bool owned = found != end && found->pid == pid;
  *totals = owned ? found->totals : NetworkTotals{};
  return owned;
}

void releaseSourceSums(SourceSums *sums) {
  free(sums);
}

const NetworkTotals *getNTStatInfo(int32_t pid) {
  static NetworkTotals totals;
  return sumSources(pid, &totals) ? &totals : nullptr;
}

int32_t getRXBytesForProcess(int32_t pid) {
  const NetworkTotals *totals = getNTStatInfo(pid);
  return totals == nullptr ? -1 : static_cast<int32_t>(static_cast<uint32_t>(totals->received));
}

int32_t getTXBytesForProcess(int32_t pid) {
  const NetworkTotals *totals = getNTStatInfo(pid);
  return totals == nullptr ? -1 : static_cast<int32_t>(static_cast<uint32_t>(totals->sent));
}

int32_t nstat_ok() {
  return load(g_nstat_ok);
}

}  // namespace sondex
