#include "inspect/details_report.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <initializer_list>

#include "columns/renderers.h"
#include "darwin/sandbox.h"
#include "darwin/syscalls.h"
#include "darwin/sysctl.h"
#include "fds/listing.h"
#include "inspect/code_signing.h"
#include "inspect/hierarchy.h"
#include "inspect/process_texts.h"
#include "inspect/threads.h"
#include "nstat/accounting.h"
#include "proc/process_table.h"
#include "proc/system_calls.h"
#include "state/display.h"
#include "terminal/output.h"
#include "terminal/page.h"
#include "terminal/screen.h"
#include "text/format.h"
#include "text/safe_text.h"
#include "vm/region_map.h"

namespace sondex {

constexpr size_t kLineSize = 240;
constexpr size_t kArgumentArea = 8192;
constexpr size_t kContainerPath = 1024;

constexpr darwin::mach_port_t kDeadPorts = 0xFFFFF0;  // the bits that names of dead ports share

DetailsReport openDetailsReport(ProcessRecord *record, TableView table) {
  return {record, table, darwin::DARWIN_MACH_PORT_NULL, "", 0, 0, 0, 0, openPage(true)};
}

static bool isPlain() {
  return load(wantCurses) == 0;
}

static bool isShown(int32_t toggle) {
  return isPlain() || toggle != 0;
}

// Writes a text that another process chose, of at most as many bytes as an argument area has.
static void outputSafe(const char *text) {
  char safe[kArgumentArea];
  output(makeSafe(safe, sizeof safe, text, sizeof safe), 0);
}

static void beginReport(const DetailsReport *report) {
  if (isPlain()) {
    printf("-----------------\n");
  } else {
    beginPage(&report->page);
  }
}

static void outputWarning(const char *text) {
  const uint32_t attribute = colorPair(kPairWarning);
  switchOn(attribute);
  output(text, 0);
  switchOff(attribute);
}

static bool hasTaskPort(const DetailsReport *report) {
  return report->task != darwin::DARWIN_MACH_PORT_NULL && (report->task & kDeadPorts) != kDeadPorts;
}

static void printTaskPort(const DetailsReport *report) {
  if (hasTaskPort(report)) return;
  outputWarning("Warning: Unable to get task port - Statistics will be limited\n");
}

// `line` holds kLineSize bytes.
static void printIdentity(const ProcessRecord *record, char *line) {
  const darwin::proc_bsdinfo &process = record->taskAllInfo.pbsd;
  char name[sizeof process.pbi_comm + 1];
  makeSafe(name, sizeof name, process.pbi_comm, sizeof process.pbi_comm);
  snprintf(line, kLineSize, "Process: %d\tName: %-16s\tParent: %5d\tStatus: %s\n", pidOf(record),
           name, static_cast<int>(process.pbi_ppid),
           statusToText(static_cast<int32_t>(process.pbi_status)));
  output(line, 0);
}

// Reads the argument area of a process into `area`, kArgumentArea + 1 zero bytes. Returns the text
// behind the area's count of arguments, the path of the executable; null, after a message, on
// failure.
static const char *readProgramPath(int32_t pid, char *area) {
  int name[] = {darwin::DARWIN_CTL_KERN, darwin::DARWIN_KERN_PROCARGS2, pid};
  size_t size = kArgumentArea;
  if (darwin::sysctl(name, sizeof name / sizeof name[0], area, &size, nullptr, 0) != 0) {
    perror("sysctl:PROCARGS");
    return nullptr;
  }
  return area + sizeof(int32_t);
}

static void printArguments(const char *path) {
  if (load(g_showArgs) == 0) return;
  output("argv[0]: ", 0);
  outputSafe(path);
  output("\n", 0);
}

static void printContainer(const ProcessRecord *record) {
  if (record->sandboxed == 0) return;
  char path[kContainerPath + 1] = {};
  if (darwin::sandbox_container_path_for_pid(pidOf(record), path, kContainerPath) != 0) return;
  output("Container: ", 0);
  outputSafe(path);
  output("\n", 0);
}

static void printFlags(const ProcessRecord *record) {
  output("Flags:   ", 0);
  output(print_flags(record->taskAllInfo.pbsd.pbi_flags), 0);
  output("\n", 0);
}

static void keepPath(ProcessRecord *record, const char *path) {
  const size_t length = strnlen(path, sizeof record->path - 1);
  memcpy(record->path, path, length);
  record->path[length] = '\0';
}

void extmodsToText(const darwin::vm_extmod_statistics *counts, char *to, size_t size) {
  if (counts->thread_creation_count == 0 && counts->thread_set_state_count == 0) {
    snprintf(to, size, "%s",
             counts->task_for_pid_count == 0
                 ? "\nExtmods: Task shows no signs of external modification or tampering\n"
                 : "\nExtmods: Task was looked up, but I'm not certain!\n");
    return;
  }
  snprintf(to, size,
           "\nExtmods:  Looked up %lld times, Looked up others %lld. %lld foreign threads, %lld "
           "foreign thread state settings\n",
           static_cast<long long>(counts->task_for_pid_count),
           static_cast<long long>(counts->task_for_pid_caller_count),
           static_cast<long long>(counts->thread_creation_count),
           static_cast<long long>(counts->thread_set_state_count));
}

static void printExtmods(const DetailsReport *report, char *line) {
  if (!hasTaskPort(report)) return;
  darwin::task_extmod_info info = {};
  darwin::mach_msg_type_number_t count = sizeof info;  // Kept: in bytes, which is more than needed
  if (darwin::task_info(report->task, darwin::TASK_EXTMOD_INFO,
                        reinterpret_cast<darwin::task_info_t>(&info),
                        &count) != darwin::KERN_SUCCESS) {
    return;
  }
  // A copy: in `info` it is not aligned.
  const darwin::vm_extmod_statistics counts = info.extmod_statistics;
  extmodsToText(&counts, line, kLineSize);
  output(line, 0);
}

static void printApplicationState(const ProcessRecord *record) {
  static const char *const kStates[] = {"None", "Active", "Background", "Non-UI", "Inactive"};
  int32_t state = 0;
  if (process_policy(darwin::PROC_POLICY_SCOPE_PROCESS, darwin::PROC_POLICY_ACTION_GET,
                     darwin::PROC_POLICY_APP_LIFECYCLE, darwin::PROC_POLICY_APPLIFE_STATE, &state,
                     pidOf(record), 0) != 0) {
    return;
  }
  const bool isKnown = state >= 0 && state <= darwin::PROC_APPSTATE_INACTIVE;
  outputFormatted(0, "State: %s\n", isKnown ? kStates[state] : "Unknown");
}

// Kept: no text of its own is formatted into `line`. It shows what stands there from before, mostly
// the identity.
static void printSigning(const DetailsReport *report, const char *line) {
  if (strcmp(report->signing, kNotSigned) == 0) {
    outputWarning(line);
  } else {
    output(line, 0);
  }
  output("\n", 0);
}

static void printIDs(const ProcessRecord *record) {
  const darwin::proc_bsdinfo &process = record->taskAllInfo.pbsd;
  outputFormatted(0, "UID:    %5d\tRUID: %5d\tSVUID: %5d\nGID:    %5d\tRGID: %5d\tSVGID: %5d\n",
                  static_cast<int>(process.pbi_uid), static_cast<int>(process.pbi_ruid),
                  static_cast<int>(process.pbi_svuid), static_cast<int>(process.pbi_gid),
                  static_cast<int>(process.pbi_rgid), static_cast<int>(process.pbi_svgid));
}

static void printSizes(ProcessRecord *record) {
  const darwin::proc_taskinfo &task = record->taskAllInfo.ptinfo;
  output("\nVirtual size:      \t", 0);
  print_vsize(record, nullptr);
  outputFormatted(0,
                  " (%lld)\tResident size:        ", static_cast<long long>(task.pti_virtual_size));
  print_rsize(record, nullptr);
  outputFormatted(0, " (%lld)\n", static_cast<long long>(task.pti_resident_size));
}

static const char *orEmpty(const char *text) {
  return text != nullptr ? text : "";
}

static void printTimes(const ProcessRecord *record) {
  const darwin::proc_taskinfo &task = record->taskAllInfo.ptinfo;
  char *total = nsecsToTimeString(cpuTime(record));
  char *user = nsecsToTimeString(task.pti_total_user);
  char *system = nsecsToTimeString(task.pti_total_system);
  outputFormatted(0, "Time:  %s   = %s (User)    + %s (System)\n", orEmpty(total), orEmpty(user),
                  orEmpty(system));
  free(total);
  free(user);
  free(system);
}

static void printCalls(const ProcessRecord *record) {
  const darwin::proc_taskinfo &task = record->taskAllInfo.ptinfo;
  outputFormatted(0, "Syscalls:     %7d\tMach Traps: %7d\n", task.pti_syscalls_unix,
                  task.pti_syscalls_mach);
}

static void printDiskUse(const ProcessRecord *record) {
  const darwin::rusage_info_v3 &usage = record->rusage;
  if (load(g_Compression) == 0 || usage.ri_diskio_bytesread == kUsageUnknown) return;
  outputFormatted(0, "Disk I/O:     %6lldK Read\t  %9lldK Written\n",
                  static_cast<long long>(usage.ri_diskio_bytesread / 1024),
                  static_cast<long long>(usage.ri_diskio_byteswritten / 1024));
}

static void printTraffic(const char *direction, uint64_t bytes) {
  int32_t value = static_cast<int32_t>(static_cast<uint32_t>(bytes));
  const char *unit = "bytes";
  for (const char *larger : {"K", "M"}) {
    if (value <= 10000) break;
    value /= 1000;
    unit = larger;
  }
  outputFormatted(0, "%s %d %s\t", direction, value, unit);
}

static void printNetworkUse(const ProcessRecord *record) {
  const NetworkTotals *totals = getNTStatInfo(pidOf(record));
  if (totals == nullptr) {
    output("No Network I/O detected for this process\n", 0);
    return;
  }
  // Kept: the line ends with the threads' heading.
  output("Network I/O: ", 0);
  printTraffic("RX", totals->received);
  printTraffic("TX", totals->sent);
}

static void printThreads(const DetailsReport *report) {
  output("\n#Threads: ", 0);
  print_numthreads(report->record, nullptr);
  dump_workqueue_information(report->record);
  // Kept: nothing stands below the heading.
  output(isShown(report->showsThreads) ? "Thread Info:\n"
                                       : "(press T to display Thread Information)\n",
         0);
}

static void printRegions(const DetailsReport *report) {
  if (!isShown(report->showsRegions)) return;
  output("\n", 0);
  output(showProcRegions(pidOf(report->record), report->task), 0);
}

static void printTree(const DetailsReport *report) {
  if (report->table.records != nullptr) {
    showProcessHierarchy(report->record, report->table, 0, 0);
    return;
  }
  enterProcessTables();
  showProcessHierarchy(report->record, previousTable(), 0, 0);
  leaveProcessTables();
}

static void printHierarchy(const DetailsReport *report) {
  if (pidOf(report->record) == 0) return;  // the kernel is its own parent
  if (isShown(report->showsHierarchy)) {
    output("\nProcess Hierarchy:\n", 0);
    printTree(report);
  } else {
    output("\nProcess Hierarchy: press H to display process hierarchy\n", 0);
  }
}

static void printDescriptors(const DetailsReport *report) {
  const ProcessRecord *record = report->record;
  const bool detailed = isShown(report->showsDescriptors);
  outputFormatted(0, "\n%d File descriptors: ", record->numFDs);
  if (!isPlain() && detailed) output("\n", 0);
  showProcessFDs(pidOf(record), record->fds, record->numFDs, kEveryType, detailed ? 1 : 0,
                 record->taskAllInfo.pbsd.pbi_comm);
}

int printDetails(const DetailsReport *report) {
  ProcessRecord *record = report->record;
  char line[kLineSize];
  beginReport(report);
  printTaskPort(report);
  printIdentity(record, line);

  char area[kArgumentArea + 1] = {};
  const char *path = readProgramPath(pidOf(record), area);
  if (path == nullptr) return -1;
  printArguments(path);
  printContainer(record);
  printFlags(record);
  keepPath(record, path);
  printExtmods(report, line);
  printApplicationState(record);
  printSigning(report, line);
  printIDs(record);

  printSizes(record);
  printTimes(record);
  printCalls(record);
  printDiskUse(record);
  printNetworkUse(record);

  printThreads(report);
  printRegions(report);
  printHierarchy(report);
  printDescriptors(report);
  return 0;
}

}  // namespace sondex
