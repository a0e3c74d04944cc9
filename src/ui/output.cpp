#include "ui/output.h"

#include <curses.h>
#include <errno.h>
#include <locale.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "state/display.h"
#include "ui/held_stderr.h"
#include "ui/safe_text.h"
#include "ui/who_draws.h"

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

static bool confined = false;
static bool onTerminal = false;  // whether the screen was opened on one, rather than on a pipe
static bool isLineFull = false;  // the last cell of the confined line has sent the cursor below it

// How much of the text may be written without leaving the screen's line.
static int confinedLength(const char *text, int length) {
  const int room = isLineFull ? 0 : getmaxx(stdscr) - getcurx(stdscr);
  if (length <= room) return length;
  int end = room;
  // Never in the middle of a character.
  while (end > 0 && (text[end] & 0xC0) == 0x80) end--;
  return end;
}

// Notes whether `length` bytes, written from `column` on, have filled the confined line. No
// character has more cells than bytes; some have none and leave the cursor where it is.
static void noteFullLine(int column, int length) {
  const bool reachesEnd = column + length >= getmaxx(stdscr);
  if (confined && reachesEnd && getcurx(stdscr) == 0) isLineFull = true;
}

// One line-drawing character, if there is room for it.
static void drawLine(chtype character) {
  if (stdscr == nullptr || (confined && confinedLength(" ", 1) == 0)) return;
  const int column = getcurx(stdscr);
  waddch(stdscr, character);
  noteFullLine(column, 1);
}

static int writeBytes(const char *text, int length) {
  if (load(wantCurses) == 0) {
    const size_t size = static_cast<size_t>(length);
    return fwrite(text, 1, size, stdout) == size ? length : -1;
  }
  if (stdscr == nullptr) return -1;
  const int shown = confined ? confinedLength(text, length) : length;
  if (shown <= 0) return 0;
  const int column = getcurx(stdscr);
  const int result = waddnstr(stdscr, text, shown);
  noteFullLine(column, shown);
  return result;
}

int output(const char *text, int width) {
  if (width <= 0) return writeBytes(text, static_cast<int>(strlen(text)));

  const int room = width - 1;
  const int length = static_cast<int>(strnlen(text, static_cast<size_t>(room)));
  const int result = writeBytes(text, length);
  return length < room ? writeBytes(" ", 1) : result;
}

int outputFormatted(int width, const char *format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return output(text, width);
}

void outputBlanks(int count) {
  static const char kBlanks[] = "                                                                ";
  constexpr int kPiece = sizeof kBlanks - 1;
  for (; count > 0; count -= kPiece) writeBytes(kBlanks, count < kPiece ? count : kPiece);
}

void outputSeparator() {
  if (load(wantCurses) == 0) {
    output("|", 0);
  } else {
    drawLine(ACS_VLINE);
  }
}

void outputBranch(bool isLast) {
  if (load(wantCurses) == 0) {
    output("+-", 0);
  } else {
    drawLine(isLast ? ACS_LLCORNER : ACS_LTEE);
  }
}

void confineToLine() {
  confined = true;
  isLineFull = false;
}

void endLine() {
  const bool isBelow = isLineFull;
  confined = false;
  isLineFull = false;
  if (!isBelow) output("\n", 0);
}

static bool screenIsOpen() {
  return load(cursesFailed) == 0 && stdscr != nullptr;
}

void switchOn(uint32_t attributes) {
  if (screenIsOpen()) wattr_on(stdscr, attributes, nullptr);
}

void switchOff(uint32_t attributes) {
  if (screenIsOpen()) wattr_off(stdscr, attributes, nullptr);
}

void setAttributes(uint32_t attributes) {
  if (screenIsOpen()) wattrset(stdscr, static_cast<int>(attributes));
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
  if (screenIsOpen() && !isendwin()) {
    const bool drewAlready = isDrawing();
    const bool taken = waitToDraw(kClosePatience);
    endwin();
    if (taken && !drewAlready) stopDrawing();
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
