// The memory-status (jetsam) list of the kernel: priority band and memory limit of every process.
#pragma once

#include <cstddef>
#include <cstdint>

#include "darwin/memorystatus.h"

namespace sondex {

// What getJetsamPropertiesOfPID and getMemoryStatusPriorityOfPID answer without a list.
constexpr int32_t kNoJetsamList = -2;

// A list as taken: the byte count the kernel gave, negative when the second call failed, and that
// many bytes of entries, aligned as they have to be.
struct JetsamList {
  int32_t byteCount;
  int32_t isInOrder;  // as getMemoryStatusPriorityList leaves it; 0 where that isn't known
  darwin::memorystatus_priority_entry entries[];
};

// The kernel's memory-status control call. Returns its result: a byte count for the list command,
// -1 with errno.
int memorystatus_control(uint32_t command, int32_t pid, uint32_t flags, void *buffer,
                         size_t bufferSize);

// Takes the list, in ascending order of process ID. Returns a heap block that the caller frees;
// null, after a message when the kernel refused.
JetsamList *getMemoryStatusPriorityList();

// The first entry of `pid` inside the list, null when it is not in it, and kNoJetsamList as a
// pointer for a null list.
const darwin::memorystatus_priority_entry *getJetsamPropertiesOfPID(int32_t pid,
                                                                    const JetsamList *list);

// The priority band of `pid`, -1 when it is not in the list, kNoJetsamList for a null list. Nothing
// calls it yet.
int32_t getMemoryStatusPriorityOfPID(int32_t pid, const JetsamList *list);

// Asks the kernel for the entry of `pid` and writes it to `entry`. Returns 0, or the number of the
// error, without a message: DARWIN_ESRCH for a process that is not in the list.
int getMemoryStatusEntry(int32_t pid, darwin::memorystatus_priority_entry *entry);

// Puts `pid` into a band (numbers below 0 as memorystatus_priority_properties has them); its user
// data stays. Returns as getMemoryStatusEntry.
int setMemoryStatusPriority(int32_t pid, int32_t band);

// Makes `limit` (MB; 0 and below: none of its own) both limits of `pid`; whether exceeding them is
// fatal stays. Returns 0, or the number of the error.
int setMemoryStatusLimit(int32_t pid, int32_t limit);

// Orders of two entries for qsort. By process ID: 1 or -1, never 0. By band: 1, 0 or -1; nothing
// calls it yet.
int compare_jetsam_pids(const void *a, const void *b);
int compare_jetsam_priorities(const void *a, const void *b);

}  // namespace sondex
