// What each process has received and sent over the network: per kernel network source its owner and
// byte totals. The network-statistics client files them, columns and reports ask.
#pragma once

#include <cstdint>

#include "state/word.h"

namespace sondex {

constexpr int kLastSource = 1024;  // highest source reference with a place in the tables

struct SourceTotals {
  std::atomic<uint64_t> received;
  std::atomic<uint64_t> sent;
};

// By source reference: the owner's PID (0: not known yet, or the source is gone) and the running
// totals in bytes. The totals stay when the source goes.
extern SharedInt process_pid_info[kLastSource + 1];
extern SourceTotals process_ntstat_info[kLastSource + 1];

// Non-zero while the statistics socket is connected.
extern SharedInt g_nstat_ok;

struct NetworkTotals {
  uint64_t received;
  uint64_t sent;
};

// Sums up the sources that `pid` owns now, in bytes. False for a process that owns none, with
// zeros, and for PID 0, where `totals` is left alone. The sums can go down: a closed connection
// drops out. Any thread.
bool sumSources(int32_t pid, NetworkTotals *totals);

// The sums of all processes at one moment, for who asks over and over.
struct SourceSums;

// Takes them. Null when memory is short. The caller owns them until releaseSourceSums(). Any
// thread.
SourceSums *takeSourceSums();

// As sumSources() at the moment when they were taken. Any thread.
bool sumAtMoment(const SourceSums *sums, int32_t pid, NetworkTotals *totals);

// Null is ignored.
void releaseSourceSums(SourceSums *sums);

// The same as those of sumSources; null where sumSources answers false. In a pair that the next
// call overwrites; drawing thread only, like the two below.
const NetworkTotals *getNTStatInfo(int32_t pid);

// The low 32 bits of a total as a signed number, -1 where getNTStatInfo answers null. Nothing calls
// these yet.
int32_t getRXBytesForProcess(int32_t pid);
int32_t getTXBytesForProcess(int32_t pid);

// g_nstat_ok: whether per-process network data can be expected.
int32_t nstat_ok();

}  // namespace sondex
