#include "harness/terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "harness/run.h"

namespace test {

namespace {

constexpr size_t kKept = size_t{1} << 20;
constexpr std::string_view kClearScreen = "\x1b[H\x1b[2J";

winsize sizeOf(int columns, int rows) {
  winsize size{};
  size.ws_col = static_cast<unsigned short>(columns);
  size.ws_row = static_cast<unsigned short>(rows);
  return size;
}

void appendCharacter(uint32_t code, std::string &text) {
  const auto add = [&text](uint32_t byte) { text += static_cast<char>(byte); };
  if (code < 0x80) {
    add(code);
  } else if (code < 0x800) {
    add(0xC0 | code >> 6);
    add(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    add(0xE0 | code >> 12);
    add(0x80 | (code >> 6 & 0x3F));
    add(0x80 | (code & 0x3F));
  } else {
    add(0xF0 | code >> 18);
    add(0x80 | (code >> 12 & 0x3F));
    add(0x80 | (code >> 6 & 0x3F));
    add(0x80 | (code & 0x3F));
  }
}

int colourNumber(const VTermColor &colour) {
  if (VTERM_COLOR_IS_DEFAULT_FG(&colour) || VTERM_COLOR_IS_DEFAULT_BG(&colour)) {
    return kDefaultColour;
  }
  // Only numbered colours come from curses.
  return VTERM_COLOR_IS_INDEXED(&colour) ? colour.indexed.idx : -2;
}

}  // namespace

Terminal::PseudoTerminal Terminal::openPseudoTerminal(int columns, int rows) {
  winsize size = sizeOf(columns, rows);
  int master = -1;
  int line = -1;
  if (openpty(&master, &line, nullptr, nullptr, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "openpty");
  }
  for (const int fd : {master, line}) fcntl(fd, F_SETFD, FD_CLOEXEC);
  fcntl(master, F_SETFL, O_NONBLOCK);
  return {FileHandle(master), FileHandle(line)};
}

Launch Terminal::launchOf(const TerminalOptions &options, int line, int error) {
  Launch launch;
  launch.program = sondexPath();
  launch.arguments = options.arguments;
  launch.environment = options.environment;
  launch.environment.emplace_back("TERM", options.kind);
  launch.user = options.user;
  launch.input = line;
  launch.output = line;
  launch.error = options.separateError ? error : line;
  launch.ownsTerminal = true;
  launch.ignoredSignals = options.ignoredSignals;
  return launch;
}

Terminal::Terminal(const TerminalOptions &options)
    : Terminal(options, openPseudoTerminal(options.columns, options.rows), makePipe()) {}

static termios modesOf(int line) {
  termios modes{};
  if (tcgetattr(line, &modes) != 0) {
    throw std::system_error(errno, std::generic_category(), "tcgetattr");
  }
  return modes;
}

Terminal::Terminal(const TerminalOptions &options, PseudoTerminal pseudoTerminal, Pipe error)
    : columns_(options.columns),
      rows_(options.rows),
      master_(std::move(pseudoTerminal.master)),
      line_(std::move(pseudoTerminal.line)),
      errorPipe_(std::move(error.readEnd)),
      modesBefore_(modesOf(line_.get())),
      vterm_(vterm_new(options.rows, options.columns)),
      screen_(vterm_obtain_screen(vterm_)),
      child_(launchOf(options, line_.get(), error.writeEnd.get())) {
  fcntl(errorPipe_.get(), F_SETFL, O_NONBLOCK);
  vterm_set_utf8(vterm_, 1);
  static const VTermScreenCallbacks callbacks = [] {
    VTermScreenCallbacks only{};
    only.settermprop = onProperty;
    return only;
  }();
  vterm_screen_set_callbacks(screen_, &callbacks, this);
  vterm_screen_enable_altscreen(screen_, 1);
  vterm_screen_reset(screen_, 1);
}

Terminal::~Terminal() {
  vterm_free(vterm_);
}

int Terminal::onProperty(VTermProp property, VTermValue *value, void *self) {
  Terminal *terminal = static_cast<Terminal *>(self);
  if (property == VTERM_PROP_ALTSCREEN) terminal->alternate_ = value->boolean != 0;
  if (property == VTERM_PROP_CURSORVISIBLE) terminal->cursorVisible_ = value->boolean != 0;
  return 1;
}

void Terminal::press(std::string_view keys) {
  while (!keys.empty()) {
    const ssize_t written = write(master_.get(), keys.data(), keys.size());
    if (written > 0) {
      keys.remove_prefix(static_cast<size_t>(written));
    } else if (errno != EAGAIN) {
      throw std::system_error(errno, std::generic_category(), "press");
    } else {
      takeIn(Duration{10});
    }
  }
}

size_t Terminal::unreadKeys() const {
  int bytes = 0;
  return ioctl(line_.get(), FIONREAD, &bytes) == 0 && bytes > 0 ? static_cast<size_t>(bytes) : 0;
}

void Terminal::resize(int columns, int rows) {
  columns_ = columns;
  rows_ = rows;
  vterm_set_size(vterm_, rows, columns);
  const winsize size = sizeOf(columns, rows);
  ioctl(master_.get(), TIOCSWINSZ, &size);  // the kernel sends SIGWINCH
}

void Terminal::scribble(std::string_view text, const termios &modes) {
  tcsetattr(line_.get(), TCSANOW, &modes);
  const ssize_t written = write(line_.get(), text.data(), text.size());
  waitFor([&] { return !takeIn(Duration{10}); });
  if (written != static_cast<ssize_t>(text.size())) {
    throw std::system_error(errno, std::generic_category(), "scribble");
  }
}

bool Terminal::drawAgain(Duration patience) {
  const size_t before = repaints_;
  child_.signal(SIGWINCH);
  const auto isDrawn = [&] { return repaints_ > before || hasEnded(); };
  waitFor(isDrawn, patience);
  return repaints_ > before;
}

void Terminal::hangUp() {
  line_.close();
  master_.close();
}

bool Terminal::takeInScreen() {
  char buffer[65536];
  const ssize_t length = read(master_.get(), buffer, sizeof buffer);
  if (length <= 0) return false;
  const size_t size = static_cast<size_t>(length);
  // A sequence may come in two parts.
  size_t at = written_.size() - std::min(written_.size(), kClearScreen.size() - 1);
  written_.append(buffer, size);
  while ((at = written_.find(kClearScreen, at)) != std::string::npos) {
    repaints_++;
    at += kClearScreen.size();
  }
  if (written_.size() > 2 * kKept) written_.erase(0, written_.size() - kKept);
  vterm_input_write(vterm_, buffer, size);
  vterm_screen_flush_damage(screen_);
  return true;
}

bool Terminal::takeInError() {
  char buffer[65536];
  const ssize_t length = read(errorPipe_.get(), buffer, sizeof buffer);
  if (length > 0) standardError_.append(buffer, static_cast<size_t>(length));
  if (length == 0) errorPipe_.close();
  return length > 0;
}

bool Terminal::takeIn(Duration patience) {
  pollfd waited[2] = {{master_.get(), POLLIN, 0}, {errorPipe_.get(), POLLIN, 0}};
  if (::poll(waited, 2, static_cast<int>(patience.count())) <= 0) return false;
  bool came = false;
  if (waited[0].revents != 0) came = takeInScreen();
  if (waited[1].revents != 0) came = takeInError() || came;
  return came;
}

bool Terminal::waitFor(const std::function<bool()> &condition, Duration patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    takeIn(Duration{10});
  }
  return true;
}

bool Terminal::isAtRest() {
  // To poll is to have the kernel hand on first what is still on its way between the two ends.
  pollfd keys{line_.get(), POLLIN, 0};
  if (::poll(&keys, 1, 0) != 0) return false;
  return watch_.isAtRest() && !takeIn(Duration{0});
}

bool Terminal::hasFrameToCome(Clock::time_point deadline) const {
  const std::optional<Duration> wait = watch_.wait();
  return !wait || (*wait >= Duration{0} && Clock::now() + *wait < deadline);
}

bool Terminal::waitForWork(const std::function<bool()> &condition, Duration patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  int moreFrames = 2;
  bool holds = false;
  const auto isOver = [&] {
    holds = condition();
    if (holds) return true;
    if (!isAtRest()) return false;
    return !hasFrameToCome(deadline) || moreFrames-- == 0 || !drawAgain();
  };
  watch_.restart();
  waitFor(isOver, patience);
  return holds;
}

bool Terminal::settle(Duration patience) {
  const auto isOver = [&] {
    if (hasEnded()) return true;
    pollfd keys{line_.get(), POLLIN, 0};
    return ::poll(&keys, 1, 0) == 0 && unreadKeys() == 0 && watch_.isSettled() &&
           !takeIn(Duration{0});
  };
  return waitFor(isOver, patience) && !hasEnded();
}

bool Terminal::drawUntil(const std::function<bool()> &condition, Duration patience) {
  constexpr Duration kPeriod{100};
  Clock::time_point next = Clock::now();
  return waitFor(
      [&] {
        if (Clock::now() >= next) {
          signal(SIGWINCH);
          next = Clock::now() + kPeriod;
        }
        return hasEnded() || condition();
      },
      patience);
}

std::string Terminal::await(const std::function<std::string()> &complaint, Duration patience) {
  std::string last;
  bool ended = false;
  const auto isSettled = [&] {
    // In this order: what was written before the end is taken in when the end is seen.
    ended = hasEnded();
    while (ended && takeIn(Duration{0})) continue;
    last = complaint();
    return last.empty() || ended;
  };
  waitForWork(isSettled, patience);
  if (last.empty()) return "";
  return last + (ended ? "; the program has ended" : "") + "\n--- screen ---\n" + text() + "---\n";
}

std::string Terminal::awaitText(std::string_view wanted, Duration patience) {
  return await(
      [this, wanted]() -> std::string {
        return findRow(wanted) >= 0 ? "" : "no \"" + std::string(wanted) + "\"";
      },
      patience);
}

std::optional<Ending> Terminal::waitForEnd(Duration patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  watch_.restart();
  waitFor([&] { return hasEnded() || (isAtRest() && !hasFrameToCome(deadline)); }, patience);
  while (takeIn(Duration{0})) continue;
  return child_.poll();
}

Cell Terminal::cell(int row, int column) const {
  VTermScreenCell raw{};
  Cell cell;
  if (vterm_screen_get_cell(screen_, VTermPos{row, column}, &raw) == 0) return cell;
  for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && raw.chars[i] != 0; i++) {
    // The second half of a wide character.
    if (raw.chars[i] == UINT32_MAX) return cell;
    appendCharacter(raw.chars[i], cell.text);
  }
  if (cell.text.empty()) cell.text = " ";
  cell.foreground = colourNumber(raw.fg);
  cell.background = colourNumber(raw.bg);
  cell.bold = raw.attrs.bold != 0;
  cell.underline = raw.attrs.underline != 0;
  cell.reverse = raw.attrs.reverse != 0;
  return cell;
}

std::string Terminal::rowText(int row) const {
  std::string text;
  for (int column = 0; column < columns_; column++) text += cell(row, column).text;
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::string Terminal::text() const {
  std::string text;
  for (int row = 0; row < rows_; row++) text += rowText(row) + "\n";
  return text;
}

int Terminal::findRow(std::string_view text) const {
  for (int row = 0; row < rows_; row++) {
    if (rowText(row).find(text) != std::string::npos) return row;
  }
  return -1;
}

termios Terminal::modes() const {
  return modesOf(line_.get());
}

bool sameModes(const termios &a, const termios &b) {
  return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
         a.c_lflag == b.c_lflag && std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

}  // namespace test
