#include "terminal/screen.h"

#include <curses.h>
#include <errno.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "state/display.h"
#include "terminal/drawing_lock.h"
#include "terminal/held_stderr.h"
#include "text/safe_text.h"

namespace sondex {

constexpr short kBrightRed = 9;
// Milliseconds that closing waits for a thread that draws. One that takes longer is busy with
// something else, and the screen is closed all the same.
constexpr int32_t kClosePatience = 2000;

struct ColorPair {
  short pair;
  short foreground;
  short background;
};

// In the order in which they are set.
static const ColorPair kColorPairs[] = {
    {kPairHeader, COLOR_CYAN, COLOR_BLACK},   {kPairWarning, kBrightRed, COLOR_BLACK},
    {kPairSelected, COLOR_CYAN, COLOR_BLACK}, {kPairStatus, COLOR_BLACK, kBrightRed},
    {kPairPrompt, COLOR_BLACK, COLOR_YELLOW}, {kPairGrown, COLOR_RED, COLOR_BLACK},
    {kPairShrunk, COLOR_GREEN, COLOR_BLACK},
};

static bool onTerminal = false;  // whether the screen was opened on one, rather than on a pipe

bool isScreenOpen() {
  return load(cursesFailed) == 0 && stdscr != nullptr;
}

uint32_t colorPair(int pair) {
  return load(g_Color) != 0 ? static_cast<uint32_t>(COLOR_PAIR(pair)) : 0;
}

static bool getTerminalSize(winsize *size) {
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, size) == 0;
}

void openScreen() {
  // Names in UTF-8 are shown as such only where the terminal's locale takes them.
  setlocale(LC_CTYPE, "");
  allowUTF8(MB_CUR_MAX > 1);
  holdStandardError();
  initscr();
  store(cursesFailed, 0);
  winsize size = {};
  onTerminal = getTerminalSize(&size);
  cbreak();
  noecho();
  // Else the terminal driver throws away what of a frame is still under way when Ctrl-C is typed,
  // and the terminal keeps an attribute or a character set that curses has switched off.
  intrflush(stdscr, FALSE);
  start_color();
  nodelay(stdscr, TRUE);
  keypad(stdscr, TRUE);
  for (const ColorPair &pair : kColorPairs) {
    // A terminal of eight colours has no bright red: plain red is nearest.
    const short foreground = pair.foreground < COLORS ? pair.foreground : short{COLOR_RED};
    const short background = pair.background < COLORS ? pair.background : short{COLOR_RED};
    init_pair(pair.pair, foreground, background);
  }
}

void closeScreen() {
  const int error = errno;  // what callers are about to explain
  if (isScreenOpen() && !isendwin()) {
    const bool drewAlready = holdsDrawingLock();
    const bool taken = lockDrawing(kClosePatience);
    endwin();
    if (taken && !drewAlready) unlockDrawing();
  }
  releaseStandardError();
  errno = error;
}

void fitScreen() {
  winsize size = {};
  if (!getTerminalSize(&size) || size.ws_row == 0 || size.ws_col == 0) return;
  if (is_term_resized(size.ws_row, size.ws_col)) resizeterm(size.ws_row, size.ws_col);
}

bool isTerminalGone() {
  winsize size = {};
  return onTerminal && !getTerminalSize(&size);
}

void cursesMessage() {
  if (load(cursesFailed) == 0) return;
  fputs(
      "If you are reading this, curses full screen initialization failed. This is either because "
      "$TERM is not set properly,\nor because you are missing the terminfo files (which aren't "
      "present on iOS).\nYou can fix either easily if you read the README.\n",
      stdout);
}

}  // namespace sondex
