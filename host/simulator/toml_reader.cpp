#include "host/simulator/toml_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <utility>

#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

constexpr size_t kMostWords = 64;
// Millionths per second, up or down.
constexpr int64_t kLargestGrowth = 9'000'000'000'000'000'000;
constexpr std::string_view kSizeExpected = "a size such as 4096 or \"1.5M\"";

struct UnitRow {
  int64_t scale;  // to what a figure counts in
  bool takesFraction;
  bool takesText;
  std::string_view expected;
};

const UnitRow &rowOf(Unit unit) {
  static constexpr UnitRow kRows[] = {
      {1, false, false, "a number"},
      {1, false, true, kSizeExpected},
      {1'000'000'000, true, false, "a time in seconds"},
      {10, true, false, "a share in percent"},
      {1000, true, false, "a load average"},
  };
  return kRows[static_cast<size_t>(unit)];
}

std::string numberText(double number) {
  char text[32];
  const std::to_chars_result end = std::to_chars(text, text + sizeof text, number);
  return {text, end.ptr};
}

// As it may stand in the file: not like a whole number, which is another kind of value.
std::string fractionText(double number) {
  std::string text = numberText(number);
  const bool isWhole = text.find_first_not_of("-0123456789") == std::string::npos;
  if (isWhole) text += ".0";
  return text;
}

std::string describe(const TomlValue &value) {
  if (const bool *flag = std::get_if<bool>(&value.data)) return *flag ? "true" : "false";
  if (const int64_t *number = std::get_if<int64_t>(&value.data)) return std::to_string(*number);
  if (const double *number = std::get_if<double>(&value.data)) return fractionText(*number);
  if (const std::string *text = std::get_if<std::string>(&value.data)) return quoted(*text);
  if (std::holds_alternative<TomlArray>(value.data)) return "an array";
  if (std::holds_alternative<TomlTable>(value.data)) return "a table";
  if (std::holds_alternative<TomlTime>(value.data)) return "a time of day";
  return "a time of day without an offset";
}

std::string listOf(std::span<const Word> words) {
  std::vector<std::string_view> texts;
  texts.reserve(words.size());
  for (const Word &word : words) texts.push_back(word.text);
  return quotedList(texts);
}

// How many letters have to be put in, taken away or replaced to make one word of the other.
size_t editsBetween(std::string_view a, std::string_view b) {
  std::vector<size_t> edits(b.size() + 1);  // from what was seen of `a` to each beginning of `b`
  std::iota(edits.begin(), edits.end(), size_t{0});
  for (size_t i = 0; i < a.size(); i++) {
    size_t diagonal = std::exchange(edits[0], i + 1);
    for (size_t j = 0; j < b.size(); j++) {
      const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = edits[j + 1];
      edits[j + 1] = std::min({replaced, diagonal + 1, edits[j] + 1});
    }
  }
  return edits.back();
}

// What may have been meant by a key that is not known: those much like it, else any other.
std::string expectedFor(std::string_view key, std::span<const std::string_view> known) {
  size_t fewest = key.size() / 3;
  std::vector<std::string_view> alike;
  for (const std::string_view other : known) {
    // Keys may be as long as the file.
    if (key.size() > other.size() + fewest) continue;
    const size_t edits = editsBetween(key, other);
    if (edits > fewest) continue;
    if (edits < fewest) alike.clear();
    fewest = edits;
    if (std::find(alike.begin(), alike.end(), other) == alike.end()) alike.push_back(other);
  }
  if (alike.size() == 1) return quoted(alike.front());
  return "one of " + quotedList(alike.empty() ? known : std::span<const std::string_view>(alike));
}

const Word *findWord(std::span<const Word> words, std::string_view text) {
  const auto place = std::find_if(words.begin(), words.end(),
                                  [text](const Word &word) { return word.text == text; });
  return place != words.end() ? &*place : nullptr;
}

// Digits, perhaps with a fraction, and a unit; bytes.
std::optional<double> parseSize(std::string_view text) {
  double value = 0;
  const bool isNegative = text.starts_with('-');
  if (isNegative) text.remove_prefix(1);
  if (text.empty() || text.front() < '0' || text.front() > '9') return std::nullopt;
  const char *end = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
  if (error != std::errc{}) return std::nullopt;
  static constexpr std::string_view kUnits = "KMGTP";
  if (next != end) {
    const size_t unit = kUnits.find(*next);
    if (unit == std::string_view::npos || next + 1 != end) return std::nullopt;
    value = std::ldexp(value, static_cast<int>(10 * (unit + 1)));
  }
  return isNegative ? -value : value;
}

// `value` as a whole number of at most `most`.
std::optional<uint64_t> rounded(double value, uint64_t most) {
  // The comparison also refuses what is not a number. As a double, the largest `most` is 2 to 63.
  if (!(value >= 0) || value >= std::min(static_cast<double>(most) + 1, 9.2e18)) {
    return std::nullopt;
  }
  const uint64_t whole = static_cast<uint64_t>(std::llround(value));
  return whole <= most ? std::optional(whole) : std::nullopt;
}

// In the unit in which the figure is kept; nothing when it is out of range or of another kind.
std::optional<uint64_t> amount(const TomlValue &value, Unit unit, uint64_t most) {
  const UnitRow &row = rowOf(unit);
  if (const int64_t *number = std::get_if<int64_t>(&value.data)) {
    const Wide scaled = Wide{*number} * row.scale;
    if (scaled < 0 || scaled > Wide{most}) return std::nullopt;
    return static_cast<uint64_t>(scaled);
  }
  if (const double *number = std::get_if<double>(&value.data); number != nullptr) {
    if (!row.takesFraction) return std::nullopt;
    return rounded(*number * static_cast<double>(row.scale), most);
  }
  if (const std::string *text = std::get_if<std::string>(&value.data);
      text != nullptr && row.takesText) {
    const std::optional<double> size = parseSize(*text);
    return size ? rounded(*size, most) : std::nullopt;
  }
  return std::nullopt;
}

// Millionths per second, in the unit in which the figure is kept.
std::optional<int64_t> growthOf(const TomlValue &value, Unit unit) {
  const UnitRow &row = rowOf(unit);
  double number = 0;
  if (const int64_t *whole = std::get_if<int64_t>(&value.data)) {
    const Wide scaled = Wide{*whole} * row.scale * kMillion;
    if (scaled < -kLargestGrowth || scaled > kLargestGrowth) return std::nullopt;
    return static_cast<int64_t>(scaled);
  }
  if (const double *fraction = std::get_if<double>(&value.data)) {
    number = *fraction;
  } else if (const std::string *text = std::get_if<std::string>(&value.data);
             text != nullptr && row.takesText) {
    const std::optional<double> size = parseSize(*text);
    if (!size) return std::nullopt;
    number = *size;
  } else {
    return std::nullopt;
  }
  const double scaled = number * static_cast<double>(row.scale) * static_cast<double>(kMillion);
  if (!(std::abs(scaled) <= static_cast<double>(kLargestGrowth))) return std::nullopt;
  return std::llround(scaled);
}

// The figure's line is straight, so it can be said to have passed through another value a while
// from the start; then its swing is further on at the start, and the value there is the same.
void setPhase(double phase, Figure &figure) {
  const Wide millionths = std::llround(phase * static_cast<double>(kMillion));
  const Wide passed = Wide{figure.period.count()} * millionths / kMillion;
  // Forwards or back, so that the value there is the larger one.
  const Wide from = figure.growth < 0 ? -passed : Wide{figure.period.count()} - passed;
  constexpr Wide kNanosecondMillionths = Wide{1'000'000'000} * kMillion;
  const Wide start = Wide{figure.start} + Wide{figure.growth} * from / kNanosecondMillionths;
  figure.start = static_cast<uint64_t>(std::min(start, Wide{kLargestNumber}));
  figure.from = Nanoseconds(static_cast<int64_t>(from));
}

std::string rangeText(std::string_view kind, int64_t least, int64_t most) {
  std::string text(kind);
  if (least != std::numeric_limits<int64_t>::min()) text += " from " + std::to_string(least);
  if (most != std::numeric_limits<int64_t>::max()) text += " to " + std::to_string(most);
  return text;
}

std::optional<uint8_t> hexDigit(char letter) {
  if (letter >= '0' && letter <= '9') return static_cast<uint8_t>(letter - '0');
  if (letter >= 'a' && letter <= 'f') return static_cast<uint8_t>(letter - 'a' + 10);
  if (letter >= 'A' && letter <= 'F') return static_cast<uint8_t>(letter - 'A' + 10);
  return std::nullopt;
}

}  // namespace

std::string Path::text() const {
  std::string text;
  if (parent != nullptr) text = parent->text();
  if (!text.empty() && !key.empty()) text += '.';
  text += shortened(key);
  if (index) text += '[' + std::to_string(*index) + ']';
  return text;
}

void Field::fail(std::string_view expected) const {
  fail("found " + describe(*value_), expected);
}

void Field::fail(std::string_view what, std::string_view expected) const {
  failAt(place(), what, expected);
}

bool Field::flag() const {
  const bool *flag = as<bool>();
  if (flag == nullptr) fail("true or false");
  return *flag;
}

int64_t Field::number(int64_t least, int64_t most) const {
  const int64_t *number = as<int64_t>();
  if (number == nullptr || *number < least || *number > most) {
    fail(rangeText("a number", least, most));
  }
  return *number;
}

double Field::fraction(double least, double most) const {
  const int64_t *whole = as<int64_t>();
  const double *fraction = as<double>();
  const double value = whole != nullptr      ? static_cast<double>(*whole)
                       : fraction != nullptr ? *fraction
                                             : std::numeric_limits<double>::quiet_NaN();
  if (!(value >= least && value <= most)) {
    fail("a number from " + numberText(least) + " to " + numberText(most));
  }
  return value;
}

uint64_t Field::size(uint64_t most) const {
  const std::optional<uint64_t> size = amount(*value_, Unit::kSize, most);
  if (!size) fail(kSizeExpected);
  return *size;
}

Nanoseconds Field::time() const {
  constexpr uint64_t kMost = static_cast<uint64_t>(kLongestTime) * 1'000'000'000;
  const std::optional<uint64_t> time = amount(*value_, Unit::kTime, kMost);
  if (!time) fail(rangeText("a time in seconds", 0, kLongestTime));
  return Nanoseconds(static_cast<int64_t>(*time));
}

Nanoseconds Field::timeAboveZero() const {
  const Nanoseconds result = time();
  if (result.count() == 0) fail("a time above 0");
  return result;
}

const std::string &Field::text(size_t most) const {
  const std::string *text = as<std::string>();
  const std::string expected = "a text of at most " + std::to_string(most) + " bytes";
  if (text == nullptr) fail(expected);
  if (text->size() > most) {
    fail("found a text of " + std::to_string(text->size()) + " bytes", expected);
  }
  if (text->find('\0') != std::string::npos) fail("found a text with a zero byte", expected);
  return *text;
}

std::vector<std::string> Field::texts(size_t most) const {
  std::vector<std::string> result;
  result.reserve(count());
  for (size_t i = 0; i < count(); i++) result.push_back(element(i).text(most));
  return result;
}

int64_t Field::oneOf(std::span<const Word> words) const {
  const std::string *text = as<std::string>();
  const Word *word = text != nullptr ? findWord(words, *text) : nullptr;
  if (word == nullptr) fail("one of " + listOf(words));
  return word->value;
}

int64_t Field::oneOfOrNumber(std::span<const Word> words, int64_t most) const {
  const std::string *text = as<std::string>();
  if (const Word *word = text != nullptr ? findWord(words, *text) : nullptr) return word->value;
  const int64_t *number = as<int64_t>();
  if (number != nullptr && *number >= 0 && *number <= most) return *number;
  fail("one of " + listOf(words) + ", or " + rangeText("a number", 0, most));
}

static uint32_t allOf(const Field &list, std::span<const Word> words, bool orNumbers) {
  std::string expected = "several of " + listOf(words);
  if (orNumbers) expected += ", or numbers";
  if (list.as<TomlArray>() == nullptr || list.count() > kMostWords) {
    list.fail("an array with " + expected);
  }
  uint32_t all = 0;
  for (size_t i = 0; i < list.count(); i++) {
    const Field field = list.element(i);
    const std::string *text = field.as<std::string>();
    const Word *word = text != nullptr ? findWord(words, *text) : nullptr;
    if (word != nullptr) {
      all |= static_cast<uint32_t>(word->value);
    } else if (orNumbers && field.as<int64_t>() != nullptr) {
      all |= field.number<uint32_t>();
    } else {
      field.fail(expected);
    }
  }
  return all;
}

uint32_t Field::severalOf(std::span<const Word> words) const {
  return allOf(*this, words, false);
}

uint32_t Field::severalOfOrNumber(std::span<const Word> words) const {
  return as<int64_t>() != nullptr ? number<uint32_t>() : allOf(*this, words, true);
}

std::vector<uint8_t> Field::bytes() const {
  constexpr std::string_view kExpected = "pairs of hexadecimal digits";
  const std::string *text = as<std::string>();
  if (text == nullptr) fail(kExpected);
  std::vector<uint8_t> result;
  result.reserve(text->size() / 2);
  bool isSecond = false;
  for (const char letter : *text) {
    if (letter == ' ' || letter == '\t' || letter == '\n' || letter == '\r') continue;
    const std::optional<uint8_t> digit = hexDigit(letter);
    if (!digit) fail(kExpected);
    if (isSecond) {
      result.back() = static_cast<uint8_t>(result.back() << 4 | *digit);
    } else {
      result.push_back(*digit);
    }
    isSecond = !isSecond;
  }
  if (isSecond) fail(kExpected);
  return result;
}

ReadFigure Field::figure(Unit unit, uint64_t most) const {
  const std::string plain(rowOf(unit).expected);
  // What Figure and the machine reckon with, whatever the unit.
  if (unit == Unit::kTime)
    most = std::min(most, static_cast<uint64_t>(kLongestTime) * 1'000'000'000);
  if (unit == Unit::kShare) most = std::min<uint64_t>(most, 1000);
  const std::string range =
      most == kLargestNumber
          ? plain
          : plain + " from 0 to " + std::to_string(most / static_cast<uint64_t>(rowOf(unit).scale));
  ReadFigure result;
  if (as<TomlTable>() == nullptr) {
    const std::optional<uint64_t> start = amount(*value_, unit, most);
    if (!start) fail(range + ", or a table");
    result.figure.start = *start;
    return result;
  }

  TableReader reader(*this);
  const auto read = [&](std::string_view key, uint64_t &target) {
    if (const Field field = reader.find(key)) {
      const std::optional<uint64_t> value = amount(*field.value_, unit, most);
      if (!value) field.fail(range);
      target = *value;
    }
  };
  read("start", result.figure.start);
  if (const Field field = reader.find("growth")) {
    const std::optional<int64_t> growth = growthOf(*field.value_, unit);
    if (!growth) {
      const int64_t largest = kLargestGrowth / kMillion / rowOf(unit).scale;
      field.fail(rangeText(plain, -largest, largest) + ", for each second");
    }
    result.figure.growth = *growth;
    result.hasGrowth = true;
  }
  read("swing", result.figure.swing);
  Nanoseconds period{10'000'000'000};
  if (const Field field = reader.find("period")) period = field.timeAboveZero();
  double phase = 0;
  if (const Field field = reader.find("phase")) phase = field.fraction(0, 1);
  reader.finish();
  if (result.figure.swing != 0) {
    result.figure.period = period;
    if (phase != 0) setPhase(phase, result.figure);
  }
  return result;
}

size_t Field::count() const {
  const TomlArray *array = as<TomlArray>();
  if (array == nullptr) fail("an array");
  return array->size();
}

Field Field::element(size_t index) const {
  Path path = path_;
  path.index = index;
  return {(*as<TomlArray>())[index], path};
}

TableReader::TableReader(const Field &field) : table_(field.as<TomlTable>()), line_(field.line()) {
  if (table_ == nullptr) field.fail("a table");
  path_ = field.path();
}

void TableReader::putOnTopOf(std::span<const std::unique_ptr<TableReader>> layers) {
  layers_ = layers;
}

Field TableReader::own(std::string_view key) const {
  const TomlMember *member = table_->find(key);
  if (member == nullptr) return {};
  return {member->value, Path{&path_, member->key, std::nullopt}};
}

Field TableReader::findOwn(std::string_view key) {
  known_.push_back(key);
  return own(key);
}

Field TableReader::find(std::string_view key) {
  if (const Field field = findOwn(key)) return field;
  for (size_t i = layers_.size(); i-- > 0;) {
    if (const Field field = layers_[i]->own(key)) return field;
  }
  return {};
}

std::vector<Field> TableReader::findAll(std::string_view key) {
  std::vector<Field> fields;
  for (const std::unique_ptr<TableReader> &layer : layers_) {
    if (const Field field = layer->own(key)) fields.push_back(field);
  }
  if (const Field field = findOwn(key)) fields.push_back(field);
  return fields;
}

Field TableReader::require(std::string_view key, std::string_view expected) {
  const Field field = find(key);
  if (!field) failAt({line_, Path{&path_, key, std::nullopt}.text()}, "is missing", expected);
  return field;
}

void TableReader::finish() const {
  const TomlMember *first = nullptr;
  for (const TomlMember &member : table_->members) {
    if (std::find(known_.begin(), known_.end(), member.key) != known_.end()) continue;
    if (first == nullptr || member.line < first->line) first = &member;
  }
  if (first == nullptr) return;
  failAt({first->line, Path{&path_, first->key, std::nullopt}.text()}, "unknown key",
         expectedFor(first->key, known_));
}

void TableReader::flag(std::string_view key, bool &target) {
  if (const Field field = find(key)) target = field.flag();
}

void TableReader::size(std::string_view key, uint64_t &target) {
  if (const Field field = find(key)) target = field.size();
}

void TableReader::time(std::string_view key, Nanoseconds &target) {
  if (const Field field = find(key)) target = field.time();
}

void TableReader::text(std::string_view key, std::string &target, size_t most) {
  if (const Field field = find(key)) target = field.text(most);
}

void TableReader::figure(std::string_view key, Figure &target, Unit unit) {
  if (const Field field = find(key)) target = field.figure(unit).figure;
}

}  // namespace host::simulator
