// A terminal of its own for sondex: a pseudo-terminal whose other end is libvterm. Keys go in,
// cells with their characters, colours and attributes come out.
#pragma once

#include <termios.h>
#include <vterm.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/child.h"
#include "harness/file_handle.h"
#include "harness/rest_watch.h"

namespace test {

// A colour by its number, or the terminal's own.
inline constexpr int kDefaultColour = -1;
inline constexpr int kBlack = 0;
inline constexpr int kRed = 1;
inline constexpr int kYellow = 3;
inline constexpr int kCyan = 6;
inline constexpr int kWhite = 7;
inline constexpr int kBrightRed = 9;

// What keys send.
inline constexpr std::string_view kUpKey = "\x1b[A";
inline constexpr std::string_view kDownKey = "\x1b[B";
inline constexpr std::string_view kRightKey = "\x1b[C";
inline constexpr std::string_view kLeftKey = "\x1b[D";
inline constexpr std::string_view kCtrlC = "\x03";

struct Cell {
  std::string text;  // UTF-8; a blank for a cell that nothing was written to
  int foreground = kDefaultColour;
  int background = kDefaultColour;
  bool bold = false;
  bool underline = false;
  bool reverse = false;
};

struct TerminalOptions {
  int columns = 80;
  int rows = 24;
  std::string kind = "xterm-256color";  // the variable TERM
  std::vector<std::string> arguments;
  Environment environment;
  std::optional<uid_t> user;
  bool separateError = false;  // standard error goes to a pipe of its own
  std::vector<int> ignoredSignals;
};

// A frame that the program draws because it was told to comes before the one of its own, after ten
// seconds. The thread sanitizer hands signals on late, at worst with that frame.
#ifdef __SANITIZE_THREAD__
inline constexpr Duration kBeforeNextRefresh = kPatience;
#else
inline constexpr Duration kBeforeNextRefresh{9'000};
#endif

class Terminal {
 public:
  // Starts the program that was built. Throws std::system_error when there is no pseudo-terminal.
  explicit Terminal(const TerminalOptions &options = {});
  Terminal(const Terminal &) = delete;
  Terminal &operator=(const Terminal &) = delete;
  ~Terminal();

  pid_t pid() const { return child_.pid(); }
  void press(std::string_view keys);
  // What was pressed and the program has not read yet, in bytes.
  size_t unreadKeys() const;
  void resize(int columns, int rows);
  void signal(int number) const { child_.signal(number); }
  // Somebody else uses the terminal: writes to it, and sets the line's modes.
  void scribble(std::string_view text, const termios &modes);
  // Tells the program once that its window has changed, and waits for the frame that it then draws.
  // False when there is none by the deadline.
  bool drawAgain(Duration patience = kBeforeNextRefresh);
  // The terminal goes away.
  void hangUp();

  // Takes in what the program writes until `complaint` has none about the screen, and returns "".
  // At the deadline, once the program has ended, and when there is nothing more to come, returns
  // the last complaint and the screen.
  std::string await(const std::function<std::string()> &complaint, Duration patience = kPatience);
  std::string awaitText(std::string_view wanted, Duration patience = kPatience);
  // For as long as `condition` does not hold. False at the deadline.
  bool waitFor(const std::function<bool()> &condition, Duration patience = kPatience);
  // The same for what the program does as soon as it can: false also once it rests. Where it would
  // go on to draw frames by itself before the deadline, it is told to draw two of them first.
  bool waitForWork(const std::function<bool()> &condition, Duration patience = kPatience);
  // Waits until the list that is on the screen shows what all keys did that were pressed. False at
  // the deadline, and once the program has ended.
  bool settle(Duration patience = kPatience);
  // Has the program draw ten times a second for as long as `condition` does not hold and it runs.
  // False at the deadline.
  bool drawUntil(const std::function<bool()> &condition, Duration patience = kPatience);
  // Nothing when the program still runs at the deadline. Afterwards all that it wrote is taken in.
  std::optional<Ending> waitForEnd(Duration patience = kPatience);
  bool hasEnded() { return child_.poll().has_value(); }

  int columns() const { return columns_; }
  int rows() const { return rows_; }
  Cell cell(int row, int column) const;
  // Without the blanks at its end.
  std::string rowText(int row) const;
  // All rows, a newline after each.
  std::string text() const;
  // The first row with this text, -1 when there is none.
  int findRow(std::string_view text) const;
  bool isOnAlternateScreen() const { return alternate_; }
  bool isCursorVisible() const { return cursorVisible_; }
  // How often the program cleared the whole screen, to send all of it: when it opens it, when its
  // window has changed, and when it is told to.
  size_t repaints() const { return repaints_; }

  // The line's modes before the program started and now.
  const termios &modesBefore() const { return modesBefore_; }
  termios modes() const;
  // The last of what the program wrote to the terminal, and to its own standard error.
  const std::string &written() const { return written_; }
  const std::string &standardError() const { return standardError_; }

 private:
  struct PseudoTerminal {
    FileHandle master;
    FileHandle line;
  };
  static PseudoTerminal openPseudoTerminal(int columns, int rows);
  Terminal(const TerminalOptions &options, PseudoTerminal pseudoTerminal, Pipe error);
  static Launch launchOf(const TerminalOptions &options, int line, int error);
  static int onProperty(VTermProp property, VTermValue *value, void *self);

  // Takes in what there is, after waiting for it. False when nothing came.
  bool takeIn(Duration patience);
  bool takeInScreen();
  bool takeInError();
  // Whether the program has shown all that it was told to. To be asked again and again.
  bool isAtRest();
  bool hasFrameToCome(Clock::time_point deadline) const;

  int columns_;
  int rows_;
  FileHandle master_;
  FileHandle line_;
  FileHandle errorPipe_;
  termios modesBefore_{};
  VTerm *vterm_ = nullptr;
  VTermScreen *screen_ = nullptr;
  bool alternate_ = false;
  bool cursorVisible_ = true;
  size_t repaints_ = 0;
  std::string written_;
  std::string standardError_;
  Child child_;
  RestWatch watch_{child_.pid()};
};

// Whether two sets of line modes are the same.
bool sameModes(const termios &a, const termios &b);

}  // namespace test
