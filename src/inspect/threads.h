// Threads and work queues of a process.
#pragma once

#include "proc/process_record.h"

namespace sondex {

// Writes the threads of `record`. Returns the number of characters written.
int showProcThreads(const ProcessRecord *record);

}  // namespace sondex
