#include "terminal/output.h"

#include <curses.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "state/display.h"
#include "terminal/screen.h"

namespace sondex {

static bool confined = false;
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

void switchOn(uint32_t attributes) {
  if (isScreenOpen()) wattr_on(stdscr, attributes, nullptr);
}

void switchOff(uint32_t attributes) {
  if (isScreenOpen()) wattr_off(stdscr, attributes, nullptr);
}

void setAttributes(uint32_t attributes) {
  if (isScreenOpen()) wattrset(stdscr, static_cast<int>(attributes));
}

}  // namespace sondex
