// The process list in plain text, taken apart, what its cells should say, and what ps says.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "harness/list_columns.h"
#include "harness/process_facts.h"

namespace test {

using Row = std::map<Column, std::string>;

// A list has the columns "MS " and "MEML" only for root. Nothing for a line that is no row.
std::optional<Row> parseRow(const std::string &line, bool forRoot);

struct PlainList {
  std::vector<std::string> header;  // the lines above the rows
  std::vector<Row> rows;
  std::vector<std::string> strange;  // lines after the first row that are no rows

  // All with this PID.
  std::vector<Row> rowsOf(pid_t pid) const;
};

PlainList parseList(const std::string &output, bool forRoot);

// What should stand in a cell. The command is the name as it is shown: control characters as "?".
std::string userCell(uint32_t user);
std::string pidCell(pid_t pid);
std::string commandCell(const std::string &shownName);
std::string threadsCell(int threads, int running);
std::string priorityCell(const ProcessFacts &facts);
std::string residentCell(uint64_t bytes);
std::string virtualCell(uint64_t bytes);
std::string diskCell(std::optional<uint64_t> bytes);
std::string coalitionCell(pid_t session);
std::string statusCell(const ProcessFacts &facts);
std::string bandCell(int oomScore);
std::string limitCell(std::optional<uint64_t> bytes);
std::string sandboxCell(const ProcessFacts &facts);
std::string timeCell(uint64_t ticks);
std::string descriptorsCell(size_t count);
// Of the seconds in which the start may have been.
std::vector<std::string> startTimeCells(uint64_t startTicks);

// Hundredths of a second of a time cell; nothing when it is not one, or of a day and more.
std::optional<long> hundredthsOf(const std::string &timeCell);
// Tenths of a percent of a CPU cell; nothing when it is not one.
std::optional<int> tenthsOf(const std::string &processorCell);

// What ps writes of a process: `columns` are as its option -o takes them. A command may hold
// blanks, so it is best asked for alone. Fails the test that calls it when ps can't be run.
std::string askPS(pid_t pid, const std::string &columns);

}  // namespace test
