// A TOML document as a tree of plain values that know their lines. The parser itself is behind
// parseToml(); what the keys mean is not here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace host::simulator {

struct TomlValue;
struct TomlMember;

using TomlArray = std::vector<TomlValue>;

struct TomlTable {
  std::vector<TomlMember> members;  // by ascending key

  // Null when there is none. It lives as long as the table.
  const TomlMember *find(std::string_view key) const;
};

// A moment, in whole seconds since the epoch.
struct TomlTime {
  int64_t seconds = 0;
};

// A date or a time that names no moment: it lacks the other part, or the offset.
struct TomlLocalTime {};

struct TomlValue {
  size_t line = 0;
  std::variant<bool, int64_t, double, std::string, TomlTime, TomlLocalTime, TomlArray, TomlTable>
      data;
};

struct TomlMember {
  std::string key;
  size_t line = 0;  // of the key
  TomlValue value;
};

// Why a text is not TOML.
struct TomlError {
  size_t line = 0;
  std::string what;  // may hold any bytes of the text
};

// Refuses what is nested so deeply that it can only be meant to exhaust the reader.
std::variant<TomlTable, TomlError> parseToml(std::string_view text);

}  // namespace host::simulator
