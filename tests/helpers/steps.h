// What the steps of make_process are written with: their words, failures, and children.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace helper {

// For a test to tell what the system does not allow from a mistake.
constexpr int kRefused = 77;

struct State {
  std::vector<pid_t> children;
  bool stops = false;
  bool losesFirstThread = false;
  bool isRestless = false;
  bool remaps = false;
  long busyThreads = 0;
};

// Ends the program with what errno says.
[[noreturn]] void fail(const std::string &what);
void require(bool succeeded, const char *what);
// Ends the program for a word that is no step, or no argument of one.
[[noreturn]] void misuse(std::string_view word);

class Words {
 public:
  Words(int count, char **words) : words_(words, words + count) {}
  bool atEnd() const { return next_ == words_.size(); }
  std::string text();
  long number();
  // All that are left, and a null pointer.
  std::vector<char *> rest();

 private:
  std::vector<char *> words_;
  size_t next_ = 0;
};

// This process ends when its parent does.
void dieWithParent();
// A child that dies with this process: 0 in the child.
pid_t forkOne();
// Whether standard input ends within so many milliseconds, -1 for as long as it takes.
bool inputHasEnded(int patience);

}  // namespace helper
