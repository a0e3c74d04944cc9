// A number of sleeping processes for a benchmark to look at.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

namespace bench {

// Starts processes that sleep, and ends them with its own life.
class Crowd {
 public:
  // Each opens the three standard descriptors, and what `open` opens in it. Returns when all have.
  explicit Crowd(size_t count, void (*open)() = nullptr);
  ~Crowd();
  Crowd(const Crowd &) = delete;
  Crowd &operator=(const Crowd &) = delete;

  const std::vector<pid_t> &pids() const { return pids_; }

 private:
  std::vector<pid_t> pids_;
};

}  // namespace bench
