#include "control/jetsam_control.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "darwin/errors.h"
#include "proc/jetsam.h"
#include "proc/process_table.h"
#include "terminal/ending.h"
#include "terminal/prompt.h"
#include "terminal/status_bar.h"
#include "text/append.h"
#include "text/typed_number.h"

namespace sondex {

using Entry = darwin::memorystatus_priority_entry;

constexpr int32_t kShownFor = 5;  // redraws

// A row of 80 cells: a status bar of that width shows nothing of a longer text.
constexpr size_t kRowSize = 80;

// What was answered to one of the questions, and what became of it.
struct Change {
  bool isWanted;
  int32_t value;
  int error;  // as setting it returned, and its text
  char reason[30];
};

__attribute__((format(printf, 1, 2))) static void say(const char *format, ...) {
  char text[kRowSize];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  insistOnStatus(text, kShownFor);
}

// "123 (locationd)"; without a name for a process that the list on the screen does not have.
static void describe(int32_t pid, char *text, size_t size) {
  snprintf(text, size, "%d", pid);
  enterProcessTables();
  const ProcessRecord *record = findProcessInformationByPid(previousTable(), pid);
  if (record != nullptr) {
    const char *name = record->taskAllInfo.pbsd.pbi_comm;
    append(text, size, " (");
    appendSafe(text, size, name, sizeof record->taskAllInfo.pbsd.pbi_comm);
    append(text, size, ")");
  }
  leaveProcessTables();
}

static void describeLimit(int32_t limit, const char *unit, char *text, size_t size) {
  if (limit < 0) {
    snprintf(text, size, "none");
  } else {
    snprintf(text, size, "%d%s", limit, unit);
  }
}

// False, after a message, when the answer is something else than a number or nothing.
static bool ask(const char *question, const char *what, Change *change) {
  const char *answer = promptForInput(question);
  if (answer[0] == '\0') return true;
  change->isWanted = parseWholeNumber(answer, &change->value);
  if (!change->isWanted) {
    say("Nothing changed: the %s has to be a whole number of at most 32 bits", what);
  }
  return change->isWanted;
}

static bool askForBoth(const char *process, const Entry *present, Change *band, Change *limit) {
  char question[kRowSize];
  snprintf(question, sizeof question, "Jetsam band of %s, now %d: ", process, present->priority);
  if (!ask(question, "band", band)) return false;

  char presentLimit[16];
  describeLimit(present->limit, "", presentLimit, sizeof presentLimit);
  snprintf(question, sizeof question, "Memory limit in MB of %s, now %s: ", process, presentLimit);
  return ask(question, "limit", limit);
}

// The text is taken at once: by the next error the number may mean another one.
static void note(int error, Change *change) {
  change->error = error;
  if (error != 0) snprintf(change->reason, sizeof change->reason, "%s", strerror(error));
}

static void sayOutcome(int32_t pid, const char *process, const Change *band, const Change *limit) {
  Entry now = {};
  const int error = getMemoryStatusEntry(pid, &now);
  if (error == darwin::DARWIN_ESRCH || band->error == darwin::DARWIN_ESRCH ||
      limit->error == darwin::DARWIN_ESRCH) {
    say("%s has ended meanwhile", process);
    return;
  }
  if (band->error != 0 && limit->error != 0) {
    say("Band refused: %s; limit refused: %s", band->reason, limit->reason);
    return;
  }

  char holds[kRowSize];
  if (error != 0) {
    snprintf(holds, sizeof holds, "not read back: %s", strerror(error));
  } else {
    char presentLimit[16];
    describeLimit(now.limit, " MB", presentLimit, sizeof presentLimit);
    snprintf(holds, sizeof holds, "band %d, limit %s", now.priority, presentLimit);
  }
  if (band->error != 0) {
    say("Band refused: %s; %s", band->reason, holds);
  } else if (limit->error != 0) {
    say("Limit refused: %s; %s", limit->reason, holds);
  } else if (band->isWanted || limit->isWanted) {
    say("%s is set: %s", process, holds);
  } else {
    say("Nothing changed: %s", holds);
  }
}

void controlJetsam(int32_t pid) {
  char process[32];  // an int32_t, a name of 15 bytes, and what is around it
  describe(pid, process, sizeof process);
  Entry present = {};
  const int error = getMemoryStatusEntry(pid, &present);
  if (error == darwin::DARWIN_ESRCH) {
    say("%s is not in the jetsam list", process);
    return;
  }
  if (error != 0) {
    say("The jetsam list can't be read: %s", strerror(error));
    return;
  }

  Change band = {};
  Change limit = {};
  if (!askForBoth(process, &present, &band, &limit)) return;
  // Who is told to end has no answer, which is not the same as an empty one.
  if (reasonToEnd() != 0) return;
  if (band.isWanted) note(setMemoryStatusPriority(pid, band.value), &band);
  if (limit.isWanted) note(setMemoryStatusLimit(pid, limit.value), &limit);
  sayOutcome(pid, process, &band, &limit);
}

}  // namespace sondex
