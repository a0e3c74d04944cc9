#include "main/usage.h"

#include <stdio.h>

namespace sondex {

static void printBanner() {
  fputs("\nThis is Z's Sondex v2 (TLV), compiled on " __DATE__ ", " __TIME__ "\n", stderr);
}

void printUsage(const char *program) {
  fprintf(stderr,
          "Usage: %s [pid|processname|all] [binary|core|fds|ports|net|tree|threads|regions|all]\n"
          "           or\n"
          "       %s monitor  [vm|process]\n",
          program, program);
  printBanner();
}

void printReportUsage(const char *program) {
  fprintf(stderr,
          "Usage: %s [pid|all] [core|fds|ports|net|tree|threads|regions|all]\n"
          "           or\n"
          "       %s vmmon\n",
          program, program);
  printBanner();
}

void printReportWords(const char *program) {
  fprintf(stderr,
          "Usage: %s [pid] [binary|core|fds|ports|net|tree|threads|regions|all]\n"
          "           or\n"
          "       %s vmmon\n",
          program, program);
}

}  // namespace sondex
