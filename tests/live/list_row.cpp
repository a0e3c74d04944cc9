#include "live/list_row.h"

#include <gtest/gtest.h>
#include <locale.h>
#include <sched.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <regex>

#include "harness/run.h"
#include "live/format.h"

namespace test {

namespace {

// What is before it are numbers at least as wide as their headers; it is just as wide.
constexpr int kCommand = placeOf(Column::command);

// A process list shows at most so many descriptors: the list is asked for with 1024 bytes.
constexpr size_t kMostDescriptors = 128;

// A text in a field: cut to a character less than the width, or followed by one blank where there
// is room for it.
std::string field(const std::string &text, size_t width) {
  return text.size() + 1 >= width ? text.substr(0, width - 1) : text + " ";
}

std::vector<std::string> splitAtBars(const std::string &line) {
  std::vector<std::string> parts{""};
  for (const char byte : line) {
    if (byte == '|') {
      parts.emplace_back();
    } else {
      parts.back() += byte;
    }
  }
  return parts;
}

// The cells that a terminal gives to a text in UTF-8, which the tests run the program with.
size_t cellsOf(const std::string &text) {
  const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t before = uselocale(utf8);
  std::wstring wide(text.size() + 1, L'\0');
  const size_t length = mbstowcs(wide.data(), text.c_str(), wide.size());
  const int cells = length == static_cast<size_t>(-1) ? -1 : wcswidth(wide.data(), length);
  uselocale(before);
  freelocale(utf8);
  return cells < 0 ? text.size() : static_cast<size_t>(cells);
}

// A number that its field has no room for is written as a whole.
std::string numberField(const std::string &text, size_t width) {
  return text.size() < width ? field(text, width) : text;
}

}  // namespace

// Names may hold bars: the command is what is left between the cells before and after it.
std::optional<Row> parseRow(const std::string &line, bool forRoot) {
  static const std::regex number(" *-?[0-9]+ *");
  std::vector<Column> behind;
  for (int place = kCommand + 1; place < kColumnCount; place++) {
    if (!kListColumns[place].isForRoot || forRoot) behind.push_back(kListColumns[place].column);
  }
  std::vector<std::string> parts = splitAtBars(line);
  if (parts.size() < kCommand + 1 + behind.size()) return std::nullopt;

  Row row;
  for (int place = 0; place < kCommand; place++) {
    const std::string &cell = parts[static_cast<size_t>(place)];
    const bool isFilled = cell.size() >= std::strlen(kListColumns[place].drawn);
    if (!isFilled || !std::regex_match(cell, number)) return std::nullopt;
    row[kListColumns[place].column] = cell;
  }
  for (; !behind.empty(); behind.pop_back(), parts.pop_back()) row[behind.back()] = parts.back();
  std::string &command = row[Column::command];
  command = parts[kCommand];
  for (size_t i = kCommand + 1; i < parts.size(); i++) command += "|" + parts[i];
  if (cellsOf(command) != std::strlen(kListColumns[kCommand].drawn)) return std::nullopt;
  return row;
}

std::vector<Row> PlainList::rowsOf(pid_t pid) const {
  std::vector<Row> found;
  for (const Row &row : rows) {
    if (row.at(Column::pid) == pidCell(pid)) found.push_back(row);
  }
  return found;
}

PlainList parseList(const std::string &output, bool forRoot) {
  PlainList list;
  for (const std::string &line : splitLines(output)) {
    if (const std::optional<Row> row = parseRow(line, forRoot)) {
      list.rows.push_back(*row);
    } else if (list.rows.empty()) {
      list.header.push_back(line);
    } else {
      list.strange.push_back(line);
    }
  }
  return list;
}

std::string userCell(uint32_t user) {
  return numberField(format("%5d", static_cast<int>(user)), 6);
}

std::string pidCell(pid_t pid) {
  return numberField(format("%-5d", pid), 6);
}

std::string commandCell(const std::string &shownName) {
  constexpr size_t kCells = 15;
  const size_t cells = cellsOf(shownName);
  return shownName + std::string(cells < kCells ? kCells - cells : 0, ' ');
}

std::string threadsCell(int threads, int running) {
  if (running != 0) return field(format("%2d/%d", threads, running), 5);
  return field(format("%2d", threads) + (threads < 100 ? " " : ""), 5);
}

// Ordinary threads: 31 less the nice value. Real-time ones: from 97 for the lowest.
std::string priorityCell(const ProcessFacts &facts) {
  int priority = 31 - facts.nice;
  if (facts.policy == SCHED_IDLE) priority = 4;
  if (facts.policy == SCHED_FIFO || facts.policy == SCHED_RR) {
    priority = 97 + (facts.realTimePriority - 1) * 30 / 98;
  }
  return field(format("%3d ", priority), 5);
}

std::string residentCell(uint64_t bytes) {
  const long long megabytes = static_cast<long long>(bytes >> 20);
  const long long kilobytes = static_cast<long long>(bytes >> 10);
  return field(megabytes >= 10 ? format("%4lldM", megabytes) : format("%4lldK", kilobytes), 6);
}

std::string virtualCell(uint64_t bytes) {
  const long long megabytes = static_cast<long long>(bytes >> 20);
  return megabytes / 1024 >= 10 ? format("%4lldG", megabytes / 1024) : format("%4lldM", megabytes);
}

std::string diskCell(std::optional<uint64_t> bytes) {
  if (!bytes) return "?????";
  double value = static_cast<double>(*bytes);
  char unit = 'B';
  if (*bytes > 9999) {
    value /= 1024;
    unit = 'K';
    if (value > 999) {
      value /= 1024;
      unit = 'M';
    }
    if (value > 999) {
      value /= 1024;
      unit = 'G';
    }
  }
  if (value == static_cast<double>(static_cast<uint64_t>(value))) {
    return format("%5.0f%c", value, unit);
  }
  return value > 100  ? format("%-3.1f%c", value, unit)
         : value > 10 ? format("%-4.2f%c", value, unit)
                      : format("%-4.3f%c", value, unit);
}

std::string coalitionCell(pid_t session) {
  return format("%4d", session);
}

std::string statusCell(const ProcessFacts &facts) {
  if (facts.runningThreads != 0) return " R ";
  return facts.state == 'T' || facts.state == 't' ? " T " : " S ";
}

std::string bandCell(int oomScore) {
  return format("%-3d", (1000 - oomScore) * 21 / 2000);
}

std::string limitCell(std::optional<uint64_t> bytes) {
  return bytes ? format("%4lld", static_cast<long long>(*bytes >> 20)) : " ?? ";
}

std::string sandboxCell(const ProcessFacts &facts) {
  return facts.hasSystemCallFilter || facts.hasOwnUsers ? "SB" : "NO";
}

std::string timeCell(uint64_t ticks) {
  const uint64_t perSecond = static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
  const unsigned long long seconds = ticks / perSecond;
  const unsigned long long hundredths = ticks % perSecond * 100 / perSecond;
  if (seconds >= 86400) return field(" >1 day ", 12);
  if (seconds >= 3600) {
    return field(format("%02llu:%02llu:%02llu", seconds / 3600, seconds / 60 % 60, seconds % 60),
                 12);
  }
  if (seconds >= 60) {
    return field(format("%2llu:%02llu.%02llu", seconds / 60, seconds % 60, hundredths), 12);
  }
  return field(format("   %02llu.%02llu", seconds, hundredths), 12);
}

std::string descriptorsCell(size_t count) {
  return format("%4zu", std::min(count, kMostDescriptors));
}

static std::string startTimeCell(time_t started, time_t now) {
  tm start{};
  tm today{};
  localtime_r(&started, &start);
  localtime_r(&now, &today);
  if (start.tm_yday == today.tm_yday) {
    return format("  %02d:%02d:%02d ", start.tm_hour, start.tm_min, start.tm_sec);
  }
  // The month counts from 0.
  return format("%02d/%02d %02d:%02d", start.tm_mday, start.tm_mon, start.tm_hour, start.tm_min);
}

static double secondsOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

std::vector<std::string> startTimeCells(uint64_t startTicks) {
  constexpr double kClockError = 0.01;
  const double now = secondsOf(CLOCK_REALTIME);
  const double started =
      now - secondsOf(CLOCK_BOOTTIME) +
      static_cast<double>(startTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
  std::vector<std::string> cells;
  // Counted from the second in which the machine was started, as ps does: up to one too early.
  for (time_t moment = static_cast<time_t>(started - 1 - kClockError);
       moment <= static_cast<time_t>(started + kClockError); moment++) {
    cells.push_back(startTimeCell(moment, static_cast<time_t>(now)));
  }
  return cells;
}

std::optional<long> hundredthsOf(const std::string &timeCell) {
  static const std::regex seconds("   ([0-9]{2})\\.([0-9]{2}) ?");
  static const std::regex minutes("([ 0-9][0-9]):([0-9]{2})\\.([0-9]{2}) ?");
  static const std::regex hours("([0-9]{2}):([0-9]{2}):([0-9]{2}) ?");
  std::smatch part;
  const auto number = [&part](size_t index) { return std::stol(part[index]); };
  if (std::regex_match(timeCell, part, seconds)) return number(1) * 100 + number(2);
  if (std::regex_match(timeCell, part, minutes)) {
    return (number(1) * 60 + number(2)) * 100 + number(3);
  }
  if (std::regex_match(timeCell, part, hours)) {
    return ((number(1) * 60 + number(2)) * 60 + number(3)) * 100;
  }
  return std::nullopt;
}

std::optional<int> tenthsOf(const std::string &processorCell) {
  static const std::regex share(" *([0-9]+)\\.([0-9])");
  std::smatch part;
  if (!std::regex_match(processorCell, part, share)) return std::nullopt;
  return std::stoi(part[1]) * 10 + std::stoi(part[2]);
}

std::string askPS(pid_t pid, const std::string &columns) {
  Launch launch;
  launch.program = "/usr/bin/ps";
  launch.arguments = {"-o", columns, "-p", std::to_string(pid)};
  const Outcome outcome = run(launch);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  return outcome.output;
}

}  // namespace test
