#include "host/simulator/toml_reader.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <numeric>
#include <utility>

#include "host/simulator/toml_library.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

constexpr size_t kMostWords = 64;
// Millionths per second, up or down.
constexpr int64_t kLargestGrowth = 9'000'000'000'000'000'000;
constexpr uint64_t kLongestNanoseconds = static_cast<uint64_t>(kLongestTime) * 1'000'000'000;
constexpr uint64_t kExactInDouble = uint64_t{1} << 53;
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
      {kMillion, true, false, "a load average"},
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

std::string describe(const Field &field) {
  if (const bool *flag = field.as<bool>()) return *flag ? "true" : "false";
  if (const int64_t *number = field.as<int64_t>()) return std::to_string(*number);
  if (const double *number = field.as<double>()) return fractionText(*number);
  if (const std::string *text = field.as<std::string>()) return quoted(*text);
  if (field.isArray()) return "an array";
  if (field.asTable() != nullptr) return "a table";
  const toml::date_time *time = field.as<toml::date_time>();
  return time != nullptr && time->offset ? "a time of day" : "a time of day without an offset";
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

// Null when there is no text, or it is none of `words`.
const Word *findWord(std::span<const Word> words, const std::string *text) {
  if (text == nullptr) return nullptr;
  const auto place = std::find_if(words.begin(), words.end(),
                                  [text](const Word &word) { return word.text == *text; });
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

// What is no whole number: a fraction, or a size as a text.
std::optional<double> fractionIn(const Field &field, const UnitRow &row) {
  if (const double *number = field.as<double>()) return *number;
  const std::string *text = row.takesText ? field.as<std::string>() : nullptr;
  return text != nullptr ? parseSize(*text) : std::nullopt;
}

// In the unit in which the figure is kept; nothing when it is out of range or of another kind.
std::optional<uint64_t> amount(const Field &field, Unit unit, uint64_t most) {
  const UnitRow &row = rowOf(unit);
  if (const int64_t *number = field.as<int64_t>()) {
    const Wide scaled = Wide{*number} * row.scale;
    if (scaled < 0 || scaled > Wide{most}) return std::nullopt;
    return static_cast<uint64_t>(scaled);
  }
  if (field.as<double>() != nullptr && !row.takesFraction) return std::nullopt;
  const std::optional<double> number = fractionIn(field, row);
  return number ? rounded(*number * static_cast<double>(row.scale), most) : std::nullopt;
}

// Millionths per second, in the unit in which the figure is kept.
std::optional<int64_t> growthOf(const Field &field, Unit unit) {
  const UnitRow &row = rowOf(unit);
  if (const int64_t *whole = field.as<int64_t>()) {
    const Wide scaled = Wide{*whole} * row.scale * kMillion;
    if (scaled < -kLargestGrowth || scaled > kLargestGrowth) return std::nullopt;
    return static_cast<int64_t>(scaled);
  }
  const std::optional<double> number = fractionIn(field, row);
  if (!number) return std::nullopt;
  const double scaled = *number * static_cast<double>(row.scale) * static_cast<double>(kMillion);
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

uint32_t allOf(const Field &list, std::span<const Word> words, bool orNumbers) {
  std::string expected = "several of " + listOf(words);
  if (orNumbers) expected += ", or numbers";
  uint32_t all = 0;
  for (const Field &field : list.elementsOf(0, kMostWords, "an array with " + expected)) {
    if (const Word *word = findWord(words, field.as<std::string>())) {
      all |= static_cast<uint32_t>(word->value);
    } else if (orNumbers && field.as<int64_t>() != nullptr) {
      all |= field.number<uint32_t>();
    } else {
      field.fail(expected);
    }
  }
  return all;
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

size_t Field::line() const {
  return node_->source().begin.line;
}

template <typename T>
const T *Field::as() const {
  const toml::value<T> *value = node_->as<T>();
  return value != nullptr ? &value->get() : nullptr;
}
template const bool *Field::as() const;
template const int64_t *Field::as() const;
template const double *Field::as() const;
template const std::string *Field::as() const;

bool Field::isArray() const {
  return node_->is_array();
}

const toml::table *Field::asTable() const {
  return node_->as_table();
}

void Field::fail(std::string_view expected) const {
  fail("found " + describe(*this), expected);
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

uint64_t Field::size() const {
  const std::optional<uint64_t> size = amount(*this, Unit::kSize, kLargestNumber);
  if (!size) fail(kSizeExpected);
  return *size;
}

Nanoseconds Field::time() const {
  const std::optional<uint64_t> time = amount(*this, Unit::kTime, kLongestNanoseconds);
  if (!time) fail(rangeText("a time in seconds", 0, kLongestTime));
  Nanoseconds result(static_cast<int64_t>(*time));
  // A double tells no nanoseconds of so long a time, but always microseconds.
  if (as<double>() != nullptr && *time > kExactInDouble) {
    result = std::chrono::round<std::chrono::microseconds>(result);
  }
  return result;
}

Nanoseconds Field::timeAboveZero() const {
  const Nanoseconds result = time();
  if (result.count() == 0) fail("a time above 0");
  return result;
}

Field::Moment Field::moment() const {
  using namespace std::chrono;
  const toml::date_time *time = as<toml::date_time>();
  Moment moment{-1};
  if (time != nullptr && time->offset) {
    const sys_days day = year{time->date.year} / time->date.month / time->date.day;
    const seconds sinceMidnight =
        hours{time->time.hour} + minutes{time->time.minute} + seconds{time->time.second};
    const minutes offset{time->offset->minutes};
    moment.seconds = (day.time_since_epoch() + sinceMidnight - offset).count();
    moment.fraction = nanoseconds{time->time.nanosecond};
  }
  if (moment.seconds < 0) fail("a time of day from 1970 on such as 2024-03-05T14:07:09Z");
  return moment;
}

uint64_t Field::address() const {
  constexpr std::string_view kPrefix = "0x";
  if (const std::string *text = as<std::string>()) {
    const char *end = text->data() + text->size();
    uint64_t address = 0;
    if (text->starts_with(kPrefix)) {
      const auto [stop, error] = std::from_chars(text->data() + kPrefix.size(), end, address, 16);
      if (error == std::errc() && stop == end) return address;
    }
  } else if (const int64_t *number = as<int64_t>(); number != nullptr && *number >= 0) {
    return static_cast<uint64_t>(*number);
  }
  fail("an address: a number, or a text such as \"0xfffffff007b6a1c4\"");
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
  for (const Field &field : elements()) result.push_back(field.text(most));
  return result;
}

size_t Field::indexIn(std::span<const std::string_view> texts) const {
  const std::string *text = as<std::string>();
  const auto found = text != nullptr ? std::find(texts.begin(), texts.end(), *text) : texts.end();
  if (found == texts.end()) fail("one of " + quotedList(texts));
  return static_cast<size_t>(found - texts.begin());
}

int64_t Field::oneOfOrNumber(std::span<const Word> words, int64_t most) const {
  if (const Word *word = findWord(words, as<std::string>())) return word->value;
  const int64_t *number = as<int64_t>();
  if (number != nullptr && *number >= 0 && *number <= most) return *number;
  fail("one of " + listOf(words) + ", or " + rangeText("a number", 0, most));
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
  if (unit == Unit::kTime) most = std::min(most, kLongestNanoseconds);
  if (unit == Unit::kShare) most = std::min<uint64_t>(most, 1000);
  const std::string range =
      most == kLargestNumber
          ? plain
          : plain + " from 0 to " + std::to_string(most / static_cast<uint64_t>(rowOf(unit).scale));
  ReadFigure result;
  if (asTable() == nullptr) {
    const std::optional<uint64_t> start = amount(*this, unit, most);
    if (!start) fail(range + ", or a table");
    result.figure.start = *start;
    return result;
  }

  TableReader reader(*this);
  const auto read = [&](std::string_view key, uint64_t &target) {
    if (const Field field = reader.find(key)) {
      const std::optional<uint64_t> value = amount(field, unit, most);
      if (!value) field.fail(range);
      target = *value;
    }
  };
  read("start", result.figure.start);
  if (const Field field = reader.find("growth")) {
    const std::optional<int64_t> growth = growthOf(field, unit);
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

std::vector<Field> Field::elements() const {
  const toml::array *array = node_->as_array();
  if (array == nullptr) fail("an array");
  std::vector<Field> fields;
  fields.reserve(array->size());
  Path path = path_;
  for (const toml::node &element : *array) {
    path.index = fields.size();
    fields.emplace_back(element, path);
  }
  return fields;
}

std::vector<Field> Field::elementsUpTo(size_t most, std::string_view things) const {
  std::vector<Field> fields = elements();
  if (fields.size() > most) {
    fail("found " + std::to_string(fields.size()) + " " + std::string(things),
         "at most " + std::to_string(most));
  }
  return fields;
}

std::vector<Field> Field::elementsOf(size_t least, size_t most, std::string_view expected) const {
  const toml::array *array = node_->as_array();
  if (array == nullptr || array->size() < least || array->size() > most) fail(expected);
  return elements();
}

TableReader::TableReader(const Field &field) : table_(field.asTable()), path_(field.path()) {
  if (table_ == nullptr) field.fail("a table");
}

void TableReader::putOnTopOf(std::span<const std::unique_ptr<TableReader>> layers) {
  layers_ = layers;
}

Place TableReader::place() const {
  return {table_->source().begin.line, path_.text()};
}

std::vector<std::string_view> TableReader::keys() const {
  std::vector<std::string_view> keys;
  for (const auto &[key, node] : *table_) keys.push_back(key.str());
  return keys;
}

Field TableReader::peek(std::string_view key) const {
  const auto member = table_->find(key);
  if (member == table_->end()) return {};
  return Field(member->second, {&path_, member->first.str(), std::nullopt});
}

Field TableReader::findOwn(std::string_view key) {
  known_.push_back(key);
  return peek(key);
}

Field TableReader::find(std::string_view key) {
  if (const Field field = findOwn(key)) return field;
  for (size_t i = layers_.size(); i-- > 0;) {
    if (const Field field = layers_[i]->peek(key)) return field;
  }
  return {};
}

std::vector<Field> TableReader::findAll(std::string_view key) {
  std::vector<Field> fields;
  for (const std::unique_ptr<TableReader> &layer : layers_) {
    if (const Field field = layer->peek(key)) fields.push_back(field);
  }
  if (const Field field = findOwn(key)) fields.push_back(field);
  return fields;
}

Field TableReader::require(std::string_view key, std::string_view expected) {
  const Field field = find(key);
  if (!field) {
    failAt({place().line, Path{&path_, key, std::nullopt}.text()}, "is missing", expected);
  }
  return field;
}

std::vector<Field> TableReader::elements(std::string_view key) {
  const Field field = find(key);
  return field ? field.elements() : std::vector<Field>();
}

void TableReader::finish() const {
  const toml::key *first = nullptr;
  for (const auto &[key, node] : *table_) {
    if (std::find(known_.begin(), known_.end(), key.str()) != known_.end()) continue;
    if (first == nullptr || key.source().begin.line < first->source().begin.line) first = &key;
  }
  if (first == nullptr) return;
  failAt({first->source().begin.line, Path{&path_, first->str(), std::nullopt}.text()},
         "unknown key", expectedFor(first->str(), known_));
}

}  // namespace host::simulator
