// Files that can't grow beyond a size, for tests of what is written to a full disk.
#pragma once

#include <sys/resource.h>

#include <csignal>

namespace test {

// While this lives, no file that this process, or one that it starts, writes may be larger: what
// goes beyond is refused as on a full disk. A program under test that is to be refused likewise
// has to ignore SIGXFSZ too.
class SizeLimit {
 public:
  explicit SizeLimit(rlim_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  SizeLimit(const SizeLimit &) = delete;
  SizeLimit &operator=(const SizeLimit &) = delete;
  ~SizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_);
  }

 private:
  rlimit before_{};
  void (*signal_)(int);
};

}  // namespace test
