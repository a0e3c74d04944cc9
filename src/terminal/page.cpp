#include "terminal/page.h"

#include <curses.h>
#include <poll.h>
#include <stdint.h>
#include <unistd.h>

#include "state/display.h"
#include "terminal/ending.h"
#include "terminal/key_codes.h"

namespace sondex {

constexpr int32_t kBetweenKeys = 1000;  // milliseconds

static bool isOnScreen() {
  return load(wantCurses) != 0 && stdscr != nullptr;
}

void beginPage() {
  if (!isOnScreen()) return;
  wclear(stdscr);
  wrefresh(stdscr);
  wmove(stdscr, 0, 0);
  idlok(stdscr, TRUE);
  scrollok(stdscr, TRUE);
}

bool isKeyboardGone() {
  pollfd keyboard = {STDIN_FILENO, 0, 0};
  return poll(&keyboard, 1, 0) > 0 && (keyboard.revents & (POLLHUP | POLLERR)) != 0;
}

int readKey() {
  int key = ERR;
  do {
    key = wgetch(stdscr);
  } while (key == KEY_RESIZE);
  return key;
}

void waitToLeavePage() {
  if (!isOnScreen()) return;
  while (!isKeyboardGone()) {
    const int key = readKey();
    if (key == kEnter || key == 'Q' || key == 'q') return;
    if (!pauseUnlessEnding(kBetweenKeys)) return;
  }
}

}  // namespace sondex
