#include "main/report.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "columns/perspective.h"
#include "columns/sort.h"
#include "control/signals.h"
#include "fds/listing.h"
#include "inspect/ports.h"
#include "inspect/threads.h"
#include "kcdata/stackshot.h"
#include "main/monitor.h"
#include "main/usage.h"
#include "nstat/client.h"
#include "proc/sampler.h"
#include "screens/details.h"
#include "state/display.h"
#include "terminal/output.h"
#include "text/safe_text.h"
#include "vm/core_dump.h"
#include "vm/region_map.h"

namespace sondex {

constexpr int32_t kEveryProcess = -1;

constexpr int32_t kCountsPatience = 250;  // milliseconds

struct Report {
  bool full;
  int32_t wantedType;  // of descriptors to list: a type or kEveryType; 0 for none
  bool ports;
  bool regions;
  bool threads;
};

// A signal during the dump only left a note, so that no part of a file stays behind.
[[noreturn]] static void endDump(int result) {
  endIfSignalled();
  exit(result);
}

[[noreturn]] static void writeCore(int32_t pid, const char *extent) {
  const bool full = extent == nullptr || strcmp(extent, "mini") != 0;
  noteEndingSignals();
  const int result = dumpCore(pid, 0, full ? kFullCore : kMiniCore);
  if (result < 0) {
    fprintf(stderr, "Core dump of process %d failed\n", pid);
  } else {
    fprintf(stderr, "%s core dumped to /tmp/core.%d\n", full ? "Full" : "Mini", pid);
  }
  endDump(result);
}

// The report that `word` asks for. Does not return for "core" and "binary", nor for a word that is
// none.
static Report chooseReport(int32_t pid, const char *word, const char *extent, const char *program) {
  Report report = {};
  if (strcmp(word, "all") == 0) {
    report.full = true;
  } else if (strcmp(word, "net") == 0) {
    report.wantedType = darwin::PROX_FDTYPE_SOCKET;
  } else if (strcmp(word, "fds") == 0) {
    report.wantedType = kEveryType;
  } else if (strcmp(word, "ports") == 0) {
    report.ports = true;
  } else if (strcmp(word, "regions") == 0) {
    report.regions = true;
  } else if (strcmp(word, "threads") == 0) {
    report.threads = true;
  } else if (strcmp(word, "core") == 0) {
    writeCore(pid, extent);
  } else if (strcmp(word, "binary") == 0) {
    noteEndingSignals();
    endDump(dumpCore(pid, 0, kBinaryCore));
  } else if (strcmp(word, "tree") != 0) {  // Kept: "tree" is a report that prints nothing
    printReportWords(program);
    exit(5);
  }
  return report;
}

static void listDescriptors(const ProcessRecord *record, int32_t pid, int32_t wantedType) {
  showProcessFDs(pid, record->fds, record->numFDs, wantedType, 1,
                 record->taskAllInfo.pbsd.pbi_comm);
}

static void reportOne(int32_t pid, const Report &report) {
  ProcessRecord *record = static_cast<ProcessRecord *>(calloc(1, sizeof(ProcessRecord)));
  if (record == nullptr) {
    perror("malloc");
    exit(1);
  }
  getProcInfo(pid, record, g_jetsam_list);
  if (report.full) {
    showProcessDetails(record, currentTable());
    stackshot_wrapper(pid, 1, 1);
    showPorts(pid, 0);
  } else if (report.wantedType != 0) {
    listDescriptors(record, pid, report.wantedType);
  } else if (report.ports) {
    printf("%s\n", showPorts(pid, 0));
  } else if (report.regions) {
    printf("%s\n", showProcRegions(pid, 0));
  } else if (report.threads) {
    stackshot_wrapper(pid, 1, 1);
  }
  releaseRecord(record);
  free(record);
}

// Prints the record's PID line. False for a record without a name, which is to be passed over.
static bool printProcessLine(const ProcessRecord *record) {
  const char *command = record->taskAllInfo.pbsd.pbi_comm;
  if (command[0] == '\0') return false;
  char name[sizeof record->taskAllInfo.pbsd.pbi_comm];
  printf("PID: %d (%s)\n", pidOf(record), makeSafe(name, sizeof name, command, sizeof name));
  return true;
}

static void reportAll(const Report &report) {
  const bool nothingSelected =
      !report.full && report.wantedType == 0 && !report.ports && !report.regions && !report.threads;
  if (nothingSelected) return;
  doSort(sortOf(getCurrentPerspective()));
  const TableView table = currentTable();
  // A report that can't be written is at its end.
  for (int32_t i = 0; i < table.count && ferror(stdout) == 0; i++) {
    endIfInterrupted();
    ProcessRecord *record = &table.records[i];
    const int32_t pid = pidOf(record);
    if (report.full) {
      showProcessDetails(record, table);
      showProcThreads(record);
      showPorts(pid, 0);
    } else if (!printProcessLine(record)) {
      continue;
    }
    if (report.wantedType != 0) listDescriptors(record, pid, report.wantedType);
    if (report.regions) printf("%s\n", showProcRegions(pid, 0));
    if (report.threads) showProcThreads(record);
    if (report.ports) printf("%s\n", showPorts(pid, 0));
  }
}

void runReport(int32_t pid, int argc, char **argv) {
  if (getpgid(pid) < 0) {
    fprintf(stderr, "%d: No such process!\n", pid);
    exit(0);
  }
  if (strcmp(argv[1], "-h") == 0) {
    printReportUsage(argv[0]);
    exit(0);
  }
  const bool all = strcmp(argv[1], "all") == 0;
  const int32_t target = all ? kEveryProcess : pid;

  Report report = {};
  if (argc == 2) {
    report.full = true;
  } else {
    store(g_Color, getenv("ZCOLOR") != nullptr ? 1 : 0);
    if (strcmp(argv[1], "monitor") == 0 || strcmp(argv[1], "vmmon") == 0) do_monitor(argc, argv);
    report = chooseReport(target, argv[2], argc > 3 ? argv[3] : nullptr, argv[0]);
  }
  store(wantCurses, 0);
  if (report.full) awaitCounts(kCountsPatience);
  endIfInterrupted();
  if (all) {
    reportAll(report);
  } else {
    reportOne(pid, report);
  }
  flushOutput();
  endIfInterrupted();
  exit(0);
}

}  // namespace sondex
