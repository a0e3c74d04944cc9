#include "terminal/status_bar.h"

#include <curses.h>
#include <string.h>

#include "state/display.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "text/utf8.h"

namespace sondex {

constexpr int kStatusSize = 260;

static std::atomic<char> statusBar[kStatusSize];
static SharedInt sbTimeout{2};
static SharedInt isInsisting{0};
// Forty-two blanks.
static std::atomic<const char *> message{"                                          "};

void setStatusBar(const char *text, int32_t count) {
  int i = 0;
  for (; i < kStatusSize - 1 && text[i] != '\0'; i++) store(statusBar[i], text[i]);
  store(statusBar[i], '\0');
  store(sbTimeout, count);
  store(isInsisting, 0);
}

void insistOnStatus(const char *text, int32_t count) {
  setStatusBar(text, count);
  store(isInsisting, 1);
}

void offerStatus(const char *text, int32_t count) {
  if (load(isInsisting) == 0 || !isStatusPassing()) setStatusBar(text, count);
}

const char *getStatusBar() {
  static char snapshot[kStatusSize];
  int i = 0;
  for (; i < kStatusSize - 1; i++) {
    snapshot[i] = load(statusBar[i]);
    if (snapshot[i] == '\0') break;
  }
  snapshot[i] = '\0';
  return snapshot;
}

void clearStatusBar() {
  setStatusBar("", 0);
}

void setMessage(const char *text) {
  store(message, text);
}

bool isStatusPassing() {
  return load(statusBar[0]) != '\0' && load(sbTimeout) > 0;
}

void printStatusBar() {
  if (!isOnScreen()) return;
  const char *text = getStatusBar();
  if (text[0] == '\0') return;
  const int32_t left = load(sbTimeout);
  if (left == 0) {
    clearStatusBar();
    return;
  }
  // A negative count means "until replaced": it must not count up to 0 by wrapping.
  if (left > 0) store(sbTimeout, left - 1);

  const uint32_t attribute = load(g_Color) != 0 ? static_cast<uint32_t>(COLOR_PAIR(kPairStatus))
                                                : static_cast<uint32_t>(A_REVERSE);
  switchOn(attribute);
  const int width = getmaxx(stdscr);
  const int end = width - 1;  // the last cell stays free
  int32_t length = 0;
  fitCells(text, strlen(text), kStatusSize, &length);
  const int start = length < width ? width / 2 - length / 2 : end;
  int32_t shown = 0;
  const size_t bytes = fitCells(text, strcspn(text, "\n"), end - start, &shown);
  char line[kStatusSize] = "";
  memcpy(line, text, bytes);
  moveTo(getmaxy(stdscr) - 1, 0);
  outputBlanks(start);
  output(line, 0);
  outputBlanks(end - start - shown);
  switchOff(attribute);
}

}  // namespace sondex
