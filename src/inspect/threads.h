// Threads and work queues of a process.
#pragma once

#include <cstdint>

#include "proc/process_record.h"

namespace sondex {

// Writes the line on the work queues of `record`. Returns what output() returned.
int dump_workqueue_information(const ProcessRecord *record);

// Prints a fixed notice in place of the threads of `record`. Returns the number of characters
// written.
int showProcThreads(const ProcessRecord *record);

// Prints a stackshot of the process, then the header of a table of threads that has no rows.
// Nothing calls it yet.
void dump_thread_information(const ProcessRecord *record);

// Prints a stackshot of `pid`; the second argument is not used. Returns a constant text, never
// null.
const char *dumpStackSnapshot(int32_t pid, int32_t unused);

// Does nothing: snapshots are printed as they are taken. Nothing calls it yet.
void dump_stack_snapshot(const void *snapshot);

}  // namespace sondex
