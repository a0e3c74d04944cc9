#include "terminal/screen.h"

#include <curses.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <initializer_list>

#include "state/display.h"
#include "terminal/drawing_lock.h"
#include "terminal/held_stderr.h"
#include "terminal/key_codes.h"
#include "text/safe_text.h"
#include "text/utf8.h"

namespace sondex {

constexpr short kBrightRed = 9;
// The terminal's own colours as a pair like others: from one of them to none at all, curses
// switches off attributes too that aren't on.
constexpr short kPairPlain = 15;
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

static bool utf8Taken = false;

bool isScreenOpen() {
  return load(cursesFailed) == 0 && stdscr != nullptr;
}

bool isOnScreen() {
  return load(wantCurses) != 0 && stdscr != nullptr;
}

uint32_t colorPair(int pair) {
  return load(g_Color) != 0 ? static_cast<uint32_t>(COLOR_PAIR(pair)) : 0;
}

bool takesUTF8() {
  return utf8Taken;
}

// Not every curses knows characters of several bytes, whatever the locale says.
static bool hasWideCharacters() {
  wmove(stdscr, 0, 0);
  waddnstr(stdscr, "\u2502", -1);
  const bool isOneCell = getcurx(stdscr) == 1;
  werase(stdscr);
  return isOneCell;
}

static bool getTerminalSize(winsize *size) {
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, size) == 0;
}

// Terminals send some keys in one of two forms, as they are told to, and curses knows the one that
// they were told. Some can't be told.
static void defineBothForms() {
  struct KeyForm {
    char last;
    int key;
  };
  static const KeyForm kForms[] = {
      {'A', kUp}, {'B', kDown}, {'C', kRight}, {'D', kLeft}, {'H', kHome}, {'F', kEnd},
  };
  for (const KeyForm &form : kForms) {
    for (const char middle : {'[', 'O'}) {
      const char sequence[] = {kEscape, middle, form.last, '\0'};
      define_key(sequence, form.key);
    }
  }
}

void openScreen() {
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
  // Else curses looks for keys between lines, and sends what it has before each look.
  typeahead(-1);
  start_color();
  // Where the terminal can't be told to go back to them, black lies beneath.
  const bool hasOwnColors = has_colors() && use_default_colors() == OK;
  nodelay(stdscr, TRUE);
  keypad(stdscr, TRUE);
  defineBothForms();
  for (const ColorPair &pair : kColorPairs) {
    // A terminal of eight colours has no bright red: plain red is nearest.
    const short foreground = pair.foreground < COLORS ? pair.foreground : short{COLOR_RED};
    const short background = pair.background < COLORS ? pair.background : short{COLOR_RED};
    init_pair(pair.pair, foreground, background);
  }
  // Names in UTF-8 are shown as such only where the terminal's locale takes them.
  utf8Taken = isLocaleUTF8() && hasWideCharacters();
  allowUTF8(utf8Taken);
  if (hasOwnColors && init_pair(kPairPlain, -1, -1) == OK) {
    wbkgdset(stdscr, static_cast<chtype>(COLOR_PAIR(kPairPlain)) | ' ');
  }
  curs_set(0);
  // Until it has once come back from there, ncurses 6.4 sends every move of the cursor by itself.
  endwin();
  wrefresh(stdscr);
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

void repaintScreen() {
  clearok(stdscr, TRUE);
}

void suspendScreen() {
  if (!isendwin()) endwin();
}

void fitScreen() {
  if (isendwin()) holdStandardError();
  winsize size = {};
  if (!getTerminalSize(&size) || size.ws_row == 0 || size.ws_col == 0) return;
  if (is_term_resized(size.ws_row, size.ws_col)) resizeterm(size.ws_row, size.ws_col);
}

bool isTerminalGone() {
  winsize size = {};
  return onTerminal && !getTerminalSize(&size);
}

static void tellSafely(const char *before, const char *text, const char *after) {
  char safe[256];
  printf("%s%s%s", before, makeSafe(safe, sizeof safe, text, strlen(text)), after);
}

static void tellWhereDescriptionsAre() {
  const char *kind = getenv("TERM");
  const char *own = getenv("TERMINFO");
  const char *home = getenv("HOME");
  const char *folders = getenv("TERMINFO_DIRS");
  if (kind == nullptr || kind[0] == '\0') {
    fputs("TERM is not set: it names the kind of the terminal.\n", stdout);
    return;
  }
  tellSafely("TERM is \"", kind, "\".\n");
  fputs("Its description was looked for in", stdout);
  if (own != nullptr) tellSafely(" ", own, " (TERMINFO),");
  if (home != nullptr) tellSafely(" ", home, "/.terminfo,");
  if (folders != nullptr) tellSafely(" ", folders, " (TERMINFO_DIRS),");
  fputs(" and where this system keeps them, as a rule /usr/share/terminfo.\n", stdout);
}

void cursesMessage() {
  if (load(cursesFailed) == 0) return;
  fputs(
      "If you are reading this, curses full screen initialization failed. This is either because "
      "$TERM is not set properly,\nor because you are missing the terminfo files (which aren't "
      "present on iOS).\nYou can fix either easily if you read the README.\n",
      stdout);
  tellWhereDescriptionsAre();
}

}  // namespace sondex
