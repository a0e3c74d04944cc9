#include "terminal/page.h"

#include <curses.h>
#include <poll.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "terminal/ending.h"
#include "terminal/key_codes.h"
#include "terminal/lost_screen.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "terminal/status_bar.h"

namespace sondex {

constexpr int32_t kBetweenKeys = 1000;  // milliseconds
constexpr int32_t kOneLook = 100;       // milliseconds, after which other wishes are seen

Page openPage(bool showsStatus) {
  return {kEndOfText, 0, showsStatus};
}

void beginPage(const Page *page) {
  if (!isOnScreen()) return;
  takeScreenBack();
  beginText(page->first);
}

// The first line of a view of the page's end.
static int64_t lastView(const Page *page) {
  return std::max<int64_t>(page->lines - textRows(), 0);
}

static int64_t firstShown(const Page *page) {
  return page->first == kEndOfText ? lastView(page) : page->first;
}

static void showWhatIsMore(const Page *page) {
  const int64_t first = firstShown(page);
  const bool isMoreAbove = first > 0;
  const bool isMoreBelow = first < lastView(page);
  if ((!isMoreAbove && !isMoreBelow) || getmaxy(stdscr) == 1) return;
  const char *where = !isMoreBelow ? "above" : !isMoreAbove ? "below" : "above and below";
  const int64_t last = std::min(first + textRows(), page->lines);
  moveTo(getmaxy(stdscr) - 1, 0);
  switchOn(static_cast<uint32_t>(A_REVERSE));
  outputFormatted(0, " more %s: lines %lld-%lld of %lld (Up, Down, Space, b, Home, End) ", where,
                  static_cast<long long>(first) + 1, static_cast<long long>(last),
                  static_cast<long long>(page->lines));
  switchOff(static_cast<uint32_t>(A_REVERSE));
}

bool endPage(Page *page) {
  if (!isOnScreen()) return true;
  page->lines = linesWritten();
  if (page->first > lastView(page)) {
    page->first = kEndOfText;
    return false;
  }
  showWhatIsMore(page);
  if (page->showsStatus && isStatusPassing()) printStatusBar();
  sendFrame();
  return true;
}

static void moveTo(Page *page, int64_t first) {
  page->first = first >= lastView(page) ? kEndOfText : std::max<int64_t>(first, 0);
}

bool movePage(Page *page, int key) {
  const int64_t first = firstShown(page);
  switch (key) {
    case kUp:
      moveTo(page, first - 1);
      return true;
    case kDown:
      moveTo(page, first + 1);
      return true;
    case ' ':
    case kPageDown:
      moveTo(page, first + textRows());
      return true;
    case 'b':
    case kPageUp:
      moveTo(page, first - textRows());
      return true;
    case kHome:
      moveTo(page, 0);
      return true;
    case kEnd:
      page->first = kEndOfText;
      return true;
    case kRepaint:
      repaintScreen();
      return true;
    default:
      return false;
  }
}

int readKey() {
  int key = ERR;
  do {
    key = wgetch(stdscr);
  } while (key == KEY_RESIZE);
  return key;
}

// Waits for a key, for that long. An input that has come to its end can be read too, again and
// again, but there is nothing in it.
static bool isKeyTyped(int32_t milliseconds) {
  pollfd keyboard = {STDIN_FILENO, POLLIN, 0};
  if (poll(&keyboard, 1, milliseconds) <= 0) return false;
  int bytes = 0;
  if (ioctl(STDIN_FILENO, FIONREAD, &bytes) == 0 && bytes > 0) return true;
  pauseUnlessEnding(milliseconds);
  return false;
}

bool waitForKey() {
  int32_t milliseconds = kBetweenKeys;
  for (; reasonToEnd() == 0 && !hasLostScreen() && milliseconds > 0; milliseconds -= kOneLook) {
    stopIfAsked();
    if (isKeyTyped(std::min(milliseconds, kOneLook))) break;
  }
  return reasonToEnd() == 0;
}

static void drawPage(Page *page, void (*write)(int32_t), int32_t argument) {
  do {
    beginPage(page);
    write(argument);
  } while (!endPage(page));
}

void showPage(void (*write)(int32_t), int32_t argument) {
  if (!isOnScreen()) {
    write(argument);
    return;
  }
  Page page = openPage(false);
  drawPage(&page, write, argument);
  while (!isKeyboardGone()) {
    const int key = readKey();
    if (key == kEnter || key == 'Q' || key == 'q') return;
    const bool isMoved = movePage(&page, key);
    if (isMoved || hasLostScreen()) drawPage(&page, write, argument);
    if (!isMoved && !waitForKey()) return;
  }
}

bool isKeyboardGone() {
  pollfd keyboard = {STDIN_FILENO, 0, 0};
  return poll(&keyboard, 1, 0) > 0 && (keyboard.revents & (POLLHUP | POLLERR)) != 0;
}

}  // namespace sondex
