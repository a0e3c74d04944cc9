// The list on the screen of a program that draws only when a key tells it to: its own refreshes are
// put off, so that each frame, and on a stepped device each figure, is known. Complaints are ""
// when all is well.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/list_columns.h"
#include "harness/stepped_device.h"
#include "harness/terminal.h"
#include "harness/written_device.h"

namespace test {

// Draws another frame and does nothing else.
inline constexpr std::string_view kIdleKey = "\x04";

// On the device "minimal", besides what every system runs.
inline constexpr pid_t kHello = 40;

struct Place {
  std::string device = "minimal";  // "" is the machine that the test runs on
  int columns = 132;
  int rows = 50;
  bool separateError = false;
  SteppedDevice::Background background = SteppedDevice::Background::told;
  std::string deviceText = "";  // unless empty: a device of the test's own, in place of `device`
};

class Display {
 public:
  explicit Display(const Place &place = {});

  Terminal &terminal() { return terminal_; }

  // Waits for the first frame and puts off the program's own ones. To be called first.
  std::string begin();
  // Presses keys and waits for the frame that shows what all of them did.
  std::string press(std::string_view keys);
  // Presses a key that asks a question, and types the answer and Enter.
  std::string answer(std::string_view key, std::string_view question, std::string_view answer);
  // Presses a key that asks a question, and waits for that.
  std::string ask(std::string_view key, std::string_view question);
  // Selects a column, from the one that is selected at the start or from another. None is hidden.
  std::string select(Column wanted, Column from = Column::processor);
  // Makes the order known: descending by PID.
  std::string sortByPid();

  // What the bottom row says, without the blanks around it.
  std::string status() const;
  // Whether the bottom row is a status bar: black on bright red.
  bool hasStatusBar() const;
  // Of the row with the names of the columns: its number (-1 when there is none), its text, and
  // which name is the selected one.
  int headerRow() const;
  std::string header() const;
  std::string selectedHeader() const;
  // Of the rows below it, as long as the column PID is where it was. A highlighted one is reverse
  // and bold.
  std::vector<pid_t> pids() const;
  std::optional<pid_t> highlightedPid() const;
  std::string rowOf(pid_t pid) const;
  // What stands between two separators of that row, of a column that is drawn with all before it.
  std::string cellOf(pid_t pid, Column column) const;
  // All above the row with the names, a newline after each row.
  std::string summary() const;
  // The time of day in the first row, in seconds.
  std::optional<int> clock() const;

  // Waits for the end: status 0, and the terminal left as it was.
  std::string complaintAboutEnd();
  // Whether the terminal is as it was before the program: line modes, screen and cursor.
  std::string complaintAboutTerminal() const;

 private:
  std::string withScreen(const std::string &complaint) const;
  int rowNumberOf(pid_t pid) const;

  std::optional<SteppedDevice> device_;
  std::optional<WrittenDevice> writtenDevice_;
  Terminal terminal_;
};

}  // namespace test
