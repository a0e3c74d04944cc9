#include "proc/process_search.h"

#include <stdio.h>
#include <stdlib.h>
#include <strings.h>

#include "proc/process_table.h"
#include "state/tracing.h"
#include "text/safe_text.h"

namespace sondex {

constexpr int kComparedNameLength = 15;

int32_t findProcess(const ProcessRecord *table, const char *name) {
  if (table == nullptr) return 0;
  const bool tracing = isTracing();
  bool found = false;
  int32_t pid = 0;
  const int32_t count = load(num_procs);
  for (int32_t i = 0; i < count; i++) {
    const char *command = table[i].taskAllInfo.pbsd.pbi_comm;
    if (tracing) {
      char safe[sizeof table[i].taskAllInfo.pbsd.pbi_comm];
      fprintf(stderr, "%d: %s\n", pidOf(&table[i]),
              makeSafe(safe, sizeof safe, command, sizeof safe));
    }
    if (strncasecmp(command, name, kComparedNameLength) != 0) continue;
    if (found) {
      char *safe = copySafe(name);
      fprintf(stderr, "There are multiple matches for '%s' - %d, %d\n", safe != nullptr ? safe : "",
              pid, pidOf(&table[i]));
      free(safe);
      return -1;
    }
    found = true;
    pid = pidOf(&table[i]);
  }
  return pid;
}

}  // namespace sondex
