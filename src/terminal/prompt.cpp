#include "terminal/prompt.h"

#include <curses.h>
#include <poll.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "state/display.h"
#include "terminal/ending.h"
#include "terminal/key_codes.h"
#include "terminal/lost_screen.h"
#include "terminal/output.h"
#include "terminal/page.h"
#include "terminal/screen.h"
#include "terminal/status_bar.h"
#include "text/append.h"
#include "text/utf8.h"

namespace sondex {

// How long one look at the keyboard waits, in milliseconds: so soon other wishes are seen.
constexpr int kOneLook = 100;
constexpr int kNoMoreKeys = -2;
static_assert(kNoMoreKeys != ERR);

constexpr size_t kShownSize = 320;  // for a question and an answer

// Seventy-four blanks.
static const char kBlankStatus[] =
    "                                                                          ";

static void clearBottomRow() {
  wmove(stdscr, getmaxy(stdscr) - 1, 0);
  wclrtoeol(stdscr);
}

// Draws the question and the answer so far in the bottom row. Once there is an answer, the end is
// shown of what is too long: there the next key goes.
static void drawPrompt(const char *prompt, const char *answer) {
  clearBottomRow();
  setStatusBar(kBlankStatus, 1);
  printStatusBar();

  char line[kShownSize] = "";
  append(line, sizeof line, "%s", prompt);
  appendSafe(line, sizeof line, answer, kPromptSize);
  const size_t length = strlen(line);
  int32_t cells = 0;
  fitCells(line, length, kShownSize, &cells);
  int32_t dropped = 0;
  const int32_t tooMany = answer[0] != '\0' ? std::max(cells - (getmaxx(stdscr) - 1), 0) : 0;
  const size_t start = fitCells(line, length, tooMany, &dropped);

  const uint32_t attribute = load(g_Color) != 0
                                 ? static_cast<uint32_t>(COLOR_PAIR(kPairPrompt) | A_BOLD)
                                 : static_cast<uint32_t>(A_REVERSE);
  moveTo(getmaxy(stdscr) - 1, 0);
  switchOn(attribute);
  output(line + start, 0);
  switchOff(attribute);
  sendFrame();
}

// Follows a change of size: the row of the question may be another one now.
static void drawPromptAnew(const char *prompt, const char *answer) {
  clearBottomRow();
  takeScreenBack();
  drawPrompt(prompt, answer);
}

static bool keyboardHasSomething() {
  pollfd keyboard = {STDIN_FILENO, POLLIN, 0};
  return poll(&keyboard, 1, kOneLook) > 0;
}

// The next key, or kNoMoreKeys. Curses itself never waits here: it could not be told to end.
static int waitForKey(const char *prompt, const char *answer) {
  bool readable = false;
  while (reasonToEnd() == 0) {
    stopIfAsked();
    if (hasLostScreen()) drawPromptAnew(prompt, answer);
    const int key = readKey();
    if (key == kRepaint) {
      repaintScreen();
      drawPrompt(prompt, answer);
    } else if (key != ERR) {
      return key;
    } else if (readable) {
      // Something to read and yet no key: that is the end of the input.
      return kNoMoreKeys;
    }
    readable = keyboardHasSomething();
  }
  return kNoMoreKeys;
}

// False when the answer was not brought to its end.
static bool readAnswer(const char *prompt, char *answer) {
  for (int length = 0; length < kPromptSize; length++) {
    answer[length] = '\0';
    drawPrompt(prompt, answer);
    const int key = waitForKey(prompt, answer);
    if (key == kNoMoreKeys) return false;
    if (key == kEnter) return true;
    // Kept: there is no line editing, a backspace is a character like any other.
    answer[length] = static_cast<char>(key);
  }
  answer[kPromptSize - 1] = '\0';
  return true;
}

char *promptForInput(const char *prompt) {
  static char answer[kPromptSize];
  answer[0] = '\0';
  if (!isOnScreen()) return answer;
  nodelay(stdscr, TRUE);
  // Keys that send several bytes are those bytes: each is stored, and shown, as a character.
  keypad(stdscr, FALSE);
  curs_set(1);
  if (!readAnswer(prompt, answer)) answer[0] = '\0';
  curs_set(0);
  keypad(stdscr, TRUE);
  return answer;
}

}  // namespace sondex
