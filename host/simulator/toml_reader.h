// Reading of the keys of a device file with their kinds and ranges: numbers, sizes, times, words,
// figures. Whatever is not as it should be is thrown as MistakeFound, with the line and the keys
// that lead there. What each key means is not here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "host/simulator/figure.h"
#include "host/simulator/mistake.h"

namespace toml {
inline namespace v3 {
class node;
class table;
}  // namespace v3
}  // namespace toml

namespace host::simulator {

// Beyond these the arithmetic on figures would not be safe.
inline constexpr uint64_t kLargestNumber = std::numeric_limits<int64_t>::max();
inline constexpr int64_t kLongestTime = 1'000'000'000;  // seconds

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

// A key of a table, and the figure that it says.
template <typename Owner>
struct FigureKey {
  std::string_view key;
  Figure Owner::*figure;
  Unit unit;
};

// A value of the file, or the absence of one. It refers to the tree and to the reader of its table.
class Field {
 public:
  Field() = default;
  explicit Field(const toml::node &node, Path path = {}) : node_(&node), path_(path) {}

  explicit operator bool() const { return node_ != nullptr; }
  size_t line() const;
  const Path &path() const { return path_; }
  Place place() const { return {line(), path_.text()}; }

  // What stands there is not what was expected. The first form shows it.
  [[noreturn]] void fail(std::string_view expected) const;
  [[noreturn]] void fail(std::string_view what, std::string_view expected) const;

  // The value of this kind: bool, int64_t, double or std::string, which is the tree's. Null for any
  // other.
  template <typename T>
  const T *as() const;
  bool isArray() const;
  const toml::table *asTable() const;  // null for what is none

  bool flag() const;
  int64_t number(int64_t least, int64_t most) const;
  template <typename T>
  T number() const {
    return static_cast<T>(number(leastOf<T>(), mostOf<T>()));
  }
  double fraction(double least, double most) const;
  uint64_t size() const;
  Nanoseconds time() const;  // seconds, at most kLongestTime
  Nanoseconds timeAboveZero() const;
  struct Moment {
    int64_t seconds = 0;  // since 1970
    Nanoseconds fraction{0};
  };
  Moment moment() const;  // a time of day
  // The kernel's own addresses, beyond the numbers of the file, are texts.
  uint64_t address() const;
  // Without a NUL; the reference is to the tree.
  const std::string &text(size_t most) const;
  std::vector<std::string> texts(size_t most) const;
  // The row whose `text` stands there.
  template <typename Row>
  const Row &rowIn(std::span<const Row> rows) const {
    std::vector<std::string_view> texts;
    for (const Row &row : rows) texts.push_back(row.text);
    return rows[indexIn(texts)];
  }
  int64_t oneOf(std::span<const Word> words) const { return rowIn(words).value; }
  // A text of `words`, or a number.
  int64_t oneOfOrNumber(std::span<const Word> words, int64_t most) const;
  // All of them together.
  uint32_t severalOf(std::span<const Word> words) const;
  // The same where numbers may stand beside the words or for the whole.
  uint32_t severalOfOrNumber(std::span<const Word> words) const;
  std::vector<uint8_t> bytes() const;
  // `most` in the unit in which the figure is kept.
  ReadFigure figure(Unit unit, uint64_t most = kLargestNumber) const;

  // Of an array.
  std::vector<Field> elements() const;
  // The same of one that has at most so many, which messages call `things`.
  std::vector<Field> elementsUpTo(size_t most, std::string_view things) const;
  // The same of one that has from `least` to `most`.
  std::vector<Field> elementsOf(size_t least, size_t most, std::string_view expected) const;

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
  size_t indexIn(std::span<const std::string_view> texts) const;

  const toml::node *node_ = nullptr;
  Path path_;
};

// The type of a value that may be absent where it is kept.
template <typename T>
struct Plain {
  using Type = T;
};
template <typename T>
struct Plain<std::optional<T>> {
  using Type = T;
};
template <typename T>
using PlainOf = typename Plain<T>::Type;

// The keys of one table, those of others beneath it. Every key that was asked for is known; in the
// end finish() refuses the rest. Fields refer to it: it stays where it is.
class TableReader {
 public:
  // `field` must be a table.
  explicit TableReader(const Field &field);
  TableReader(const TableReader &) = delete;
  TableReader &operator=(const TableReader &) = delete;

  // Looked through for what this one lacks, the last one first. They must outlive this one, and
  // have been finished.
  void putOnTopOf(std::span<const std::unique_ptr<TableReader>> layers);

  Place place() const;
  // Those of this table alone, in order. They live as long as the tree.
  std::vector<std::string_view> keys() const;

  Field find(std::string_view key);
  // Of this table alone. The second form leaves it unknown whether the key may stand there.
  Field findOwn(std::string_view key);
  Field peek(std::string_view key) const;
  // Of the tables beneath, the first one first, and of this one.
  std::vector<Field> findAll(std::string_view key);
  Field require(std::string_view key, std::string_view expected);
  // The elements of an array; none where the key is missing.
  std::vector<Field> elements(std::string_view key);
  void finish() const;

  // The value of a key, if it is there, into `target`: what `take` makes of the field.
  template <typename Target, typename Take>
  void read(std::string_view key, Target &target, Take take) {
    if (const Field field = find(key)) target = std::invoke(take, field);
  }
  template <typename Target, typename Number = PlainOf<Target>>
  void number(std::string_view key, Target &target, int64_t least = Field::leastOf<Number>(),
              int64_t most = Field::mostOf<Number>()) {
    if (const Field field = find(key)) target = static_cast<Number>(field.number(least, most));
  }
  template <typename Target>
  void oneOf(std::string_view key, Target &target, std::span<const Word> words) {
    if (const Field field = find(key)) target = static_cast<PlainOf<Target>>(field.oneOf(words));
  }
  template <typename Target>
  void severalOf(std::string_view key, Target &target, std::span<const Word> words) {
    if (const Field field = find(key))
      target = static_cast<PlainOf<Target>>(field.severalOf(words));
  }
  template <typename Target>
  void text(std::string_view key, Target &target, size_t most) {
    read(key, target, [most](const Field &field) { return field.text(most); });
  }
  template <typename Target>
  void texts(std::string_view key, Target &target, size_t most) {
    read(key, target, [most](const Field &field) { return field.texts(most); });
  }
  template <typename Target>
  void flag(std::string_view key, Target &target) {
    read(key, target, &Field::flag);
  }
  template <typename Target>
  void size(std::string_view key, Target &target) {
    read(key, target, &Field::size);
  }
  void time(std::string_view key, Nanoseconds &target) { read(key, target, &Field::time); }
  void figure(std::string_view key, Figure &target, Unit unit) {
    read(key, target, [unit](const Field &field) { return field.figure(unit).figure; });
  }
  template <typename Owner>
  void figures(std::span<const FigureKey<std::type_identity_t<Owner>>> rows, Owner &owner) {
    for (const FigureKey<Owner> &row : rows) figure(row.key, owner.*row.figure, row.unit);
  }

 private:
  const toml::table *table_;
  Path path_;
  std::vector<std::string_view> known_;
  std::span<const std::unique_ptr<TableReader>> layers_;
};

}  // namespace host::simulator
