#include "terminal/held_stderr.h"

#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace sondex {

constexpr size_t kHeldLines = 64;
constexpr size_t kLineSize = 256;

struct HeldLine {
  char text[kLineSize];
  uint64_t count;
};

static HeldLine lines[kHeldLines];
static size_t lineCount = 0;
static uint64_t linesBeyond = 0;  // lines for which there was no room

static char partial[kLineSize];  // a line whose end has not come yet
static size_t partialLength = 0;

static int realStandardError = -1;  // where standard error went before; -1 while nothing is held
static int readEnd = -1;

// Whether a thread is at the words above: the refresh loop takes lines in while another thread may
// close the screen. None stays for long.
static std::atomic<bool> inUse{false};

static bool enterIfFree() {
  return !inUse.exchange(true, std::memory_order_acquire);
}

static void enter() {
  constexpr timespec kNap = {0, 1'000'000};
  while (!enterIfFree()) nanosleep(&kNap, nullptr);
}

static void leave() {
  inUse.store(false, std::memory_order_release);
}

static bool sharesTerminal() {
  struct stat out;
  struct stat err;
  return isatty(STDERR_FILENO) && isatty(STDOUT_FILENO) && fstat(STDOUT_FILENO, &out) == 0 &&
         fstat(STDERR_FILENO, &err) == 0 && out.st_rdev == err.st_rdev;
}

static bool makeQuiet(int descriptor) {
  return fcntl(descriptor, F_SETFL, O_NONBLOCK) == 0 && fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
}

static void hold() {
  if (realStandardError >= 0) return;
  int ends[2];
  if (pipe(ends) != 0) return;
  // Neither end may block: a full pipe drops messages rather than stop the thread that writes one.
  const int kept =
      makeQuiet(ends[0]) && makeQuiet(ends[1]) ? fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3) : -1;
  if (kept >= 0 && dup2(ends[1], STDERR_FILENO) >= 0) {
    realStandardError = kept;
    readEnd = ends[0];
  } else {
    if (kept >= 0) close(kept);
    close(ends[0]);
  }
  close(ends[1]);
}

void holdStandardError() {
  enter();
  if (sharesTerminal()) hold();
  leave();
}

void gatherStandardError() {
  enter();
  hold();
  leave();
}

static void keepLine() {
  partial[partialLength] = '\0';
  partialLength = 0;
  for (size_t i = 0; i < lineCount; i++) {
    if (strcmp(lines[i].text, partial) == 0) {
      lines[i].count++;
      return;
    }
  }
  if (lineCount == kHeldLines) {
    linesBeyond++;
    return;
  }
  memcpy(lines[lineCount].text, partial, sizeof partial);
  lines[lineCount].count = 1;
  lineCount++;
}

static void collect() {
  if (readEnd < 0) return;
  char chunk[4096];
  ssize_t length = 0;
  while ((length = read(readEnd, chunk, sizeof chunk)) > 0) {
    for (ssize_t i = 0; i < length; i++) {
      if (chunk[i] == '\n') {
        keepLine();
      } else if (partialLength + 1 < sizeof partial) {
        partial[partialLength++] = chunk[i];
      }
    }
  }
}

void collectStandardError() {
  if (!enterIfFree()) return;
  collect();
  leave();
}

static void release() {
  if (realStandardError < 0) return;
  // First back, then the rest: what others write in between is not lost.
  dup2(realStandardError, STDERR_FILENO);
  collect();
  if (partialLength > 0) keepLine();
  close(realStandardError);
  close(readEnd);
  realStandardError = -1;
  readEnd = -1;

  for (size_t i = 0; i < lineCount; i++) {
    if (lines[i].count == 1) {
      fprintf(stderr, "%s\n", lines[i].text);
    } else {
      fprintf(stderr, "%s (%llu times)\n", lines[i].text,
              static_cast<unsigned long long>(lines[i].count));
    }
  }
  if (linesBeyond > 0) {
    fprintf(stderr, "and %llu more lines\n", static_cast<unsigned long long>(linesBeyond));
  }
  lineCount = 0;
  linesBeyond = 0;
}

void releaseStandardError() {
  enter();
  release();
  leave();
}

}  // namespace sondex
