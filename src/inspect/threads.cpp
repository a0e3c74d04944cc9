#include "inspect/threads.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kcdata/stackshot.h"
#include "terminal/output.h"

namespace sondex {

// The executable last looked at, and its symbols, which nothing loads.
static char *lastPathName = nullptr;
static void *binary_symbol_table = nullptr;

int dump_workqueue_information(const ProcessRecord *record) {
  const darwin::proc_workqueueinfo &queue = record->workqueueInfo;
  if (queue.pwq_nthreads == 0) return output(" (Process has no workqueues)\n", 0);
  return outputFormatted(
      0, " Workqueues:%d threads (%d running, %d blocked) State: %d\n",
      static_cast<int>(queue.pwq_nthreads), static_cast<int>(queue.pwq_runthreads),
      static_cast<int>(queue.pwq_blockedthreads), static_cast<int>(queue.pwq_state));
}

int showProcThreads(const ProcessRecord *) {
  return printf("NO PROC THREADS YET\n");
}

const char *dumpStackSnapshot(int32_t pid, int32_t) {
  stackshot_wrapper(pid, 1, 1);
  return "NOT YET..\n";
}

void dump_stack_snapshot(const void *) {}

// Notes that the executable at `path` was looked at. Once its symbols are loaded, there is nothing
// to note any more.
static void notePath(const char *path) {
  const bool hasSymbols =
      binary_symbol_table != nullptr && lastPathName != nullptr && strcmp(lastPathName, path) == 0;
  free(lastPathName);
  lastPathName = hasSymbols ? nullptr : strdup(path);
}

void dump_thread_information(const ProcessRecord *record) {
  if (dumpStackSnapshot(pidOf(record), 0) == nullptr) return;
  notePath(record->path);
  output("TID             USER                                                    KERNEL\n", 0);
}

}  // namespace sondex
