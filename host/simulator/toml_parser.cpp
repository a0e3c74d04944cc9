#include "host/simulator/toml_parser.h"

#include <algorithm>
#include <string>
#include <utility>

#include "host/simulator/mistake.h"
#include "host/simulator/toml_library.h"

namespace host::simulator {

namespace {

// The parser bounds the nesting of values, but not the parts of a dotted key, each of which is one
// more table. No device file comes near.
constexpr size_t kMostKeyParts = 16;

// What the parser makes of a text takes up to 180 bytes for each of these, for a point, which may
// make a table, somewhat more: their number, rather than that of bytes, bounds the memory that a
// file takes.
constexpr std::string_view kMarks = "=,.[{";
constexpr size_t kMostMarks = 8'000'000;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// What the parser is not to see: too much, keys of too many parts, and, where TOML has only ASCII,
// other characters, some of which it takes for blanks.
class Precheck {
 public:
  explicit Precheck(std::string_view text) : text_(text) {
    if (text_.starts_with(kByteOrderMark)) text_.remove_prefix(kByteOrderMark.size());
  }

  // Walks over what is outside of strings and comments.
  void run() {
    size_t parts = 1;
    size_t marks = 0;
    while (at_ < text_.size()) {
      const char letter = text_[at_];
      if (letter == '"' || letter == '\'') {
        skipString(letter);
        continue;
      }
      if (letter == '#') {
        at_ = std::min(text_.find('\n', at_), text_.size());
        continue;
      }
      if (kMarks.find(letter) != std::string_view::npos) marks += letter == '.' ? 2 : 1;
      if (marks > kMostMarks) {
        fail("more than " + std::to_string(kMostMarks) + " of the characters = , . [ {");
      }
      if (letter == '\n' || letter == '=' || letter == ',' || letter == '[' || letter == '{') {
        parts = 1;
      }
      if (letter == '\n') line_++;
      if (letter == '.' && ++parts > kMostKeyParts) {
        fail("a key of more than " + std::to_string(kMostKeyParts) + " parts");
      }
      if (static_cast<unsigned char>(letter) > 0x7F) {
        fail("a character that only strings and comments may hold");
      }
      at_++;
    }
  }

 private:
  [[noreturn]] void fail(std::string_view what) const { failAt({line_, ""}, what, ""); }

  void skipString(char quote) {
    const std::string triple(3, quote);
    const bool isLong = text_.substr(at_, 3) == triple;
    const bool hasEscapes = quote == '"';
    at_ += isLong ? 3 : 1;
    while (at_ < text_.size()) {
      const char letter = text_[at_];
      if (letter == '\n') {
        if (!isLong) return;
        line_++;
      }
      if (letter == '\\' && hasEscapes) {
        at_++;
        if (at_ < text_.size() && text_[at_] == '\n') line_++;
        at_++;
        continue;
      }
      if (letter == quote && (!isLong || text_.substr(at_, 3) == triple)) {
        at_ += isLong ? 3 : 1;
        // Up to two quotes more may belong to the end of a long string.
        while (isLong && at_ < text_.size() && text_[at_] == quote) at_++;
        return;
      }
      at_++;
    }
  }

  std::string_view text_;
  size_t at_ = 0;
  size_t line_ = 1;
};

}  // namespace

std::shared_ptr<const toml::node> parseToml(std::string_view text) {
  Precheck(text).run();
  toml::parse_result result = toml::parse(text);
  if (result.failed()) {
    failAt({result.error().source().begin.line, ""}, result.error().description(), "");
  }
  return std::make_shared<const toml::table>(std::move(result).table());
}

}  // namespace host::simulator
