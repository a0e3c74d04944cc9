// Reading of the keys of a device file with their kinds and ranges: numbers, sizes, times, words,
// figures. Whatever is not as it should be is thrown as MistakeFound, with the line and the keys
// that lead there. What each key means is not here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "host/simulator/figure.h"
#include "host/simulator/mistake.h"
#include "host/simulator/toml_value.h"

namespace host::simulator {

// Beyond these the arithmetic on figures would not be safe.
inline constexpr uint64_t kLargestNumber = std::numeric_limits<int64_t>::max();
inline constexpr int64_t kLongestTime = 1'000'000'000;  // seconds
inline constexpr int64_t kMillion = 1'000'000;

// A step of the way through the file; the steps before it must outlive it.
struct Path {
  const Path *parent = nullptr;
  std::string_view key;  // empty at the top
  std::optional<size_t> index;

  std::string text() const;
};

struct Word {
  std::string_view text;
  int64_t value;
};

enum class Unit { kCount, kSize, kTime, kShare, kLoad };

struct ReadFigure {
  Figure figure;
  bool hasGrowth = false;  // the file says how it grows
};

// A value of the file, or the absence of one. It refers to the tree and to the reader of its table.
class Field {
 public:
  Field() = default;
  Field(const TomlValue &value, Path path) : value_(&value), path_(path) {}

  explicit operator bool() const { return value_ != nullptr; }
  size_t line() const { return value_->line; }
  const Path &path() const { return path_; }
  Place place() const { return {value_->line, path_.text()}; }

  // What stands there is not what was expected. The first form shows it.
  [[noreturn]] void fail(std::string_view expected) const;
  [[noreturn]] void fail(std::string_view what, std::string_view expected) const;

  template <typename T>
  const T *as() const {
    return std::get_if<T>(&value_->data);
  }

  bool flag() const;
  int64_t number(int64_t least, int64_t most) const;
  template <typename T>
  T number() const {
    return static_cast<T>(number(leastOf<T>(), mostOf<T>()));
  }
  double fraction(double least, double most) const;
  uint64_t size(uint64_t most = kLargestNumber) const;
  Nanoseconds time() const;  // seconds, at most kLongestTime
  Nanoseconds timeAboveZero() const;
  // Without a NUL; the reference is to the tree.
  const std::string &text(size_t most) const;
  std::vector<std::string> texts(size_t most) const;
  int64_t oneOf(std::span<const Word> words) const;
  // A text of `words`, or a number.
  int64_t oneOfOrNumber(std::span<const Word> words, int64_t most) const;
  // All of them together.
  uint32_t severalOf(std::span<const Word> words) const;
  // The same where numbers may stand beside the words or for the whole.
  uint32_t severalOfOrNumber(std::span<const Word> words) const;
  std::vector<uint8_t> bytes() const;
  // `most` in the unit in which the figure is kept.
  ReadFigure figure(Unit unit, uint64_t most = kLargestNumber) const;

  // The elements of an array; each is fine until the next call for one.
  size_t count() const;
  Field element(size_t index) const;

  template <typename T>
  static constexpr int64_t leastOf() {
    return static_cast<int64_t>(std::numeric_limits<T>::min());
  }
  template <typename T>
  static constexpr int64_t mostOf() {
    return std::in_range<int64_t>(std::numeric_limits<T>::max())
               ? static_cast<int64_t>(std::numeric_limits<T>::max())
               : std::numeric_limits<int64_t>::max();
  }

 private:
  bool isArrayIn(std::string_view expected) const;

  const TomlValue *value_ = nullptr;
  Path path_;
};

// The keys of one table, those of others beneath it. Every key that was asked for is known; in the
// end finish() refuses the rest. Fields refer to it: it stays where it is.
class TableReader {
 public:
  // `field` must be a table.
  explicit TableReader(const Field &field);
  TableReader(const TomlTable &table, size_t line) : table_(&table), line_(line) {}
  TableReader(const TableReader &) = delete;
  TableReader &operator=(const TableReader &) = delete;

  // Looked through for what this one lacks, the last one first. They must outlive this one, and
  // have been finished.
  void putOnTopOf(std::span<const std::unique_ptr<TableReader>> layers);

  Place place() const { return {line_, path_.text()}; }
  const Path &path() const { return path_; }
  // The keys, in order.
  const TomlTable &table() const { return *table_; }

  Field find(std::string_view key);
  // Of this table alone.
  Field findOwn(std::string_view key);
  // Of the tables beneath, the first one first, and of this one.
  std::vector<Field> findAll(std::string_view key);
  Field require(std::string_view key, std::string_view expected);
  void finish() const;

  // The value of a key, if it is there, into `target`.
  template <typename T>
  void number(std::string_view key, T &target, int64_t least = Field::leastOf<T>(),
              int64_t most = Field::mostOf<T>()) {
    if (const Field field = find(key)) target = static_cast<T>(field.number(least, most));
  }
  void flag(std::string_view key, bool &target);
  void size(std::string_view key, uint64_t &target);
  void time(std::string_view key, Nanoseconds &target);
  void text(std::string_view key, std::string &target, size_t most);
  template <typename T>
  void oneOf(std::string_view key, T &target, std::span<const Word> words) {
    if (const Field field = find(key)) target = static_cast<T>(field.oneOf(words));
  }
  void figure(std::string_view key, Figure &target, Unit unit);

 private:
  Field own(std::string_view key) const;

  const TomlTable *table_;
  size_t line_;
  Path path_;
  std::vector<std::string_view> known_;
  std::span<const std::unique_ptr<TableReader>> layers_;
};

}  // namespace host::simulator
