// One process in a device file: its figures in two samples, and all else as it was in the first.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include "capture/thread_capture.h"
#include "darwin/proc_info.h"
#include "darwin/rusage.h"
#include "nstat/accounting.h"
#include "proc/jetsam.h"

namespace sondex {

struct ProcessFigures {
  darwin::proc_taskallinfo info;
  darwin::rusage_info_v3 usage;
  NetworkTotals traffic;
  bool isTold;  // `info`
  bool hasUsage;
  bool hasTraffic;
};

// What was spooled of a process: one part after the other from `start` on.
struct ProcessParts {
  long start;
  size_t beginning;  // bytes of what it was started with
  size_t middle;     // descriptors and regions
  size_t end;        // what it may do
  int64_t share;     // of its threads
  bool isWhole;      // false when it ended meanwhile
};

// Asks for the figures of `pid` as they are now, and takes its traffic from `sums`, where that is
// not null. False when there is no such process (any more).
bool sampleProcess(int32_t pid, const SourceSums *sums, ProcessFigures *figures);

bool isZombie(const ProcessFigures *figures);
bool isStopped(const ProcessFigures *figures);

// Whether both samples are of one process, and not of two that had the same PID, or of one that has
// ended in between.
bool isSameProcess(const ProcessFigures *first, const ProcessFigures *second);

// Writes what else there is to say of `pid` now to `to`, for writeProcess() of this run. With
// `withMemory` the contents of its regions and its registers are taken along.
void spoolProcess(int32_t pid, const ProcessFigures *figures, bool withMemory, FILE *to,
                  ProcessParts *parts);

// A process of both samples; the second is the first again where it was gone by then.
struct CapturedProcess {
  int32_t pid;
  const ProcessFigures *first;
  const ProcessFigures *second;
  const ProcessParts *parts;
  ThreadSource threads;
};

struct CaptureMoment {
  int64_t seconds;  // since 1970, of the first sample
  int64_t microseconds;
  int64_t up;                // microseconds since the system was started
  const JetsamList *jetsam;  // null: not known
};

// Writes the process. False when what was spooled can't be read.
bool writeProcess(const CapturedProcess *process, const CaptureMoment *moment);

}  // namespace sondex
