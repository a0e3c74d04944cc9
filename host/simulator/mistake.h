// What is wrong with a device file, and where.
#pragma once

#include <cstddef>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace host::simulator {

struct Mistake {
  std::string file;
  size_t line = 0;  // 0: the file as a whole
  std::string what;
  std::string expected;  // empty where there is nothing to say

  // "FILE:LINE: what; expected expected", in one line, safe for a terminal.
  std::string text() const;
};

// Where something stands in the file.
struct Place {
  size_t line = 0;
  std::string path;  // such as `process[0].threads[2].share`
};

// Ends the reading. The file's name is left to whoever catches it.
class MistakeFound : public std::exception {
 public:
  explicit MistakeFound(Mistake mistake)
      : mistake_(std::make_shared<const Mistake>(std::move(mistake))) {}

  const Mistake &mistake() const { return *mistake_; }
  const char *what() const noexcept override { return mistake_->what.c_str(); }

 private:
  std::shared_ptr<const Mistake> mistake_;  // an exception must be copied without a throw
};

[[noreturn]] void failAt(const Place &place, std::string_view what, std::string_view expected);

// A text as messages show it, cut where it is long; the same in quotes.
std::string shortened(std::string_view text);
std::string quoted(std::string_view text);
// Several, each once.
std::string quotedList(std::span<const std::string_view> texts);

}  // namespace host::simulator
