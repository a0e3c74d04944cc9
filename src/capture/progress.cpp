#include "capture/progress.h"

#include <stdio.h>
#include <time.h>
#include <unistd.h>

namespace sondex {

constexpr int64_t kFirst = 1000;  // milliseconds
constexpr int64_t kPause = 100;

static int64_t g_next;
static bool g_isShown;

static int64_t now() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

void showProgress(const char *what, int32_t done, int32_t all) {
  const int64_t time = now();
  if (g_next == 0) g_next = time + kFirst;
  if (time < g_next || isatty(STDERR_FILENO) == 0) return;
  g_next = time + kPause;
  g_isShown = true;
  fprintf(stderr, "\r%d of %d %s", done, all, what);
  fflush(stderr);
}

void endProgress() {
  if (g_isShown) fputs("\r\033[K", stderr);
  g_isShown = false;
}

}  // namespace sondex
