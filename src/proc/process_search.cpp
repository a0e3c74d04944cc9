#include "proc/process_search.h"

#include <stdio.h>
#include <stdlib.h>
#include <strings.h>

#include "state/tracing.h"
#include "text/safe_text.h"

namespace sondex {

constexpr int kComparedNameLength = 15;

int32_t findProcess(TableView table, const char *name) {
  if (table.records == nullptr) return 0;
  const bool tracing = isTracing();
  bool found = false;
  int32_t pid = 0;
  for (int32_t i = 0; i < table.count; i++) {
    const ProcessRecord *record = &table.records[i];
    const char *command = record->taskAllInfo.pbsd.pbi_comm;
    if (tracing) {
      char safe[sizeof record->taskAllInfo.pbsd.pbi_comm];
      fprintf(stderr, "%d: %s\n", pidOf(record), makeSafe(safe, sizeof safe, command, sizeof safe));
    }
    if (strncasecmp(command, name, kComparedNameLength) != 0) continue;
    if (found) {
      char *safe = copySafe(name);
      fprintf(stderr, "There are multiple matches for '%s' - %d, %d\n", safe != nullptr ? safe : "",
              pid, pidOf(record));
      free(safe);
      return -1;
    }
    found = true;
    pid = pidOf(record);
  }
  return pid;
}

}  // namespace sondex
