#include "terminal/prompt.h"

#include <curses.h>
#include <poll.h>
#include <stdint.h>
#include <unistd.h>

#include "state/display.h"
#include "terminal/ending.h"
#include "terminal/key_codes.h"
#include "terminal/output.h"
#include "terminal/page.h"
#include "terminal/screen.h"
#include "terminal/status_bar.h"

namespace sondex {

// How long one look at the keyboard waits, in milliseconds: so soon a wish to end is seen.
constexpr int kOneLook = 100;
constexpr int kNoMoreKeys = -2;
static_assert(kNoMoreKeys != ERR);

// Seventy-four blanks.
static const char kBlankStatus[] =
    "                                                                          ";

static bool keyboardHasSomething() {
  pollfd keyboard = {STDIN_FILENO, POLLIN, 0};
  return poll(&keyboard, 1, kOneLook) > 0;
}

// The next key, or kNoMoreKeys. Curses itself never waits here: it could not be told to end.
static int waitForKey() {
  bool readable = false;
  while (reasonToEnd() == 0) {
    const int key = readKey();
    if (key != ERR) return key;
    // Something to read and yet no key: that is the end of the input.
    if (readable) return kNoMoreKeys;
    readable = keyboardHasSomething();
  }
  return kNoMoreKeys;
}

// False when the answer was not brought to its end.
static bool readAnswer(char *answer) {
  for (int length = 0; length < kPromptSize; length++) {
    const int key = waitForKey();
    if (key == kNoMoreKeys) return false;
    // Kept: there is no line editing, a backspace is a character like any other.
    answer[length] = static_cast<char>(key == kEnter ? '\0' : key);
    if (key == kEnter) return true;
  }
  answer[kPromptSize - 1] = '\0';
  return true;
}

char *promptForInput(const char *prompt) {
  static char answer[kPromptSize];
  answer[0] = '\0';
  if (load(wantCurses) == 0 || stdscr == nullptr) return answer;
  setStatusBar(kBlankStatus, 1);
  printStatusBar();
  wrefresh(stdscr);

  wmove(stdscr, getmaxy(stdscr) - 1, 0);
  const uint32_t attribute = load(g_Color) != 0
                                 ? static_cast<uint32_t>(COLOR_PAIR(kPairPrompt) | A_BOLD)
                                 : static_cast<uint32_t>(A_REVERSE);
  switchOn(attribute);
  output(prompt, 0);
  nodelay(stdscr, TRUE);
  echo();
  if (!readAnswer(answer)) answer[0] = '\0';
  noecho();
  switchOff(attribute);
  return answer;
}

}  // namespace sondex
