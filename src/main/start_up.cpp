#include "main/start_up.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "columns/perspective.h"
#include "control/input_thread.h"
#include "device/gestalt.h"
#include "main/monitor.h"
#include "main/refresh_loop.h"
#include "main/report.h"
#include "main/usage.h"
#include "nstat/layouts.h"
#include "proc/process_search.h"
#include "proc/sampler.h"
#include "screens/cpu_summary.h"
#include "screens/gestalt.h"
#include "state/display.h"
#include "state/system.h"
#include "state/tracing.h"
#include "terminal/ending.h"
#include "terminal/held_stderr.h"
#include "terminal/output.h"
#include "text/safe_text.h"
#include "text/typed_number.h"
#include "text/utf8.h"

namespace sondex {

constexpr mode_t kCharacterDevice = 0x2000;

struct KernelGeneration {
  const char *build;
  int32_t osVersion;
  int32_t compression;
};

// The first that occurs in the version text decides: the order is part of the table. Builds of five
// digits match none.
static const KernelGeneration kGenerations[] = {
    {"xnu-24", 9, 1},  {"xnu-20", 8, 0},  {"xnu-27", 10, 1}, {"xnu-32", 11, 1},
    {"xnu-37", 12, 1}, {"xnu-45", 13, 1}, {"xnu-49", 14, 1}, {"xnu-6", 15, 1},
};

void noteKernelVersion(const char *version) {
  if (strstr(version, "ARM64") != nullptr) g_isARM64++;
  for (const KernelGeneration &generation : kGenerations) {
    if (strstr(version, generation.build) == nullptr) continue;
    g_OsVer = generation.osVersion;
    store(g_Compression, generation.compression);
    return;
  }
}

// The name is looked up because some releases lack the call; a missing one stays null.
template <typename Function>
static Function optionalEntryPoint(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

static void probeSystem() {
  g_pipe[0] = 0;
  g_pipe[1] = 0;
  if (pipe(g_pipe) != 0) {
    perror("pipe");
  } else {
    // Neither who wakes the loop nor the loop itself may hang on the pipe.
    fcntl(g_pipe[0], F_SETFL, O_NONBLOCK);
    fcntl(g_pipe[1], F_SETFL, O_NONBLOCK);
  }
  g_gotGestalt = gestaltAnswer("marketing-name") != nullptr ? 1 : 0;
  getCurrentPerspective();
  host_self = darwin::mach_host_self();
  g_r00t = geteuid() == 0 ? 1 : 0;
  memorystatus_get_level_funcptr =
      optionalEntryPoint<darwin::memorystatus_get_level_function>("memorystatus_get_level");
  proc_pid_rusage_funcptr = optionalEntryPoint<darwin::proc_pid_rusage_function>("proc_pid_rusage");
  mach_vm_page_range_query_funcptr =
      optionalEntryPoint<darwin::mach_vm_page_range_query_function>("mach_vm_page_range_query");
  get_host_processors(host_self);
}

static void probeKernel() {
  utsname names = {};
  if (uname(&names) != 0) {
    perror("uname");
    return;
  }
  g_hostName = strdup(names.nodename);
  noteKernelVersion(names.version);
  chooseStatisticsLayout(names.version);
}

// Output is plain only when the variable "nc" is set and standard output is no character device.
static void chooseDisplay(int argc, bool outputIsDevice) {
  store(wantCurses, getenv("nc") == nullptr || outputIsDevice ? 1 : 0);
  if (load(wantCurses) == 0 || argc > 2) {
    sleep(1);
  } else {
    startInteractiveThreads();
  }
}

static void sayNotFound(const char *argument) {
  char *name = copySafe(argument);
  fprintf(stderr, "Can't find process matching '%s'%s\n", name != nullptr ? name : "",
          getuid() != 0 ? " (also, you're not root, so maybe that's why?)" : "");
  free(name);
}

// Says so where only the beginning of an argument is the number that is taken.
static void sayWhatIsTaken(const char *argument, int32_t pid) {
  int32_t whole = 0;
  if (parseWholeNumber(argument, &whole)) return;
  char *text = copySafe(argument);
  fprintf(stderr, "'%s' is taken as process %d\n", text != nullptr ? text : "", pid);
  free(text);
}

static int32_t targetOf(const char *argument) {
  int32_t pid = 0;
  if (strcmp(argument, "all") == 0) return pid;
  if (parseNumber(argument, &pid)) {
    sayWhatIsTaken(argument, pid);
    return pid;
  }
  pid = findProcess(currentTable(), argument);
  if (pid < 0) exit(2);
  if (pid == 0) {
    sayNotFound(argument);
    exit(1);
  }
  return pid;
}

int runProgram(int argc, char **argv) {
  setlocale(LC_CTYPE, "");  // says how wide characters are
  allowUTF8(isLocaleUTF8());
  probeSystem();
  struct stat standardOutput = {};
  const bool outputIsDevice = fstat(STDOUT_FILENO, &standardOutput) == 0 &&
                              (standardOutput.st_mode & kCharacterDevice) != 0;
  probeKernel();
  chooseDisplay(argc, outputIsDevice);

  const char *word = argc > 1 ? argv[1] : "";
  if (strcmp(word, "gestalt") == 0) {
    store(wantCurses, 0);
    showGestalt();
    flushOutput();
    exit(0);
  }
  if (strcmp(word, "vmmon") == 0 || strcmp(word, "monitor") == 0) {
    do_monitor(argc, argv);
    exit(0);
  }

  endOnThisThread();
  const bool isPlainList = argc < 2 && load(wantCurses) == 0;
  // Traces stay where they belong, and all of them.
  if ((isPlainList || argc > 1) && !isTracing()) gatherStandardError();
  setCurrentTable(getPIDList());
  if (argc < 2) return runDisplay();
  releaseStandardError();
  if (strcmp(word, "-h") == 0) {
    printUsage(argv[0]);
    exit(0);
  }
  runReport(targetOf(word), argc, argv);
}

}  // namespace sondex
