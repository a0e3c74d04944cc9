#include "nstat/accounting.h"

namespace sondex {

SharedInt process_pid_info[kLastSource + 1];
SourceTotals process_ntstat_info[kLastSource + 1];
SharedInt g_nstat_ok{0};

bool sumSources(int32_t pid, NetworkTotals *totals) {
  if (pid == 0) return false;
  *totals = {};
  bool owned = false;
  // Kept: the last place can be filed into but is not summed.
  for (int source = 0; source < kLastSource; source++) {
    if (load(process_pid_info[source]) != pid) continue;
    totals->received += load(process_ntstat_info[source].received);
    totals->sent += load(process_ntstat_info[source].sent);
    owned = true;
  }
  return owned;
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
