// The test's end of make_process: starts it, and knows when what was asked for is there.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "harness/child.h"
#include "harness/file_handle.h"

namespace test {

// What make_process is to do: its arguments.
using Steps = std::vector<std::string>;

// The system does not let this test make such a process.
struct Refused : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Helper {
 public:
  // Returns when make_process says that all is made; otherwise throws Refused, or another
  // std::runtime_error with what it said.
  explicit Helper(const Steps &steps);
  // Of another program that speaks the same way.
  Helper(const std::string &program, const std::vector<std::string> &arguments);
  // Ends what was made.
  ~Helper();

  pid_t pid() const { return pid_; }
  // Of the children that it made for good, in the order in which it made them.
  const std::vector<pid_t> &children() const { return children_; }
  // Waits for the end of a helper that ends by itself.
  std::optional<Ending> waitForEnd(Duration patience = kPatience) {
    return child_.waitForEnd(patience);
  }
  bool hasEnded() { return child_.poll().has_value(); }

 private:
  Helper(const std::string &program, const std::vector<std::string> &arguments, Pipe input,
         Pipe output);

  FileHandle input_;
  Child child_;
  pid_t pid_ = 0;
  std::vector<pid_t> children_;
};

std::string makeProcessPath();

// A process name of at most 15 bytes that no other test has, even one that runs at the same time.
// `suffix` is at most 4 bytes.
std::string uniqueName(const std::string &suffix);

}  // namespace test
