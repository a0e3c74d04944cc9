#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "capture/capture.h"
#include "capture/check.h"
#include "capture/device_file_writer.h"
#include "capture/stand_ins.h"
#include "device/kernel.h"
#include "nstat/layouts.h"
#include "terminal/output.h"
#include "text/safe_text.h"
#include "text/typed_number.h"
#include "text/utf8.h"

namespace sondex {

static const char kUsage[] =
    "Usage: sondex-capture [-o FILE] [--stacks] [--memory PID]... [--anonymous] [--json] [PID]...\n"
    "       sondex-capture --check\n"
    "\n"
    "Writes this machine as a device file: all that sondex shows of it, or of the processes with\n"
    "these PIDs. 'SONDEX_DEVICE=./FILE sondex' looks at it later, on any machine.\n"
    "\n"
    "  -o FILE       write to FILE, whole or not at all, instead of to standard output\n"
    "  --stacks      take the stacks of all threads along\n"
    "  --memory PID  take the memory of that process along, as a core of it needs it\n"
    "  --anonymous   replace what is somebody's own: names, addresses, arguments, files\n"
    "  --json        write the same as JSON\n"
    "  --check       make every call once that sondex makes, and tell for each whether the answer\n"
    "                is what sondex is built on: the exit status is 1 when one is different\n"
    "  --help        print this\n";

constexpr int kWrongUse = 2;

static int failForUse(const char *what, const char *argument) {
  char safe[128];
  fprintf(stderr, "sondex-capture: %s '%s'\nTry 'sondex-capture --help'.\n", what,
          makeSafe(safe, sizeof safe, argument, strlen(argument) + 1));
  return kWrongUse;
}

static const char *probe() {
  probeRights();
  const char *version = probeKernel();
  if (version != nullptr) chooseStatisticsLayout(version);
  return version;
}

static int check() {
  probe();
  const bool isAsExpected = checkCalls();
  flushOutput();
  return isAsExpected ? 0 : 1;
}

static int printUsage() {
  fputs(kUsage, stdout);
  flushOutput();
  return 0;
}

static bool addPID(const char *argument, int32_t *pids, int32_t *count) {
  int32_t pid = 0;
  if (*count == kMostNamed || !parseWholeNumber(argument, &pid) || pid < 0) return false;
  pids[(*count)++] = pid;
  return true;
}

static bool isThere(int32_t pid) {
  return getpgid(pid) >= 0;
}

// Each process that was named has to be there; of those whose memory is wanted, the rest too.
static int findNamed(CaptureOptions *options) {
  for (int32_t i = 0; i < options->memoryCount; i++) {
    const bool isNamed = options->pidCount == 0;
    bool isFound = isNamed;
    for (int32_t k = 0; k < options->pidCount && !isFound; k++) {
      isFound = options->pids[k] == options->memory[i];
    }
    if (!isFound && options->pidCount < kMostNamed) {
      options->pids[options->pidCount++] = options->memory[i];
    }
    if (!isThere(options->memory[i])) {
      fprintf(stderr, "sondex-capture: %d: No such process!\n", options->memory[i]);
      return 1;
    }
  }
  for (int32_t i = 0; i < options->pidCount; i++) {
    if (isThere(options->pids[i])) continue;
    fprintf(stderr, "sondex-capture: %d: No such process!\n", options->pids[i]);
    return 1;
  }
  return 0;
}

static int capture(CaptureOptions *options) {
  if (options->path == nullptr && isatty(STDOUT_FILENO) != 0) {
    fputs("sondex-capture: a device file is long: name one with -o FILE, or '-' for the terminal\n",
          stderr);
    return kWrongUse;
  }
  if (options->path != nullptr && strcmp(options->path, "-") == 0) options->path = nullptr;
  if (probe() == nullptr) return 1;
  const int missing = findNamed(options);
  return missing != 0 ? missing : captureMachine(options);
}

static int runCapture(int argc, char **argv) {
  static CaptureOptions options;
  options.isLoadedAgain = true;
  setlocale(LC_CTYPE, "");
  allowUTF8(isLocaleUTF8());
  for (int i = 1; i < argc; i++) {
    const char *argument = argv[i];
    const char *next = i + 1 < argc ? argv[i + 1] : nullptr;
    const bool isOutput = strcmp(argument, "-o") == 0;
    const bool isMemory = strcmp(argument, "--memory") == 0;
    if (strcmp(argument, "--help") == 0) return printUsage();
    if ((isOutput || isMemory) && next == nullptr) {
      return failForUse("something is missing behind", argument);
    }
    if (strcmp(argument, "--check") == 0) {
      if (argc > 2) return failForUse("nothing goes with --check:", argv[i == 1 ? 2 : 1]);
      return check();
    }
    if (isOutput) {
      options.path = argv[++i];
    } else if (isMemory) {
      if (!addPID(argv[++i], options.memory, &options.memoryCount)) {
        return failForUse("no PID:", argv[i]);
      }
    } else if (strcmp(argument, "--stacks") == 0) {
      options.withStacks = true;
    } else if (strcmp(argument, "--anonymous") == 0) {
      useStandIns();
    } else if (strcmp(argument, "--json") == 0) {
      useFileForm(FileForm::kJSON);
      options.isLoadedAgain = false;
    } else if (argument[0] == '-' || !addPID(argument, options.pids, &options.pidCount)) {
      return failForUse("unknown argument", argument);
    }
  }
  return capture(&options);
}

}  // namespace sondex

int main(int argc, char **argv) {
  return sondex::runCapture(argc, argv);
}
