// A program started by a test: its arguments, environment, user and descriptors going in, how it
// ended coming out. A child never outlives the test that started it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "harness/wait.h"

namespace test {

// The user "nobody", who owns nothing.
inline constexpr uid_t kNobody = 65534;

bool isRoot();

// Variables to set, or to remove where there is no value.
using Environment = std::vector<std::pair<std::string, std::optional<std::string>>>;

struct Launch {
  std::string program;  // a path
  std::vector<std::string> arguments;
  // On top of the test's own environment, of which nothing that sondex or curses looks at is left.
  Environment environment;
  std::optional<uid_t> user;  // to become before the program starts; takes root
  int input = -1;             // -1: /dev/null
  int output = -1;
  int error = -1;
  bool ownsTerminal = false;  // `input` is a terminal, to become that of a new session
  std::vector<int> ignoredSignals;
};

struct Ending {
  int status = -1;  // exit status; -1 when a signal ended the program
  int signal = 0;
  double processorSeconds = 0;

  bool exitedWith(int expected) const { return signal == 0 && status == expected; }
};

std::ostream &operator<<(std::ostream &out, const Ending &ending);

class Child {
 public:
  // Throws std::system_error when there can be no process. A program that can't be executed ends
  // with the status 127.
  explicit Child(const Launch &launch);
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  ~Child();

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  // Nothing while the program runs.
  std::optional<Ending> poll();
  // Nothing when it still runs at the deadline.
  std::optional<Ending> waitForEnd(Duration patience = kPatience);

 private:
  pid_t pid_ = -1;
  std::optional<Ending> ending_;
};

}  // namespace test
