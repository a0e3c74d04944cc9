// A curses screen of a test's own, on a pseudo-terminal: stdscr is set while it lives, the program
// is in full-screen mode, and what was drawn can be read back cell by cell.
#pragma once

// Before anything else: curses has wide characters only if asked here.
#ifndef NCURSES_WIDECHAR
#define NCURSES_WIDECHAR 1
#endif
#include <curses.h>
#include <poll.h>

#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "state/display.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "tests/unit/pseudo_terminal.h"

namespace sondex {

// One at a time. Colours and the program's pairs are set up; UTF-8 is shown as such. Nothing is
// sent to the terminal unless the test refreshes the screen.
class CursesScreen {
 public:
  struct Cell {
    std::string text;
    attr_t attributes;  // without the colour
    int pair;
  };

  CursesScreen(int rows, int columns, const char *terminal = "xterm-256color")
      : m_terminal(rows, columns),
        m_locale(setlocale(LC_CTYPE, nullptr)),
        m_wantCurses(load(wantCurses)),
        m_cursesFailed(load(cursesFailed)) {
    setlocale(LC_CTYPE, "C.UTF-8");
    // They would count for more than the terminal's own size.
    unsetenv("LINES");
    unsetenv("COLUMNS");
    m_out = openStream("w");
    m_in = openStream("r");
    m_screen = newterm(terminal, m_out, m_in);
    if (m_screen == nullptr) throw std::runtime_error("newterm failed");
    startColors();
    store(wantCurses, 1);
    store(cursesFailed, 0);
    empty();
  }
  ~CursesScreen() {
    store(wantCurses, m_wantCurses);
    store(cursesFailed, m_cursesFailed);
    endwin();
    delscreen(m_screen);
    fclose(m_out);
    fclose(m_in);
    setlocale(LC_CTYPE, m_locale.c_str());
  }
  CursesScreen(const CursesScreen &) = delete;
  CursesScreen &operator=(const CursesScreen &) = delete;

  static int rows() { return getmaxy(stdscr); }
  static int columns() { return getmaxx(stdscr); }

  static Cell cell(int row, int column) {
    const int cursorRow = getcury(stdscr);
    const int cursorColumn = getcurx(stdscr);
    cchar_t raw = {};
    wchar_t characters[CCHARW_MAX + 1] = {};
    attr_t attributes = 0;
    short pair = 0;
    if (mvwin_wch(stdscr, row, column, &raw) == ERR ||
        getcchar(&raw, characters, &attributes, &pair, nullptr) == ERR) {
      throw std::out_of_range("no such cell");
    }
    wmove(stdscr, cursorRow, cursorColumn);
    return {narrow(characters), attributes & ~static_cast<attr_t>(A_COLOR), pair};
  }

  // `count` cells, or as many as the row has from there. Blanks at the end are kept.
  static std::string text(int row, int column = 0, int count = INT_MAX) {
    std::string all;
    for (int i = column; i < columns() && i - column < count; i++) all += cell(row, i).text;
    return all;
  }

  // What stands in the cursor's row before the cursor: a cell just drawn, with its blanks.
  static std::string textBeforeCursor() { return text(getcury(stdscr), 0, getcurx(stdscr)); }

  // Drops what was sent to the terminal, where nobody reads it: without room there, the next
  // refresh waits for ever.
  void dropSent() const { tcflush(m_terminal.programEnd(), TCOFLUSH); }

  // As if typed at the terminal; there to be read once this returns.
  void type(std::string_view keys) const {
    m_terminal.type(keys);
    pollfd program = {m_terminal.programEnd(), POLLIN, 0};
    constexpr int kPatience = 60'000;  // milliseconds
    if (poll(&program, 1, kPatience) != 1) throw std::runtime_error("nothing to read was typed");
  }

  // Begins a list: what is written next stands in the first cell of an empty screen.
  static void empty() { beginList(); }

 private:
  FILE *openStream(const char *mode) const {
    const int descriptor = dup(m_terminal.programEnd());
    FILE *stream = descriptor < 0 ? nullptr : fdopen(descriptor, mode);
    if (stream == nullptr) throw std::system_error(errno, std::generic_category(), "fdopen");
    return stream;
  }

  static void startColors() {
    constexpr short kBrightRed = 9;
    start_color();
    init_pair(kPairHeader, COLOR_CYAN, COLOR_BLACK);
    init_pair(kPairSelected, COLOR_CYAN, COLOR_BLACK);
    init_pair(kPairStatus, COLOR_BLACK, kBrightRed);
    init_pair(kPairWarning, kBrightRed, COLOR_BLACK);
    init_pair(kPairPrompt, COLOR_BLACK, COLOR_YELLOW);
    init_pair(kPairGrown, COLOR_RED, COLOR_BLACK);
    init_pair(kPairShrunk, COLOR_GREEN, COLOR_BLACK);
  }

  static std::string narrow(const wchar_t *characters) {
    std::string all;
    for (; *characters != L'\0'; characters++) {
      char bytes[MB_LEN_MAX];
      mbstate_t state = {};
      const size_t length = wcrtomb(bytes, *characters, &state);
      if (length == static_cast<size_t>(-1)) return "\xEF\xBF\xBD";
      all.append(bytes, length);
    }
    return all;
  }

  PseudoTerminal m_terminal;
  std::string m_locale;
  int m_wantCurses;
  int m_cursesFailed;
  FILE *m_out = nullptr;
  FILE *m_in = nullptr;
  SCREEN *m_screen = nullptr;
};

}  // namespace sondex
