#include "main/start_up.h"

#include <fcntl.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "columns/perspective.h"
#include "control/input_thread.h"
#include "device/gestalt.h"
#include "device/kernel.h"
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
  probeRights();
  get_host_processors(host_self);
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
  if (const char *version = probeKernel(); version != nullptr) chooseStatisticsLayout(version);
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
