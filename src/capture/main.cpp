#include <locale.h>
#include <stdio.h>
#include <string.h>

#include "capture/check.h"
#include "device/kernel.h"
#include "nstat/layouts.h"
#include "terminal/output.h"
#include "text/safe_text.h"
#include "text/utf8.h"

namespace sondex {

static const char kUsage[] =
    "Usage: sondex-capture --check\n"
    "\n"
    "Asks this system's kernel everything that sondex asks, once, and tells for each call\n"
    "whether the answer is what sondex is built on.\n"
    "\n"
    "  --check  make the calls: the exit status is 1 when an answer is different\n"
    "  --help   print this\n";

static int failForUse(const char *argument) {
  if (argument != nullptr) {
    char safe[128];
    fprintf(stderr, "sondex-capture: unknown argument '%s'\n",
            makeSafe(safe, sizeof safe, argument, strlen(argument) + 1));
  }
  fputs("Try 'sondex-capture --help'.\n", stderr);
  return 2;
}

static int check() {
  probeRights();
  if (const char *version = probeKernel(); version != nullptr) chooseStatisticsLayout(version);
  const bool isAsExpected = checkCalls();
  flushOutput();
  return isAsExpected ? 0 : 1;
}

static int runCapture(int argc, char **argv) {
  setlocale(LC_CTYPE, "");
  allowUTF8(isLocaleUTF8());
  if (argc < 2) return failForUse(nullptr);
  if (argc > 2) return failForUse(argv[2]);
  if (strcmp(argv[1], "--check") == 0) return check();
  if (strcmp(argv[1], "--help") != 0) return failForUse(argv[1]);
  fputs(kUsage, stdout);
  flushOutput();
  return 0;
}

}  // namespace sondex

int main(int argc, char **argv) {
  return sondex::runCapture(argc, argv);
}
