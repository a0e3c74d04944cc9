#include "terminal/status_bar.h"

#include <curses.h>
#include <string.h>

#include "state/display.h"
#include "terminal/output.h"
#include "terminal/screen.h"

namespace sondex {

constexpr int kStatusSize = 260;

static std::atomic<char> statusBar[kStatusSize];
static SharedInt sbTimeout{2};
// Forty-two blanks.
static std::atomic<const char *> message{"                                          "};

void setStatusBar(const char *text, int32_t count) {
  int i = 0;
  for (; i < kStatusSize - 1 && text[i] != '\0'; i++) store(statusBar[i], text[i]);
  store(statusBar[i], '\0');
  store(sbTimeout, count);
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

void printStatusBar() {
  if (load(wantCurses) == 0 || stdscr == nullptr) return;
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
  const int end = width - 1;  // the last cell stays free: writing it would scroll
  const int length = static_cast<int>(strlen(text));
  const int start = length < width ? width / 2 - length / 2 : end;
  const int line = static_cast<int>(strcspn(text, "\n"));  // a line feed would scroll the list
  const int shown = line < end - start ? line : end - start;
  wmove(stdscr, getmaxy(stdscr) - 1, 0);
  outputBlanks(start);
  if (shown > 0) output(text, shown + 1);
  outputBlanks(end - start - shown);
  switchOff(attribute);
}

}  // namespace sondex
