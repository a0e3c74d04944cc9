// The threads of a process in a device file.
#pragma once

#include <stdint.h>
#include <stdio.h>

namespace sondex {

// How busy a thread was in the second sample.
struct ThreadShare {
  uint64_t name;  // its ID, or its handle where IDs are not known
  int32_t share;  // tenths of a percent of a processor
};

// The threads as they were listed in the second sample; of the first one those that `from` stands
// at.
struct ThreadSource {
  FILE *from;
  const ThreadShare *second;
  int32_t secondCount;
};

// What of a process its threads have too where nothing else is said.
struct ThreadDefaults {
  int32_t priority;
  int32_t policy;
  bool areStopped;  // whatever each was when it was asked about
};

constexpr int32_t kMostThreads = 4096;  // of a process in a device file

// Writes the threads of `pid` to `to` as they are now, raw, for writeThreads() of this run, where
// it is asked for with their registers. Returns the sum of their shares.
int64_t spoolThreads(int32_t pid, bool withRegisters, bool is32Bit, FILE *to);

// Lists the threads into `list`, at most kMostThreads. Returns how many.
int32_t listShares(int32_t pid, ThreadShare *list);

// Writes the key `threads`, unless there is just one as the file takes for granted. False when what
// was spooled can't be read.
bool writeThreads(const ThreadSource *source, const ThreadDefaults *defaults);

// Writes the key `policy` of a thread or a process; nothing for one that files don't know.
void writePolicy(int32_t policy);

// Before the first process of a file.
void beginThreadIDs();

}  // namespace sondex
