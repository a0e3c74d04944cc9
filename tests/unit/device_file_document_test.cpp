// docs/device-file.md beside the reader: it tells of every key that the reader takes, and of no
// other, with kind and default, and of the words that a key is one of. What the reader takes, it
// says itself when it meets something else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/device_file_text.h"

namespace {

using device_file_test::mistakeIn;
using Names = std::set<std::string>;

// Like no key and no word, so that the reader names them all.
constexpr char kUnknown[] = "qqqqqqqq";

struct Row {
  std::vector<std::string> cells;
};
using Table = std::vector<Row>;

std::vector<std::string> linesOfDocument() {
  std::ifstream file(SONDEX_DEVICES_DIR "/../docs/device-file.md");
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> cellsOf(const std::string &line) {
  std::vector<std::string> cells;
  for (size_t at = line.find('|'), end; (end = line.find('|', at + 1)) != std::string::npos;
       at = end) {
    cells.push_back(line.substr(at + 1, end - at - 1));
  }
  return cells;
}

// The tables under a heading, each with its head but without the line below that.
std::vector<Table> tablesUnder(const std::string &heading) {
  std::vector<Table> tables;
  bool isUnder = false;
  bool isInTable = false;
  for (const std::string &line : linesOfDocument()) {
    if (line.starts_with("#")) isUnder = line == heading;
    if (!isUnder || !line.starts_with("|")) {
      isInTable = false;
      continue;
    }
    if (!isInTable) tables.emplace_back();
    isInTable = true;
    if (!line.starts_with("|---")) tables.back().push_back({cellsOf(line)});
  }
  return tables;
}

Table tableUnder(const std::string &heading, size_t index = 0) {
  const std::vector<Table> tables = tablesUnder(heading);
  if (index >= tables.size()) throw std::runtime_error("no such table: " + heading);
  return tables[index];
}

// The words in backticks. Those in parentheses say more of one before them.
Names namesIn(const std::string &cell) {
  Names names;
  int depth = 0;
  for (size_t at = 0; at < cell.size(); ++at) {
    if (cell[at] == '(') ++depth;
    if (cell[at] == ')') --depth;
    if (cell[at] != '`') continue;
    const size_t end = cell.find('`', at + 1);
    if (depth == 0) names.insert(cell.substr(at + 1, end - at - 1));
    at = end;
  }
  return names;
}

// Of a table's first column those that begin with `prefix` and have no further point, without it.
Names keysOf(const Table &table, const std::string &prefix = "") {
  Names keys;
  for (size_t row = 1; row < table.size(); ++row) {
    for (const std::string &name : namesIn(table[row].cells.at(0))) {
      if (!name.starts_with(prefix)) continue;
      const std::string key = name.substr(prefix.size());
      if (key.find('.') == std::string::npos) keys.insert(key);
    }
  }
  return keys;
}

// A cell of the row whose first column names `key`.
std::string cellOf(const Table &table, const std::string &key, size_t column) {
  for (const Row &row : table) {
    if (namesIn(row.cells.at(0)).contains(key)) return row.cells.at(column);
  }
  throw std::runtime_error("no row of " + key);
}

Names together(Names a, const Names &b) {
  a.insert(b.begin(), b.end());
  return a;
}

// What the reader would rather have met with than what is wrong in `text`.
Names expectedIn(const std::string &text) {
  const std::string mistake = mistakeIn(text);
  Names names;
  size_t at = mistake.find("; expected ");
  while (at != std::string::npos && (at = mistake.find('"', at)) != std::string::npos) {
    const size_t end = mistake.find('"', at + 1);
    names.insert(mistake.substr(at + 1, end - at - 1));
    at = end + 1;
  }
  return names;
}

const std::string kUnknownKey = std::string(kUnknown) + " = 1";
const std::string kProcess = "[[process]]\nname = \"a\"\npid = 1\n";
const std::string kPower = "power = { source = [{}] }\n";

std::string withDescriptor(const std::string &keys) {
  return kProcess + "descriptors = [{ " + keys + " }]\n";
}
std::string withEvent(const std::string &keys) {
  return kPower + kProcess + "[[event]]\n" + keys + "\n";
}

// A table of the document by its heading and its number below that, a prefix of the keys that are
// meant, and where they stand in a file: the text before and after one.
struct Place {
  const char *name;
  const char *heading;
  size_t index;
  std::string prefix;
  std::string before;
  std::string after;

  // The document is read when a test runs, not whenever the program starts.
  Table table() const { return tableUnder(heading, index); }
};

std::ostream &operator<<(std::ostream &out, const Place &place) {
  return out << place.name;
}

std::vector<Place> allPlaces() {
  return {
      {"Figure", "## Values", 1, "", "[memory]\nfree = { ", " }\n"},
      {"Top", "## Top level", 0, "", "", "\n"},
      {"Kernel", "## `[kernel]`", 0, "", "[kernel]\n", "\n"},
      {"Clock", "## `[clock]`", 0, "", "[clock]\n", "\n"},
      {"Hardware", "## `[hardware]`", 0, "", "[hardware]\n", "\n"},
      {"Processor", "## `[hardware]`", 1, "", "[[hardware.processor]]\n", "\n"},
      {"Memory", "## `[memory]`", 0, "", "[memory]\n", "\n"},
      {"Swap", "## `[swap]`", 0, "", "[swap]\n", "\n"},
      {"Interface", "## `[[interface]]`", 0, "", "[[interface]]\nname = \"a\"\n", "\n"},
      {"Wifi", "## `[wifi]`", 0, "", "[wifi]\n", "\n"},
      {"Power", "## `[power]`", 0, "", "[power]\n", "\n"},
      {"PowerSource", "## `[power]`", 1, "source.", "[[power.source]]\n", "\n"},
      {"Assertion", "## `[power]`", 1, "assertions.",
       "[[power.assertions]]\nprocess = 1\nnames = []\n", "\n"},
      {"Template", "## `[[process]]`", 1, "", "[template.t]\n", "\n"},
      {"Thread", "### `threads`", 0, "", kProcess + "threads = [{ ", " }]\n"},
      {"Region", "### `regions`", 0, "", kProcess + "regions = [{ address = 0, size = 4096, ",
       " }]\n"},
  };
}

class Documented : public testing::TestWithParam<Place> {};

TEST_P(Documented, KeysAreThoseThatTheReaderTakes) {
  const Place &place = GetParam();
  EXPECT_EQ(keysOf(place.table(), place.prefix),
            expectedIn(place.before + kUnknownKey + place.after));
}

TEST_P(Documented, KeysHaveKindAndDefault) {
  const Table table = GetParam().table();
  ASSERT_EQ(table.at(0).cells.size(), 4u);
  for (size_t row = 1; row < table.size(); ++row) {
    const std::vector<std::string> &cells = table[row].cells;
    ASSERT_EQ(cells.size(), 4u) << cells[0];
    EXPECT_NE(cells[1].find_first_not_of(' '), std::string::npos) << cells[0];
    EXPECT_NE(cells[2].find_first_not_of(' '), std::string::npos) << cells[0];
  }
}

// Keys that are one of several words, or several of them. What is no word in these cells is in
// parentheses or has no backticks; lists that stand below the tables have tests of their own.
TEST_P(Documented, WordsAreThoseThatTheReaderTakes) {
  const Place &place = GetParam();
  const Table table = place.table();
  for (size_t row = 1; row < table.size(); ++row) {
    const std::string &kind = table[row].cells.at(1);
    if (kind.find(" of `") == std::string::npos) continue;
    for (const std::string &name : namesIn(table[row].cells[0])) {
      if (!name.starts_with(place.prefix)) continue;
      const std::string key = name.substr(place.prefix.size());
      const std::string word = "\"" + std::string(kUnknown) + "\"";
      const std::string value = kind.starts_with(" several") ? "[" + word + "]" : word;
      EXPECT_EQ(namesIn(kind), expectedIn(place.before + key + " = " + value + place.after)) << key;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Places, Documented, testing::ValuesIn(allPlaces()),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(DocumentedProcess, HasBothTables) {
  const Names keys =
      together(keysOf(tableUnder("## `[[process]]`")), keysOf(tableUnder("## `[[process]]`", 1)));
  EXPECT_EQ(keys, expectedIn(kProcess + kUnknownKey));
  EXPECT_EQ(namesIn(cellOf(tableUnder("## `[[process]]`", 1), "work-queue", 1)),
            expectedIn(kProcess + "work-queue = { " + kUnknownKey + " }"));
}

TEST(DocumentedThread, HasRegistersOfBothKinds) {
  const std::string registers = "threads = [{ registers = { " + kUnknownKey + " } }]\n";
  EXPECT_EQ(
      namesIn(cellOf(tableUnder("### `threads`"), "registers", 3)),
      together(expectedIn(kProcess + registers), expectedIn(kProcess + "bits = 32\n" + registers)));
}

TEST(DocumentedDescriptor, TypesAndTheirKeys) {
  const Table types = tableUnder("### `descriptors`", 1);
  const Names names = keysOf(types);
  EXPECT_EQ(names, expectedIn(withDescriptor("type = \"" + std::string(kUnknown) + "\"")));

  const Names peer = {"label", "peer", "address", "peer-address"};
  const Names withoutPeer = {"file",           "semaphore", "shared-memory",
                             "kqueue",         "channel",   "file-events",
                             "network-policy", "nexus",     "appletalk"};
  for (const std::string &type : names) {
    Names keys = keysOf(tableUnder("### `descriptors`"));
    if (withoutPeer.contains(type))
      std::erase_if(keys, [&](auto &key) { return peer.contains(key); });
    keys = together(keys, namesIn(cellOf(types, type, 1)));
    std::string required;
    for (const char *key : {"path", "name", "control"}) {
      if (cellOf(types, type, 1).find("`" + std::string(key) + "` (text") != std::string::npos) {
        required += std::string(key) + " = \"a\", ";
      }
    }
    EXPECT_EQ(keys,
              expectedIn(withDescriptor("type = \"" + type + "\", " + required + kUnknownKey)))
        << type;
  }
}

TEST(DocumentedEvent, WhatHappensAndItsKeys) {
  const Names common = keysOf(tableUnder("## `[[event]]`"));
  const Table actions = tableUnder("## `[[event]]`", 1);
  const Names names = keysOf(actions);
  EXPECT_EQ(names, expectedIn(withEvent("do = \"" + std::string(kUnknown) + "\"")));
  const std::string required[] = {"process = 1\n", "name = \"a\"\n", "number = 1\n",
                                  "call = \"uname\"\n", "descriptor = { type = \"nexus\" }\n"};
  for (const std::string &action : names) {
    Names keys = together(common, namesIn(cellOf(actions, action, 1)));
    if (action == "start") {
      keys = together(common, together(keysOf(tableUnder("## `[[process]]`")),
                                       keysOf(tableUnder("## `[[process]]`", 1))));
    }
    std::string given = "do = \"" + action + "\"\n";
    for (const std::string &line : required) {
      if (keys.contains(line.substr(0, line.find(' ')))) given += line;
    }
    if (action == "start") given = "do = \"start\"\nname = \"a\"\n";
    EXPECT_EQ(keys, expectedIn(withEvent(given + kUnknownKey))) << action;
  }
}

}  // namespace
