#include "screen/display.h"

#include <charconv>
#include <cstdlib>
#include <regex>

#include "harness/screen_text.h"
#include "screen/list_screen.h"

namespace test {

namespace {

std::optional<SteppedDevice> deviceOf(const Place &place) {
  if (place.device.empty() || !place.deviceText.empty()) return std::nullopt;
  return std::optional<SteppedDevice>(std::in_place, place.device, place.background);
}

std::optional<WrittenDevice> writtenDeviceOf(const Place &place) {
  if (place.deviceText.empty()) return std::nullopt;
  return std::optional<WrittenDevice>(std::in_place, place.deviceText);
}

TerminalOptions optionsOf(const Place &place, const std::optional<SteppedDevice> &device,
                          const std::optional<WrittenDevice> &written) {
  TerminalOptions options;
  options.columns = place.columns;
  options.rows = place.rows;
  options.separateError = place.separateError;
  if (device) options.environment = device->environment();
  if (written) options.environment = written->environment();
  return options;
}

std::string trimmed(const std::string &text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

std::optional<int> numberIn(const std::string &text) {
  const std::string digits = trimmed(text);
  int number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

std::optional<pid_t> pidOfRow(const Terminal &terminal, int row) {
  const std::vector<CellRange> cells = cellsOfRow(terminal, row);
  if (cells.size() <= kPidCell + 1) return std::nullopt;
  return numberIn(textOf(terminal, row, cells[kPidCell]));
}

}  // namespace

Display::Display(const Place &place)
    : device_(deviceOf(place)),
      writtenDevice_(writtenDeviceOf(place)),
      terminal_(optionsOf(place, device_, writtenDevice_)) {}

std::string Display::withScreen(const std::string &complaint) const {
  return complaint + "\n--- screen ---\n" + terminal_.text() + "---\n";
}

std::string Display::begin() {
  std::string complaint = awaitWholeFrame(terminal_);
  if (!complaint.empty()) return complaint;
  complaint = answer("u", "Enter value for update delay", "1000");
  // What it says about that is there for two frames.
  if (complaint.empty()) complaint = press(kIdleKey);
  if (complaint.empty()) complaint = press(kIdleKey);
  return complaint;
}

std::string Display::press(std::string_view keys) {
  terminal_.press(keys);
  return terminal_.settle() ? "" : withScreen("the keys are not seen to");
}

std::string Display::ask(std::string_view key, std::string_view question) {
  terminal_.press(key);
  return terminal_.awaitText(question);
}

std::string Display::answer(std::string_view key, std::string_view question,
                            std::string_view answer) {
  const std::string complaint = ask(key, question);
  return complaint.empty() ? press(std::string(answer) + "\n") : complaint;
}

std::string Display::select(Column wanted, Column from) {
  const int distance = placeOf(wanted) - placeOf(from);
  std::string keys;
  for (int i = 0; i < std::abs(distance); i++) keys += distance < 0 ? kLeftKey : kRightKey;
  return press(keys);
}

std::string Display::sortByPid() {
  return select(Column::pid);
}

std::string Display::status() const {
  return trimmed(terminal_.rowText(terminal_.rows() - 1));
}

bool Display::hasStatusBar() const {
  for (int column = 0; column < terminal_.columns() - 1; column++) {
    const Cell cell = terminal_.cell(terminal_.rows() - 1, column);
    if (cell.foreground != kBlack || cell.background != kBrightRed) return false;
  }
  return true;
}

int Display::headerRow() const {
  for (int row = 0; row < terminal_.rows(); row++) {
    if (terminal_.cell(row, 0).underline) return row;
  }
  return -1;
}

std::string Display::header() const {
  const int row = headerRow();
  return row < 0 ? "" : terminal_.rowText(row);
}

std::string Display::selectedHeader() const {
  const int row = headerRow();
  std::string text;
  for (int column = 0; row >= 0 && column < terminal_.columns(); column++) {
    const Cell cell = terminal_.cell(row, column);
    if (cell.bold) text += cell.text;
  }
  return trimmed(text);
}

std::vector<pid_t> Display::pids() const {
  std::vector<pid_t> pids;
  for (int row = headerRow() + 1; row > 0 && row < terminal_.rows(); row++) {
    const std::optional<pid_t> pid = pidOfRow(terminal_, row);
    if (!pid) break;
    pids.push_back(*pid);
  }
  return pids;
}

std::optional<pid_t> Display::highlightedPid() const {
  for (const pid_t pid : pids()) {
    const Cell first = terminal_.cell(rowNumberOf(pid), 0);
    if (first.reverse && first.bold) return pid;
  }
  return std::nullopt;
}

int Display::rowNumberOf(pid_t pid) const {
  for (int row = headerRow() + 1; row > 0 && row < terminal_.rows(); row++) {
    if (pidOfRow(terminal_, row) == pid) return row;
  }
  return -1;
}

std::string Display::rowOf(pid_t pid) const {
  const int row = rowNumberOf(pid);
  return row < 0 ? "" : terminal_.rowText(row);
}

std::string Display::cellOf(pid_t pid, Column column) const {
  const int row = rowNumberOf(pid);
  if (row < 0) return "";
  const std::vector<CellRange> cells = cellsOfRow(terminal_, row);
  const size_t place = placeOf(column);
  return place < cells.size() ? trimmed(textOf(terminal_, row, cells[place])) : "";
}

std::string Display::summary() const {
  std::string text;
  for (int row = 0; row < headerRow(); row++) text += terminal_.rowText(row) + "\n";
  return text;
}

std::optional<int> Display::clock() const {
  static const std::regex pattern(" ([0-9]{2}):([0-9]{2}):([0-9]{2})  Up ");
  const std::string row = terminal_.rowText(0);
  std::smatch match;
  if (!std::regex_search(row, match, pattern)) return std::nullopt;
  return std::stoi(match[1]) * 3600 + std::stoi(match[2]) * 60 + std::stoi(match[3]);
}

std::string Display::complaintAboutEnd() {
  const std::optional<Ending> ending = terminal_.waitForEnd();
  if (!ending) return withScreen("still running");
  if (!ending->exitedWith(0)) return withScreen("another exit status");
  return complaintAboutTerminal();
}

std::string Display::complaintAboutTerminal() const {
  if (!sameModes(terminal_.modes(), terminal_.modesBefore())) return "other line modes";
  if (terminal_.isOnAlternateScreen()) return "the screen was not left";
  return terminal_.isCursorVisible() ? "" : "the cursor is hidden";
}

}  // namespace test
