#include "terminal/output.h"

#include <curses.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "state/display.h"
#include "terminal/screen.h"
#include "text/utf8.h"

namespace sondex {

constexpr int32_t kTabStop = 8;

// Where text goes on the screen. Lines count from the first one written, columns in cells; a column
// equal to the screen's width is behind its last cell.
struct Layout {
  bool wraps;      // a line that is too long goes on below
  bool scrolls;    // the first lines leave the screen when there are more than it has room for
  int32_t rows;    // of the screen, from the first one on, that text may stand in
  int64_t top;     // the line in the first row
  int64_t line;    // of what is written next
  int32_t column;  // of what is written next
};

static Layout layout = {};

int32_t textRows() {
  return std::max(getmaxy(stdscr) - 1, 1);
}

static void begin(bool wraps, int64_t firstLine) {
  if (!isOnScreen()) return;
  const bool scrolls = firstLine < 0;
  layout = {wraps, scrolls, textRows(), scrolls ? 0 : firstLine, 0, 0};
  // What was there is not sent again where it comes back.
  werase(stdscr);
  wmove(stdscr, 0, 0);
  idlok(stdscr, TRUE);
  scrollok(stdscr, TRUE);
}

void beginList() {
  begin(false, kEndOfText);
}

void beginText(int64_t firstLine) {
  begin(true, firstLine);
}

int64_t linesWritten() {
  return layout.line + (layout.column > 0 ? 1 : 0);
}

void moveTo(int32_t row, int32_t column) {
  layout = {false, false, getmaxy(stdscr), 0, row, column};
  wmove(stdscr, row, column);
}

static void newLine() {
  layout.line++;
  layout.column = 0;
}

// Scrolls until the present line is on the screen, where it may be. False when it isn't.
static bool bringIntoView() {
  const int64_t missing = layout.line - layout.top - layout.rows + 1;
  if (layout.scrolls && missing > 0) {
    wscrl(stdscr, static_cast<int>(std::min<int64_t>(missing, layout.rows)));
    layout.top += missing;
  }
  return layout.line >= layout.top && layout.line < layout.top + layout.rows;
}

// Goes to the place of what is written next, which has to be on the screen.
static void goThere() {
  const int row = static_cast<int>(layout.line - layout.top);
  wmove(stdscr, row, layout.column);
  // A character in the last cell of all would scroll.
  scrollok(stdscr, row < getmaxy(stdscr) - 1);
}

// Draws characters for which the present line has the cells.
static void drawCharacters(const char *text, size_t length, int32_t cells) {
  if (layout.column < getmaxx(stdscr) && bringIntoView()) {
    goThere();
    waddnstr(stdscr, text, static_cast<int>(length));
    scrollok(stdscr, TRUE);
  }
  layout.column += cells;
}

static void drawTab() {
  static const char kBlanks[] = "        ";
  const int32_t cells = kTabStop - layout.column % kTabStop;
  if (layout.column + cells <= getmaxx(stdscr)) {
    drawCharacters(kBlanks, static_cast<size_t>(cells), cells);
  } else if (layout.wraps) {
    newLine();
  } else {
    layout.column = getmaxx(stdscr);
  }
}

// Draws of a text without tabs and line feeds what goes into the present line. Returns the bytes
// that are done with; the rest belongs to a line below.
static size_t drawPiece(const char *text, size_t length) {
  const int32_t width = getmaxx(stdscr);
  int32_t cells = 0;
  const size_t fitting = fitCells(text, length, width - layout.column, &cells);
  if (fitting > 0) drawCharacters(text, fitting, cells);
  if (fitting == length) return length;
  if (!layout.wraps) {
    layout.column = width;
    return length;
  }
  if (layout.column > 0) {
    newLine();
    return fitting;
  }
  uint32_t code = 0;  // of a character that is wider than the screen
  return std::max<size_t>(decodeUTF8(text, length, &code), 1);
}

static void drawText(const char *text, size_t length) {
  while (length > 0) {
    const char *end = text;
    while (end < text + length && *end != '\n' && *end != '\t') end++;
    size_t done = 1;
    if (end > text) {
      done = drawPiece(text, static_cast<size_t>(end - text));
    } else if (*text == '\n') {
      newLine();
    } else {
      drawTab();
    }
    text += done;
    length -= done;
  }
}

// Draws a line-drawing character: as text where the terminal takes it, since between two sets of
// characters it has to be switched there and back.
static void drawLine(chtype character, const char *text) {
  if (stdscr == nullptr) return;
  if (layout.column >= getmaxx(stdscr)) {
    if (!layout.wraps) return;
    newLine();
  }
  if (bringIntoView()) {
    goThere();
    if (takesUTF8()) {
      waddnstr(stdscr, text, -1);
    } else {
      waddch(stdscr, character);
    }
    scrollok(stdscr, TRUE);
  }
  layout.column++;
}

static int writeBytes(const char *text, size_t length) {
  if (load(wantCurses) == 0) {
    return fwrite(text, 1, length, stdout) == length ? static_cast<int>(length) : -1;
  }
  if (stdscr == nullptr) return -1;
  drawText(text, length);
  return 0;
}

int output(const char *text, int width) {
  if (width <= 0) return writeBytes(text, strlen(text));

  const int32_t room = width - 1;
  int32_t cells = 0;
  const size_t length = fitCells(text, strlen(text), room, &cells);
  const int result = writeBytes(text, length);
  return cells < room ? writeBytes(" ", 1) : result;
}

int outputFormatted(int width, const char *format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return output(text, width);
}

void flushOutput() {
  int error = 0;
  if (fflush(stdout) != 0) {
    error = errno;
  } else if (ferror(stdout) != 0) {
    error = EIO;  // why it failed before is not known any more
  }
  if (error == 0) return;
  errno = error;
  perror("standard output");
  exit(1);
}

void outputBlanks(int count) {
  static const char kBlanks[] = "                                                                ";
  constexpr int kPiece = sizeof kBlanks - 1;
  for (; count > 0; count -= kPiece) {
    writeBytes(kBlanks, static_cast<size_t>(std::min(count, kPiece)));
  }
}

void outputSeparator() {
  if (load(wantCurses) == 0) {
    output("|", 0);
  } else {
    drawLine(ACS_VLINE, "\u2502");
  }
}

void outputBranch(bool isLast) {
  if (load(wantCurses) == 0) {
    output("+-", 0);
  } else {
    drawLine(isLast ? ACS_LLCORNER : ACS_LTEE, isLast ? "\u2514" : "\u251C");
  }
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
